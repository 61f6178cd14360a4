#include "Mox/Reactor.h"

#include <gtest/gtest.h>

#include <string>

#include "Mox/ChildCollection.h"
#include "Mox/Collection.h"

namespace {

// Every record and state machine is an entity: with no fields of its own it
// holds a vptr, the count and flag, the publisher and the name, no padding.
static_assert(sizeof(Mox::Entity) <= 32);
static_assert(sizeof(Pelo::Publisher) == sizeof(void*));
// A reactor adds its subscriber vptr, its first subscription (publisher and function), one pointer
// to what few reactors have (further subscriptions, nesting) and two flags.
static_assert(sizeof(Mox::Reactor) <= sizeof(Mox::Entity) + 40);

// An input entity with a scalar attribute and a keyed collection.
class Input : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId value = 1;
    static constexpr Pelo::AttrId item = 2;
  };
  void valueIs(int v) {
    value_ = v;
    publishChange(Attr::value);
  }
  int value() const { return value_; }
  void itemIs(const Pelo::String& k) {
    items_.is(k, true);
    publishChange(Attr::item, k);
  }
  void itemDel(const Pelo::String& k) {
    if (items_.del(k)) publishChange(Attr::item, k);
  }
  const Mox::Collection<Pelo::String, bool>& items() const { return items_; }

 private:
  int value_ = 0;
  Mox::Collection<Pelo::String, bool> items_;
};

// A child state machine: follows the `value` attribute of an input and logs
// what happens to it.
class ChildSm : public Mox::Reactor {
 public:
  ChildSm(Pelo::String name, Mox::Ptr<Input> input, std::string* log)
      : Mox::Reactor(name), input_(std::move(input)), log_(log) {
    subscribe<&ChildSm::inputDispatch>(*input_);
    *log_ += "ctor:" + nameString().str() + " ";
    input_->valueIs(input_->value());  // a change while parked: not delivered
  }
  ~ChildSm() override { *log_ += "dtor:" + nameString().str() + " "; }

  void inputDispatch(const Pelo::Publisher&, Pelo::AttrId attr, const Pelo::Key&) {
    if (attr != Input::Attr::value || isMarkedForDeletion()) return;
    *log_ += "value:" + nameString().str() + " ";
    if (onValue) onValue();
  }
  std::function<void()> onValue;

 protected:
  void doCleanup() override { *log_ += "cleanup:" + nameString().str() + " "; }

 private:
  Mox::Ptr<Input> input_;
  std::string* log_;
};

// A parent state machine: one child per item of its input.
class ParentSm : public Mox::Reactor {
 public:
  ParentSm(Mox::Ptr<Input> input, std::string* log) : input_(std::move(input)), log_(log) {
    subscribe<&ParentSm::inputDispatch>(*input_);
    for (const auto& [name, present] : input_->items()) handleItem(name);
  }
  ~ParentSm() override { *log_ += "dtor:parent "; }

  void inputDispatch(const Pelo::Publisher&, Pelo::AttrId attr, const Pelo::Key& key) {
    if (attr != Input::Attr::item || isMarkedForDeletion()) return;
    handleItem(key.get<Pelo::String>());
  }
  void handleItem(const Pelo::String& name) {
    if (input_->items().contains(name)) {
      childSm.is(name, name, input_, log_);
    } else {
      childSm.del(name);
    }
  }

  Mox::ChildCollection<Pelo::String, ChildSm, Pelo::String, Mox::Ptr<Input>, std::string*> childSm;

 protected:
  void doCleanup() override { *log_ += "cleanup:parent "; }

 private:
  Mox::Ptr<Input> input_;
  std::string* log_;
};

class ReactorTest : public testing::Test {
 protected:
  void TearDown() override {
    input.reset();
    EXPECT_EQ(Mox::PtrInterface::instances(), instancesBefore_);
  }

  std::int64_t instancesBefore_ = Mox::PtrInterface::instances();
  std::string log;
  Mox::Ptr<Input> input = Mox::makePtr<Input>();
};

TEST_F(ReactorTest, ChangesMadeDuringConstructionAreNotFedBack) {
  auto child = Mox::reactorIs<ChildSm>("c", input, &log);
  EXPECT_EQ(log, "ctor:c ");
  EXPECT_TRUE(child->hasNotificationActive());
  input->valueIs(1);
  EXPECT_EQ(log, "ctor:c value:c ");
}

