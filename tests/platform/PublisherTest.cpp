#include "Pelo/Publisher.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace {

// Appends "<name>:<attr>" to a shared log and runs an optional action.
class Recorder : public Pelo::Subscriber {
 public:
  Recorder(std::string name, std::string* log) : name_(std::move(name)), log_(log) {}
  void handleChange(const Pelo::Publisher&, Pelo::AttrId attr, const Pelo::Key&) override {
    *log_ += name_ + ":" + std::to_string(attr) + " ";
    if (action) action();
  }
  void handlePublisherDestroyed(const Pelo::Publisher&) override { *log_ += name_ + ":gone "; }
  std::function<void()> action;

 private:
  std::string name_;
  std::string* log_;
};

TEST(PublisherTest, DeliversSynchronouslyInSubscriptionOrderToActiveSubscribers) {
  std::string log;
  Recorder a("a", &log), b("b", &log), c("c", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&b);
  p.subscriberAdd(&a);
  p.subscriberAdd(&c, false);
  p.publishChange(7);
  EXPECT_EQ(log, "b:7 a:7 ");
  p.subscriberActiveIs(&c, true);
  p.subscriberRemove(&b);
  log.clear();
  p.publishChange(8, Pelo::Key("k"));
  EXPECT_EQ(log, "a:8 c:8 ");
  EXPECT_EQ(p.subscriberCount(), 2u);
}

TEST(PublisherTest, KeyTravelsWithTheChange) {
  struct KeyRecorder : Pelo::Subscriber {
    Pelo::Key seen;
    void handleChange(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key& key) override {
      seen = key;
    }
  } r;
  Pelo::Publisher p;
  p.subscriberAdd(&r);
  p.publishChange(1, Pelo::Key(std::uint16_t{42}));
  ASSERT_NE(r.seen.getIf<std::uint16_t>(), nullptr);
  EXPECT_EQ(r.seen.get<std::uint16_t>(), 42);
  EXPECT_EQ(r.seen.getIf<Pelo::String>(), nullptr);
  p.publishChange(2);
  EXPECT_TRUE(r.seen.empty());
}

TEST(PublisherTest, SubscriberRemovingItselfOrANeighbourDuringDelivery) {
  std::string log;
  Recorder a("a", &log), b("b", &log), c("c", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&a);
  p.subscriberAdd(&b);
  p.subscriberAdd(&c);
  a.action = [&] {
    p.subscriberRemove(&a);
    p.subscriberRemove(&b);
  };
  p.publishChange(1);
  EXPECT_EQ(log, "a:1 c:1 ");
  log.clear();
  p.publishChange(2);
  EXPECT_EQ(log, "c:2 ");
  EXPECT_EQ(p.subscriberCount(), 1u);
}

TEST(PublisherTest, SubscriberAddedDuringDeliveryGetsOnlyLaterChanges) {
  std::string log;
  Recorder a("a", &log), late("late", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&a);
  a.action = [&] { p.subscriberAdd(&late); };
  p.publishChange(1);
  EXPECT_EQ(log, "a:1 ");
  a.action = nullptr;
  log.clear();
  p.publishChange(2);
  EXPECT_EQ(log, "a:2 late:2 ");
}

TEST(PublisherTest, NestedChangeIsDeliveredBeforeTheOuterOneGoesOn) {
  std::string log;
  Recorder a("a", &log), b("b", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&a);
  p.subscriberAdd(&b);
  a.action = [&] {
    a.action = nullptr;
    p.publishChange(2);
  };
  p.publishChange(1);
  EXPECT_EQ(log, "a:1 a:2 b:2 b:1 ");
}

TEST(PublisherTest, PublisherDestroyedDuringDeliveryStopsIt) {
  std::string log;
  auto p = std::make_unique<Pelo::Publisher>();
  Recorder a("a", &log), b("b", &log), c("c", &log);
  p->subscriberAdd(&a);
  p->subscriberAdd(&b);
  p->subscriberAdd(&c);
  b.action = [&] { p.reset(); };
  // Publish through a raw pointer: the unique_ptr is cleared mid-delivery.
  Pelo::Publisher* raw = p.get();
  raw->publishChange(1);
  EXPECT_EQ(log, "a:1 b:1 a:gone b:gone c:gone ");
}

