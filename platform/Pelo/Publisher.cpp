#include "Pelo/Publisher.h"

#include <algorithm>

namespace Pelo {

void Subscriber::handlePublisherDestroyed(const Publisher& /*publisher*/) {}

Publisher::~Publisher() {
  for (Delivery* d = deliveries_; d != nullptr; d = d->outer) d->publisherDestroyed = true;
  // Take the list first: a subscriber told of the destruction must not find
  // itself still subscribed.
  std::vector<Entry> entries;
  entries.swap(entries_);
  for (const Entry& e : entries) {
    if (e.subscriber != nullptr) e.subscriber->handlePublisherDestroyed(*this);
  }
}

Publisher::Entry* Publisher::entryFor(const Subscriber* subscriber) const {
  auto it = std::find_if(entries_.begin(), entries_.end(),
                         [subscriber](const Entry& e) { return e.subscriber == subscriber; });
  return it == entries_.end() ? nullptr : &*it;
}

void Publisher::subscriberAdd(Subscriber* subscriber, bool active) const {
  if (subscriber == nullptr) return;
  if (Entry* e = entryFor(subscriber)) {
    e->active = active;
    return;
  }
  entries_.push_back(Entry{subscriber, active});
}

void Publisher::subscriberActiveIs(Subscriber* subscriber, bool active) const {
  if (Entry* e = entryFor(subscriber)) e->active = active;
}

void Publisher::subscriberRemove(Subscriber* subscriber) const {
  Entry* e = entryFor(subscriber);
  if (e == nullptr) return;
  if (deliveries_ != nullptr) {
    // Keep positions stable for the deliveries in progress.
    e->subscriber = nullptr;
    needsCompaction_ = true;
    return;
  }
  entries_.erase(entries_.begin() + (e - entries_.data()));
}

std::size_t Publisher::subscriberCount() const {
  return static_cast<std::size_t>(std::count_if(
      entries_.begin(), entries_.end(), [](const Entry& e) { return e.subscriber != nullptr; }));
}

void Publisher::compact() const {
  std::erase_if(entries_, [](const Entry& e) { return e.subscriber == nullptr; });
  needsCompaction_ = false;
}

void Publisher::publishChange(AttrId attr, const Key& key) const {
  // Unlinks this delivery on every way out, exceptions included, unless the
  // publisher died during it.
  struct Guard {
    const Publisher& publisher;
    Delivery delivery;
    ~Guard() {
      if (delivery.publisherDestroyed) return;
      publisher.deliveries_ = delivery.outer;
      if (publisher.deliveries_ == nullptr && publisher.needsCompaction_) publisher.compact();
    }
  } guard{*this, Delivery{deliveries_, false}};
  deliveries_ = &guard.delivery;
  // Subscribers added during this delivery sit beyond `count` and are skipped.
  const std::size_t count = entries_.size();
  for (std::size_t i = 0; i < count; ++i) {
    // Re-read the entry each time: the vector may have grown (and moved) and the
    // entry may have been removed or parked by an earlier subscriber.
    const Entry e = entries_[i];
    if (e.subscriber == nullptr || !e.active) continue;
    e.subscriber->handleChange(*this, attr, key);
    if (guard.delivery.publisherDestroyed) return;  // `this` is gone: touch nothing
  }
}

}  // namespace Pelo
