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
// each move between the forms during a delivery keeps the re-entrancy rules.
TEST(PublisherTest, GrowingAndShrinkingDuringDeliveryKeepsTheRules) {
  std::string log;
  Recorder a("a", &log), b("b", &log), c("c", &log);
  Pelo::Publisher p;
  p.subscriberAdd(&a);
  a.action = [&] { p.subscriberAdd(&b); };  // 1 -> 2
  p.publishChange(1);
  a.action = [&] {
    p.subscriberRemove(&b);  // 2 -> 1: b gets nothing more
    p.subscriberAdd(&c);
    p.subscriberRemove(&a);
    p.subscriberActiveIs(nullptr, true);  // must not revive a removed entry
  };
  p.publishChange(2);
  EXPECT_EQ(log, "a:1 a:2 ");
  bool once = false;
  c.action = [&] {
    if (std::exchange(once, true)) return;
    p.subscriberRemove(&c);  // 1 -> 0
    p.subscriberAdd(&b, false);
    p.subscriberAdd(&a);
    p.publishChange(4);  // nested, to the new list
  };
  a.action = nullptr;
  p.publishChange(3);
  p.subscriberActiveIs(&b, true);
  p.publishChange(5);
  p.subscriberRemove(&b);
  p.subscriberRemove(&a);  // 2 -> 0 outside a delivery
  p.publishChange(6);
  EXPECT_EQ(log, "a:1 a:2 c:3 a:4 b:5 a:5 ");
  EXPECT_EQ(p.subscriberCount(), 0u);
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
}

}  // namespace

namespace {

// The deliveries in progress are kept per thread, across publishers: each publisher must see
// only its own. An inner publisher destroyed during its delivery stops that delivery alone; the
// outer publisher's delivery goes on to its remaining subscribers, and removals from the outer
// list during the inner delivery still wait for the outer delivery to end.
TEST(PublisherTest, DeliveriesOfDifferentPublishersNestIndependently) {
  std::string log;
  Recorder a("a", &log), b("b", &log), c("c", &log), x("x", &log), y("y", &log);
  Pelo::Publisher outer;
  auto inner = std::make_unique<Pelo::Publisher>();
  outer.subscriberAdd(&a);
  outer.subscriberAdd(&b);
  outer.subscriberAdd(&c);
  inner->subscriberAdd(&x);
  inner->subscriberAdd(&y);
  x.action = [&] {
    outer.subscriberRemove(&c);  // outer is delivering: c gets nothing more
    inner.reset();               // stops the inner delivery: y gets nothing
  };
  a.action = [&] { inner->publishChange(2); };
  outer.publishChange(1);
  EXPECT_EQ(log, "a:1 x:2 x:gone y:gone b:1 ");
  EXPECT_EQ(outer.subscriberCount(), 2u);
  log.clear();
  a.action = nullptr;
  outer.publishChange(3);
  EXPECT_EQ(log, "a:3 b:3 ");
}

// A removal from a list publisher that is not itself delivering (while another one is) takes
// effect at once, and a subscriber that leaves and comes back during a delivery of the same
// publisher gets only later changes.
TEST(PublisherTest, RemovalDuringAnotherPublishersDeliveryAndResubscription) {
  std::string log;
  Recorder a("a", &log), b("b", &log), s("s", &log);
  Pelo::Publisher delivering;
  Pelo::Publisher idle;
  idle.subscriberAdd(&a);
  idle.subscriberAdd(&b);
  delivering.subscriberAdd(&s);
  delivering.subscriberAdd(&a);
  s.action = [&] {
    idle.subscriberRemove(&a);
    EXPECT_EQ(idle.subscriberCount(), 1u);
    delivering.subscriberRemove(&a);
    delivering.subscriberAdd(&a);
  };
  delivering.publishChange(1);
  EXPECT_EQ(log, "s:1 ");
  log.clear();
  s.action = nullptr;
  delivering.publishChange(2);
  idle.publishChange(3);
  EXPECT_EQ(log, "s:2 a:2 b:3 ");
}

}  // namespace