TEST(PublisherTest, ThrowingSubscriberLeavesThePublisherUsable) {
  std::string log;
  Recorder a("a", &log), b("b", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&a);
  p.subscriberAdd(&b);
  a.action = [&] {
    p.subscriberRemove(&b);
    throw std::runtime_error("boom");
  };
  EXPECT_THROW(p.publishChange(1), std::runtime_error);
  a.action = nullptr;
  log.clear();
  p.publishChange(2);
  EXPECT_EQ(log, "a:2 ");
  EXPECT_EQ(p.subscriberCount(), 1u);
}

// A publisher holds one subscriber inline and moves to a list at the second;
// every move between the forms, also during a delivery, keeps the order and
// the re-entrancy rules.
TEST(PublisherTest, GrowingAndShrinkingDuringDeliveryKeepsTheRules) {
  std::string log;
  Recorder a("a", &log), b("b", &log), c("c", &log);
  Pelo::Publisher p;
  p.publishChange(0);
  p.subscriberAdd(&a);
  a.action = [&] { p.subscriberAdd(&b); };  // 1 -> 2 during a delivery
  p.publishChange(1);
  EXPECT_EQ(log, "a:1 ");
  EXPECT_EQ(p.subscriberCount(), 2u);
  a.action = [&] {
    p.subscriberRemove(&b);  // 2 -> 1 during a delivery: b gets nothing more
    p.subscriberAdd(&c);     // and c, added after, nothing of this change
    p.subscriberRemove(&a);
  };
  p.publishChange(2);
  EXPECT_EQ(log, "a:1 a:2 ");
  EXPECT_EQ(p.subscriberCount(), 1u);
  log.clear();
  a.action = nullptr;
  bool once = false;
  c.action = [&] {
    if (std::exchange(once, true)) return;
    p.subscriberRemove(&c);  // 1 -> 0 during a delivery
    p.subscriberAdd(&b, false);
    p.subscriberAdd(&a);
    p.publishChange(4);  // nested, with the new list
  };
  p.publishChange(3);
  EXPECT_EQ(log, "c:3 a:4 ");
  EXPECT_EQ(p.subscriberCount(), 2u);
  log.clear();
  p.subscriberActiveIs(&b, true);
  p.subscriberAdd(&c);
  p.publishChange(5);
  EXPECT_EQ(log, "b:5 a:5 c:5 ");
  p.subscriberRemove(&a);
  p.subscriberRemove(&c);
  p.subscriberActiveIs(&b, false);
  p.subscriberRemove(&c);
  log.clear();
  p.publishChange(6);
  EXPECT_EQ(log, "");
  EXPECT_EQ(p.subscriberCount(), 1u);
  p.subscriberRemove(&b);
  p.subscriberRemove(&b);
  EXPECT_EQ(p.subscriberCount(), 0u);
  p.subscriberAdd(&a);
  p.publishChange(7);
  EXPECT_EQ(log, "a:7 ");
}

TEST(PublisherTest, SoleSubscriberDestroyingThePublisherStopsTheDelivery) {
  std::string log;
  auto p = std::make_unique<Pelo::Publisher>();
  Recorder a("a", &log);
  p->subscriberAdd(&a);
  a.action = [&] { p.reset(); };
  Pelo::Publisher* raw = p.get();
  raw->publishChange(1);
  EXPECT_EQ(log, "a:1 a:gone ");
  // Again from inside a nested delivery, once the list has been grown.
  log.clear();
  p = std::make_unique<Pelo::Publisher>();
  Recorder b("b", &log);
  p->subscriberAdd(&a);
  bool nested = false;
  a.action = [&] {
    if (std::exchange(nested, true)) return p.reset();
    p->subscriberAdd(&b);
    p->publishChange(2);
  };
  raw = p.get();
  raw->publishChange(1);
  EXPECT_EQ(log, "a:1 a:2 a:gone b:gone ");
}

}  // namespace