TEST_F(ReactorTest, NotificationsCanBeSwitchedOff) {
  auto child = Mox::reactorIs<ChildSm>("c", input, &log);
  child->hasNotificationActiveIs(false);
  input->valueIs(1);
  child->hasNotificationActiveIs(true);
  input->valueIs(2);
  EXPECT_EQ(log, "ctor:c value:c ");
}

TEST_F(ReactorTest, ChildrenFollowTheInputAndCleanUpBeforeTheyDie) {
  input->itemIs("b");
  auto parent = Mox::reactorIs<ParentSm>(input, &log);
  input->itemIs("a");
  // a's constructor changes the input: b, already live, hears it; a does not.
  EXPECT_EQ(log, "ctor:b ctor:a value:b ");
  EXPECT_EQ(parent->childSm.size(), 2u);
  log.clear();
  input->itemDel("b");
  EXPECT_EQ(log, "cleanup:b dtor:b ");
  log.clear();
  input->valueIs(5);
  EXPECT_EQ(log, "value:a ");
}

TEST_F(ReactorTest, ParentCleanUpRunsBeforeChildrenWhichDieInKeyOrder) {
  input->itemIs("b");
  input->itemIs("a");
  auto parent = Mox::reactorIs<ParentSm>(input, &log);
  log.clear();
  parent.reset();
  EXPECT_EQ(log, "cleanup:parent dtor:parent cleanup:a dtor:a cleanup:b dtor:b ");
}

TEST_F(ReactorTest, SameArgumentsKeepTheChildAndOtherArgumentsThrow) {
  input->itemIs("a");
  auto parent = Mox::reactorIs<ParentSm>(input, &log);
  auto first = parent->childSm.find("a");
  input->itemIs("a");  // a change of an element that is still there
  EXPECT_EQ(parent->childSm.find("a"), first);
  auto otherInput = Mox::makePtr<Input>();
  EXPECT_THROW(parent->childSm.is("a", "a", otherInput, &log),
               Mox::MutatorReinstantiatingException);
  EXPECT_EQ(parent->childSm.find("a"), first);
  EXPECT_EQ(log, "ctor:a ");
}

TEST_F(ReactorTest, NoHandlerRunsAfterCleanUpEvenWithADeliveryUnderWay) {
  auto first = Mox::reactorIs<ChildSm>("first", input, &log);
  auto second = Mox::reactorIs<ChildSm>("second", input, &log);
  // The first handler drops the last reference to the second reactor while the
  // change is on its way to it.
  first->onValue = [&] { second.reset(); };
  log.clear();
  input->valueIs(1);
  EXPECT_EQ(log, "value:first cleanup:second dtor:second ");
}

TEST_F(ReactorTest, HandlerMayChangeItsInputReentrantly) {
  auto child = Mox::reactorIs<ChildSm>("c", input, &log);
  int depth = 0;
  child->onValue = [&] {
    if (++depth < 3) input->valueIs(depth);
  };
  log.clear();
  input->valueIs(0);
  EXPECT_EQ(log, "value:c value:c value:c ");
}

TEST_F(ReactorTest, ReactorThatOutlivesItsInputIsToldAndUnsubscribesCleanly) {
  auto child = Mox::reactorIs<ChildSm>("c", Mox::makePtr<Input>(), &log);
  child.reset();  // the child held the only reference to its input
  EXPECT_EQ(log, "ctor:c cleanup:c dtor:c ");
}

// A reactor nested in an owner, following an input on the owner's behalf.
class NestedSm : public Mox::Reactor {
 public:
  NestedSm(Mox::Reactor* owner, const Input& input, std::string* log)
      : Mox::Reactor("nested", owner), log_(log) {
    subscribe(input, [this](const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) {
      *log_ += "nested ";
    });
  }

 private:
  std::string* log_;
};

class OwnerSm : public Mox::Reactor {
 public:
  OwnerSm(Mox::Ptr<Input> input, std::string* log) : input_(std::move(input)), log_(log) {
    nested = Mox::makePtr<NestedSm>(this, *input_, log_);
  }
  void addLateNested() { late = Mox::makePtr<NestedSm>(this, *input_, log_); }
  void die() { zombieIs(); }

  Mox::Ptr<NestedSm> nested;
  Mox::Ptr<NestedSm> late;

 private:
  Mox::Ptr<Input> input_;
  std::string* log_;
};

