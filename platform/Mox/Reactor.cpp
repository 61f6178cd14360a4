#include "Mox/Reactor.h"

namespace Mox {

void Entity::handleParent(Entity* /*parent*/) {}

void Reactor::Subscription::handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                                         const Pelo::Key& key) {
  if (reactor->zombie_) return;
  (reactor->*method)(publisher, attr, key);
}

void Reactor::Subscription::handlePublisherDestroyed(const Pelo::Publisher& /*publisher*/) {
  publisher = nullptr;
}

// A subscription dispatching to a function object (a lambda's captures), always
// on the heap.
class Reactor::FunctionSubscription final : public Reactor::Subscription {
 public:
  explicit FunctionSubscription(Dispatch dispatch) : dispatch_(std::move(dispatch)) {}

  void handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                    const Pelo::Key& key) override {
    if (reactor->zombie_) return;
    dispatch_(publisher, attr, key);
  }

 private:
  Dispatch dispatch_;
};

void Reactor::handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                           const Pelo::Key& key) {
  if (zombie_) return;
  (this->*firstMethod_)(publisher, attr, key);
}

void Reactor::handlePublisherDestroyed(const Pelo::Publisher& /*publisher*/) {
  firstPublisher_ = nullptr;
}

Reactor::Reactor(Pelo::String name, Reactor* owner) : Entity(std::move(name)), owner_(owner) {
  if (owner_ != nullptr) owner_->nestedAdd(this);
}

Reactor::~Reactor() {
  zombieIs();
  for (Reactor* n = firstNested_; n != nullptr;) {
    Reactor* next = n->nextNested_;
    n->owner_ = nullptr;
    n->nextNested_ = nullptr;
    n->prevNested_ = nullptr;
    n = next;
  }
  firstNested_ = nullptr;
  if (owner_ != nullptr) owner_->nestedRemove(this);
  unsubscribeAll();
}

void Reactor::doCleanup() {}

void Reactor::nestedAdd(Reactor* nested) {
  // Order among nested reactors carries no meaning: the newest goes first.
  nested->prevNested_ = nullptr;
  nested->nextNested_ = firstNested_;
  if (firstNested_ != nullptr) firstNested_->prevNested_ = nested;
  firstNested_ = nested;
  nested->active_ = active_;
  nested->zombie_ = zombie_;
}

void Reactor::nestedRemove(Reactor* nested) {
  if (nested->prevNested_ != nullptr) {
    nested->prevNested_->nextNested_ = nested->nextNested_;
  } else {
    firstNested_ = nested->nextNested_;
  }
  if (nested->nextNested_ != nullptr) nested->nextNested_->prevNested_ = nested->prevNested_;
  nested->nextNested_ = nullptr;
  nested->prevNested_ = nullptr;
}

void Reactor::hasNotificationActiveIs(bool active) {
  if (zombie_) active = false;
  active_ = active;
  if (firstPublisher_ != nullptr) firstPublisher_->subscriberActiveIs(this, active);
  for (Subscription* s = subscriptions_; s != nullptr; s = s->next) {
    if (s->publisher != nullptr) s->publisher->subscriberActiveIs(s, active);
  }
  // Switching runs no handler, so the lists cannot change under these loops.
  for (Reactor* n = firstNested_; n != nullptr; n = n->nextNested_) {
    n->hasNotificationActiveIs(active);
  }
}

void Reactor::zombieIs() {
  if (zombie_) return;
  hasNotificationActiveIs(false);
  zombie_ = true;
  for (Reactor* n = firstNested_; n != nullptr; n = n->nextNested_) n->zombieIs();
}

void Reactor::subscriptionAdd(Subscription* s, const Pelo::Publisher& publisher) {
  s->reactor = this;
  s->publisher = &publisher;
  try {
    publisher.subscriberAdd(s, active_ && !zombie_);
  } catch (...) {
    s->publisher = nullptr;
    subscriptionRelease(s);
    throw;
  }
  s->next = subscriptions_;
  subscriptions_ = s;
}

void Reactor::subscribe(const Pelo::Publisher& publisher, Dispatch dispatch) {
  subscriptionAdd(new FunctionSubscription(std::move(dispatch)), publisher);
}

void Reactor::subscribeMethod(const Pelo::Publisher& publisher, Method method) {
  if (firstMethod_ != nullptr) {
    auto* s = new Subscription();
    s->method = method;
    subscriptionAdd(s, publisher);
    return;
  }
  publisher.subscriberAdd(this, active_ && !zombie_);
  firstPublisher_ = &publisher;
  firstMethod_ = method;
}

void Reactor::subscriptionRelease(Subscription* s) {
  if (s->publisher != nullptr) s->publisher->subscriberRemove(s);
  delete s;
}

void Reactor::firstSubscriptionRelease() {
  if (firstPublisher_ != nullptr) firstPublisher_->subscriberRemove(this);
  firstPublisher_ = nullptr;
  firstMethod_ = nullptr;
}

void Reactor::unsubscribe(const Pelo::Publisher& publisher) {
  if (firstMethod_ != nullptr && firstPublisher_ == &publisher) firstSubscriptionRelease();
  Subscription** link = &subscriptions_;
  while (Subscription* s = *link) {
    if (s->publisher != &publisher) {
      link = &s->next;
      continue;
    }
    *link = s->next;
    subscriptionRelease(s);
  }
}

void Reactor::unsubscribeAll() {
  if (firstMethod_ != nullptr) firstSubscriptionRelease();
  while (Subscription* s = subscriptions_) {
    subscriptions_ = s->next;
    subscriptionRelease(s);
  }
}

void Reactor::unwindConstruction() noexcept {
  markedForDeletionIs();
  try {
    doCleanup();
  } catch (...) {  // NOLINT(bugprone-empty-catch): the first failure goes on
  }
  zombieIs();
}

void Reactor::handleZeroReferences() {
  doCleanup();
  zombieIs();
  delete this;
}

}  // namespace Mox
