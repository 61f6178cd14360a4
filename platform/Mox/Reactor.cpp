#include "Mox/Reactor.h"

namespace Mox {

void Entity::handleParent(Entity* /*parent*/) {}

void Reactor::Subscription::handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                                         const Pelo::Key& key) {
  if (reactor->zombie_) return;
  method(*reactor, publisher, attr, key);
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
  firstMethod_(*this, publisher, attr, key);
}

void Reactor::handlePublisherDestroyed(const Pelo::Publisher& /*publisher*/) {
  firstPublisher_ = nullptr;
}

Reactor::Reactor(Pelo::String name, Reactor* owner) : Entity(std::move(name)) {
  if (owner != nullptr) {
    nesting().owner = owner;
    owner->nestedAdd(this);
  }
}

Reactor::~Reactor() {
  zombieIs();
  if (nesting_) {
    for (Reactor* n = nesting_->firstNested; n != nullptr;) {
      Nesting& nn = *n->nesting_;
      n = nn.nextNested;
      nn.owner = nullptr;
      nn.nextNested = nullptr;
      nn.prevNested = nullptr;
    }
    nesting_->firstNested = nullptr;
    if (nesting_->owner != nullptr) nesting_->owner->nestedRemove(this);
  }
  unsubscribeAll();
}

Reactor::Nesting& Reactor::nesting() {
  if (!nesting_) nesting_ = std::make_unique<Nesting>();
  return *nesting_;
}

void Reactor::doCleanup() {}

void Reactor::nestedAdd(Reactor* nested) {
  // Order among nested reactors carries no meaning: the newest goes first.
  Nesting& own = nesting();
  Nesting& n = *nested->nesting_;  // made by the nested reactor's constructor
  n.prevNested = nullptr;
  n.nextNested = own.firstNested;
  if (own.firstNested != nullptr) own.firstNested->nesting_->prevNested = nested;
  own.firstNested = nested;
  nested->active_ = active_;
  nested->zombie_ = zombie_;
}

void Reactor::nestedRemove(Reactor* nested) {
  Nesting& n = *nested->nesting_;
  if (n.prevNested != nullptr) {
    n.prevNested->nesting_->nextNested = n.nextNested;
  } else {
    nesting_->firstNested = n.nextNested;
  }
  if (n.nextNested != nullptr) n.nextNested->nesting_->prevNested = n.prevNested;
  n.nextNested = nullptr;
  n.prevNested = nullptr;
}

void Reactor::hasNotificationActiveIs(bool active) {
  if (zombie_) active = false;
  active_ = active;
  if (firstPublisher_ != nullptr) firstPublisher_->subscriberActiveIs(this, active);
  for (Subscription* s = subscriptions(); s != nullptr; s = s->next) {
    if (s->publisher != nullptr) s->publisher->subscriberActiveIs(s, active);
  }
  // Switching runs no handler, so the lists cannot change under these loops.
  for (Reactor* n = firstNested(); n != nullptr; n = nextNested(n)) {
    n->hasNotificationActiveIs(active);
  }
}

void Reactor::zombieIs() {
  if (zombie_) return;
  hasNotificationActiveIs(false);
  zombie_ = true;
  for (Reactor* n = firstNested(); n != nullptr; n = nextNested(n)) n->zombieIs();
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
  s->next = nesting().subscriptions;
  nesting().subscriptions = s;
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
  if (!nesting_) return;
  Subscription** link = &nesting_->subscriptions;
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
  while (Subscription* s = subscriptions()) {
    nesting_->subscriptions = s->next;
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