TEST_F(ReactorTest, NestedReactorsSwitchAndDieWithTheirOwner) {
  auto owner = Mox::reactorIs<OwnerSm>(input, &log);
  input->valueIs(1);
  EXPECT_EQ(log, "nested ");
  owner->addLateNested();  // inherits the owner's switched-on state
  log.clear();
  input->valueIs(2);
  EXPECT_EQ(log, "nested nested ");
  owner->hasNotificationActiveIs(false);
  log.clear();
  input->valueIs(3);
  EXPECT_EQ(log, "");
  owner->hasNotificationActiveIs(true);
  owner->die();
  owner->hasNotificationActiveIs(true);  // a zombie stays off
  input->valueIs(4);
  EXPECT_EQ(log, "");
  EXPECT_TRUE(owner->nested->isZombie());
}

TEST_F(ReactorTest, ConstructorThatThrowsLeavesNoSubscription) {
  class Throwing : public Mox::Reactor {
   public:
    explicit Throwing(const Input& input) {
      subscribe(input, [](const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) {});
      throw std::runtime_error("handleInitialized failed");
    }
  };
  EXPECT_THROW(Mox::reactorIs<Throwing>(*input), std::runtime_error);
  EXPECT_EQ(input->subscriberCount(), 0u);
}

// A reactor following two inputs through member functions and one of them
// again through a lambda.
class MultiSm : public Mox::Reactor {
 public:
  MultiSm(const Input& a, const Input& b, std::string* log) : a_(a), log_(log) {
    subscribe<&MultiSm::onA>(a);
    subscribe<&MultiSm::onB>(b);
    subscribe(a,
              [log](const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) { *log += "lambda "; });
  }
  void dropA() { unsubscribe(a_); }
  void followA() { subscribe<&MultiSm::onA>(a_); }

 private:
  void onA(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) { *log_ += "a "; }
  void onB(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&) { *log_ += "b "; }

  const Input& a_;
  std::string* log_;
};

TEST_F(ReactorTest, EverySubscriptionDispatchesUntilRemovedAndARemovedOneCanBeMadeAgain) {
  auto other = Mox::makePtr<Input>();
  auto sm = Mox::reactorIs<MultiSm>(*input, *other, &log);
  input->valueIs(1);
  other->valueIs(1);
  EXPECT_EQ(log, "a lambda b ");
  sm->dropA();  // both subscriptions to the input go
  EXPECT_EQ(input->subscriberCount(), 0u);
  log.clear();
  input->valueIs(2);
  other->valueIs(2);
  EXPECT_EQ(log, "b ");
  sm->followA();
  input->valueIs(3);
  EXPECT_EQ(log, "b a ");
  sm.reset();
  EXPECT_EQ(input->subscriberCount(), 0u);
  EXPECT_EQ(other->subscriberCount(), 0u);
}

TEST_F(ReactorTest, NestedReactorThatDiesFirstLeavesTheOthersWithTheirOwner) {
  auto owner = Mox::reactorIs<OwnerSm>(input, &log);
  owner->addLateNested();
  owner->late.reset();  // the newest goes
  owner->addLateNested();
  owner->nested.reset();  // then the oldest
  owner->hasNotificationActiveIs(false);
  input->valueIs(1);
  EXPECT_EQ(log, "");
  owner->hasNotificationActiveIs(true);
  input->valueIs(2);
  EXPECT_EQ(log, "nested ");
  owner->die();
  EXPECT_TRUE(owner->late->isZombie());
}

// A child that tells whether it was made with given arguments, counting the
// questions.
class AnsweringSm : public Mox::Reactor {
 public:
  AnsweringSm(int id, int* asked) : id_(id), asked_(asked) {}
  bool constructedWith(int id, int* asked) const {
    ++*asked_;
    return id == id_ && asked == asked_;
  }

 private:
  int id_;
  int* asked_;
};

TEST_F(ReactorTest, ChildThatAnswersForItsArgumentsIsAskedOnReCreation) {
  Mox::ChildCollection<int, AnsweringSm, int, int*> children;
  int asked = 0;
  auto first = children.is(1, 7, &asked);
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(children.is(1, 7, &asked), first);
  EXPECT_EQ(asked, 1);
  try {
    children.is(1, 8, &asked);
    ADD_FAILURE() << "no exception";
  } catch (const Mox::MutatorReinstantiatingException& e) {
    EXPECT_STREQ(e.what(),
                 "child re-created under an existing key with different constructor arguments");
  }
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(children.find(1), first);
}

}  // namespace
