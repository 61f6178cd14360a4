#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "Mox/Entity.h"

namespace Mox {

// A state machine of the framework: an entity that follows other publishers
// through subscriptions and reacts to their changes in dispatch functions.
//
// Life cycle:
//  - Construction: the subscriptions made in the constructor are parked
//    (notifications off) so that changes made while the constructor scans its
//    inputs are not fed back to it. The creator switches them on with
//    hasNotificationActiveIs(true) once the constructor has returned
//    (reactorIs does it).
//  - Destruction, when the last reference goes: the object is marked for
//    deletion, doCleanup() runs, the reactor and every reactor nested in it
//    become zombies (no dispatch function of them runs again, even for a change
//    whose delivery is already under way), then the object is deleted: the
//    derived destructors clear its collections (destroying its children, which
//    go through the same steps), and the subscriptions are removed last.
//
// A nested reactor (created with an owner) follows one input on behalf of its
// owner; it is switched on and off and turned into a zombie along with it.
//
// The reactor itself receives the changes of its first subscription made with
// a member function; further subscriptions are small objects of their own.
class Reactor : public Entity, private Pelo::Subscriber {
 public:
  using Dispatch = std::function<void(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&)>;

  // Switches every subscription of this reactor and of its nested reactors on
  // or off. A zombie stays off.
  void hasNotificationActiveIs(bool active);
  bool hasNotificationActive() const { return active_; }
  bool isZombie() const { return zombie_; }

  // The reactor this one is nested in, or null.
  Reactor* owner() const { return nesting_ ? nesting_->owner : nullptr; }

 protected:
  // `owner`, when given, must outlive this reactor or turn it into a zombie
  // first (its destructor does).
  explicit Reactor(Pelo::String name = Pelo::String(), Reactor* owner = nullptr);
  ~Reactor() override;

  // The state machine's own clean-up: releases what it holds outside itself
  // (hardware objects, status entries, registrations). Runs once, first in the
  // destruction, while the object is still whole.
  virtual void doCleanup();

  // Turns this reactor and its nested reactors into zombies; idempotent.
  void zombieIs();

  // Takes down a reactor whose constructor failed: marks it for deletion, runs
  // its doCleanup() and turns it into a zombie, as its destruction would. A
  // derived constructor calls it when its scan of the inputs throws, then
  // undoes the rest of what its destructor would undo (registrations with
  // other objects) and rethrows, so that nothing outside keeps a pointer to
  // the object the exception leaves behind. A failure inside doCleanup() is
  // dropped: the first failure is the one that goes on.
  void unwindConstruction() noexcept;
  // The last step of a constructor: runs `initialize` (the scan of the inputs); should it throw,
  // unwinds the construction, runs `teardown` (what the destructor undoes besides doCleanup)
  // and lets the exception go on.
  template <class Self>
  void initializeOrUnwind(Self* self, void (Self::*initialize)(), void (Self::*teardown)()) {
    try {
      (self->*initialize)();
    } catch (...) {
      unwindConstruction();
      (self->*teardown)();
      throw;
    }
  }

  // Subscribes `dispatch` to the changes of `publisher`. The subscription is
  // active while this reactor's notifications are on. The publisher must
  // outlive the subscription or tell it when it dies (every Publisher does).
  void subscribe(const Pelo::Publisher& publisher, Dispatch dispatch);
  // The same with a member function of the reactor, named at compile time
  // (`subscribe<&Self::dispatch>(publisher)`) and kept as one plain function
  // pointer: the first such subscription of a reactor costs no allocation.
  template <auto dispatch>
  void subscribe(const Pelo::Publisher& publisher) {
    using Self = typename MemberOf<decltype(dispatch)>::Class;
    static_assert(std::is_base_of_v<Reactor, Self>, "dispatch must be a member of a reactor");
    subscribeMethod(publisher, &dispatchTo<Self, dispatch>);
  }
  // Removes this reactor's subscriptions to `publisher`; no-op when there is none.
  void unsubscribe(const Pelo::Publisher& publisher);
  void unsubscribeAll();

  void handleZeroReferences() override;

 private:
  // Calls a member function of the reactor's class; made by dispatchTo.
  using Method = void (*)(Reactor&, const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&);
  template <class M>
  struct MemberOf;
  template <class C>
  struct MemberOf<void (C::*)(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&)> {
    using Class = C;
  };
  template <class Self,
            void (Self::*dispatch)(const Pelo::Publisher&, Pelo::AttrId, const Pelo::Key&)>
  static void dispatchTo(Reactor& reactor, const Pelo::Publisher& publisher, Pelo::AttrId attr,
                         const Pelo::Key& key) {
    (static_cast<Self&>(reactor).*dispatch)(publisher, attr, key);
  }

  // A subscription beyond the first: one object per subscription, dispatching
  // to a member function, linked in a list from `subscriptions()`.
  class Subscription : public Pelo::Subscriber {
   public:
    Subscription() = default;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    virtual ~Subscription() = default;

    void handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                      const Pelo::Key& key) override;
    void handlePublisherDestroyed(const Pelo::Publisher& publisher) override;

    Reactor* reactor = nullptr;
    const Pelo::Publisher* publisher = nullptr;  // not owned; null once it died
    Subscription* next = nullptr;
    Method method = nullptr;
  };
  class FunctionSubscription;

  // The first subscription, received by the reactor itself.
  void handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                    const Pelo::Key& key) override;
  void handlePublisherDestroyed(const Pelo::Publisher& publisher) override;

  void subscribeMethod(const Pelo::Publisher& publisher, Method method);
  void subscriptionAdd(Subscription* s, const Pelo::Publisher& publisher);
  // Takes `s` off its publisher and deletes it; `s` must be unlinked.
  void subscriptionRelease(Subscription* s);
  // Takes the first subscription off its publisher and frees its place.
  void firstSubscriptionRelease();
  void nestedAdd(Reactor* nested);
  void nestedRemove(Reactor* nested);

  const Pelo::Publisher* firstPublisher_ = nullptr;  // not owned; null once it died
  Method firstMethod_ = nullptr;                     // null while there is no first subscription
  // What few reactors have: subscriptions beyond the first, and where this
  // reactor stands among nested reactors: its owner, its siblings (the owner's
  // other nested reactors) and its own nested reactors, none owned (each
  // unlinks itself when it dies). Made for the reactors that have any of them;
  // the others carry only the null pointer.
  struct Nesting {
    Subscription* subscriptions = nullptr;  // the others, newest first
    Reactor* owner = nullptr;
    Reactor* firstNested = nullptr;
    Reactor* nextNested = nullptr;
    Reactor* prevNested = nullptr;
  };
  Nesting& nesting();
  Reactor* firstNested() const { return nesting_ ? nesting_->firstNested : nullptr; }
  Subscription* subscriptions() const { return nesting_ ? nesting_->subscriptions : nullptr; }
  static Reactor* nextNested(const Reactor* r) { return r->nesting_->nextNested; }

  std::unique_ptr<Nesting> nesting_;
  bool active_ = false;
  bool zombie_ = false;
};

// Creates a reactor the way an owner's `...Is` operation does: allocates and
// constructs it (which runs its handleInitialized), then switches its
// notifications on.
template <class T, class... Args>
Ptr<T> reactorIs(Args&&... args) {
  Ptr<T> r(new T(std::forward<Args>(args)...));
  r->hasNotificationActiveIs(true);
  return r;
}

}  // namespace Mox
