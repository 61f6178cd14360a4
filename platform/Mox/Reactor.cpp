#include "Mox/Reactor.h"

#include <algorithm>

namespace Mox {

void Entity::handleParent(Entity* /*parent*/) {}

// One subscription of a reactor to one publisher.
class Reactor::Subscription final : public Pelo::Subscriber {
 public:
  Subscription(Reactor* reactor, const Pelo::Publisher* publisher, Dispatch dispatch)
      : reactor_(reactor), publisher_(publisher), dispatch_(std::move(dispatch)) {
    publisher_->subscriberAdd(this, reactor_->active_ && !reactor_->zombie_);
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() {
    if (publisher_ != nullptr) publisher_->subscriberRemove(this);
  }

  void handleChange(const Pelo::Publisher& publisher, Pelo::AttrId attr,
                    const Pelo::Key& key) override {
    if (reactor_->zombie_) return;
    dispatch_(publisher, attr, key);
  }
  void handlePublisherDestroyed(const Pelo::Publisher& /*publisher*/) override {
    publisher_ = nullptr;
  }

  void activeIs(bool active) {
    if (publisher_ != nullptr) publisher_->subscriberActiveIs(this, active);
  }
  const Pelo::Publisher* publisher() const { return publisher_; }

 private:
  Reactor* reactor_;                  // not owned: owns this subscription
  const Pelo::Publisher* publisher_;  // not owned; null once it died
  Dispatch dispatch_;
};

Reactor::Reactor(Pelo::String name, Reactor* owner) : Entity(std::move(name)), owner_(owner) {
  if (owner_ != nullptr) owner_->nestedAdd(this);
}

Reactor::~Reactor() {
  zombieIs();
  for (Reactor* n : nested_) n->owner_ = nullptr;
  nested_.clear();
  if (owner_ != nullptr) owner_->nestedRemove(this);
  unsubscribeAll();
}

void Reactor::doCleanup() {}

void Reactor::nestedAdd(Reactor* nested) {
  nested->nestedIndex_ = nested_.size();
  nested_.push_back(nested);
  nested->active_ = active_;
  nested->zombie_ = zombie_;
}

void Reactor::nestedRemove(Reactor* nested) {
  // Order among nested reactors carries no meaning: swap with the last one.
  Reactor* last = nested_.back();
  nested_[nested->nestedIndex_] = last;
  last->nestedIndex_ = nested->nestedIndex_;
  nested_.pop_back();
}

void Reactor::hasNotificationActiveIs(bool active) {
  if (zombie_) active = false;
  active_ = active;
  for (auto& s : subscriptions_) s->activeIs(active);
  // Switching runs no handler, so the list cannot change under this loop.
  for (Reactor* n : nested_) n->hasNotificationActiveIs(active);
}

void Reactor::zombieIs() {
  if (zombie_) return;
  hasNotificationActiveIs(false);
  zombie_ = true;
  for (Reactor* n : nested_) n->zombieIs();
}

void Reactor::subscribe(const Pelo::Publisher& publisher, Dispatch dispatch) {
  subscriptions_.push_back(std::make_unique<Subscription>(this, &publisher, std::move(dispatch)));
}

void Reactor::unsubscribe(const Pelo::Publisher& publisher) {
  std::erase_if(subscriptions_, [&](const std::unique_ptr<Subscription>& s) {
    return s->publisher() == &publisher;
  });
}

void Reactor::unsubscribeAll() { subscriptions_.clear(); }

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
