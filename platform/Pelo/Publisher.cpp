#include "Pelo/Publisher.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace Pelo {

// The subscribers of a publisher that has had two at once.
struct Publisher::List {
  static_assert(alignof(std::vector<Entry>) > (kActive | kList));

  std::vector<Entry> entries;
  // Some entries were removed during a delivery and await the end of the last one.
  bool needsCompaction = false;
};

// One delivery to a list in progress; the deliveries of a thread are linked from the innermost
// outwards, whatever their publishers.
struct Publisher::Delivery {
  Delivery* outer;
  const Publisher* publisher;
  bool publisherDestroyed;
};

thread_local constinit Publisher::Delivery* Publisher::deliveriesInProgress = nullptr;

void Subscriber::handlePublisherDestroyed(const Publisher& /*publisher*/) {}

Publisher::~Publisher() {
  for (Delivery* d = deliveriesInProgress; d != nullptr; d = d->outer) {
    if (d->publisher == this) d->publisherDestroyed = true;
  }
  // Take the subscribers first: a subscriber told of the destruction must not
  // find itself still subscribed.
  const std::uintptr_t subscribers = subscribers_;
  subscribers_ = 0;
  if ((subscribers & kList) == 0) {
    if (subscribers != 0) subscriberOf(subscribers)->handlePublisherDestroyed(*this);
  } else {
    const std::unique_ptr<List> taken(reinterpret_cast<List*>(subscribers & ~kList));
    for (const Entry e : taken->entries) {
      if (e != 0) subscriberOf(e)->handlePublisherDestroyed(*this);
    }
  }
  // A subscriber that subscribed again while being told is dropped silently.
  delete list();
}

Publisher::Entry* Publisher::entryFor(const Subscriber* subscriber) const {
  // A null subscriber would match the entries removed during a delivery.
  if (subscriber == nullptr) return nullptr;
  if (List* l = list()) {
    auto it = std::find_if(l->entries.begin(), l->entries.end(),
                           [subscriber](Entry e) { return subscriberOf(e) == subscriber; });
    return it == l->entries.end() ? nullptr : &*it;
  }
  return subscribers_ != 0 && subscriberOf(subscribers_) == subscriber ? &subscribers_ : nullptr;
}

void Publisher::subscriberAdd(Subscriber* subscriber, bool active) const {
  if (subscriber == nullptr) return;
  if (Entry* e = entryFor(subscriber)) {
    *e = (*e & ~kActive) | (active ? kActive : 0);
    return;
  }
  const Entry added = reinterpret_cast<Entry>(subscriber) | (active ? kActive : 0);
  if (subscribers_ == 0) {
    subscribers_ = added;
    return;
  }
  if (List* l = list()) {
    l->entries.push_back(added);
    return;
  }
  // The second subscriber: the inline one moves to a list, keeping its place.
  auto l = std::make_unique<List>();
  l->entries.reserve(2);
  l->entries.push_back(subscribers_);
  l->entries.push_back(added);
  subscribers_ = reinterpret_cast<std::uintptr_t>(l.release()) | kList;
}

void Publisher::subscriberActiveIs(Subscriber* subscriber, bool active) const {
  if (Entry* e = entryFor(subscriber)) *e = (*e & ~kActive) | (active ? kActive : 0);
}

void Publisher::subscriberRemove(Subscriber* subscriber) const {
  List* l = list();
  if (l == nullptr) {
    // A delivery in progress holds its own copy of the single entry.
    if (entryFor(subscriber) != nullptr) subscribers_ = 0;
    return;
  }
  Entry* e = entryFor(subscriber);
  if (e == nullptr) return;
  if (delivering()) {
    // Keep positions stable for the deliveries in progress.
    *e = 0;
    l->needsCompaction = true;
    return;
  }
  l->entries.erase(l->entries.begin() + (e - l->entries.data()));
  compact();
}

std::size_t Publisher::subscriberCount() const {
  if (List* l = list()) {
    return static_cast<std::size_t>(
        std::count_if(l->entries.begin(), l->entries.end(), [](Entry e) { return e != 0; }));
  }
  return subscribers_ != 0 ? 1 : 0;
}

// Outside any delivery: drops the entries removed during deliveries and goes
// back to the inline form when one subscriber or none is left.
void Publisher::compact() const {
  List* l = list();
  std::erase(l->entries, Entry{0});
  l->needsCompaction = false;
  if (l->entries.size() > 1) return;
  subscribers_ = l->entries.empty() ? 0 : l->entries.front();
  delete l;
}

bool Publisher::delivering() const {
  for (const Delivery* d = deliveriesInProgress; d != nullptr; d = d->outer) {
    if (d->publisher == this) return true;
  }
  return false;
}

void Publisher::deliver(AttrId attr, const Key& key) const {
  if (List* l = list()) {
    deliverToList(l, attr, key);
    return;
  }
  // One subscriber: whatever it does to the subscribers (even destroying the publisher),
  // nobody else is due this change and nothing here is touched again, so the delivery need
  // not be recorded.
  if ((subscribers_ & kActive) != 0) subscriberOf(subscribers_)->handleChange(*this, attr, key);
}

void Publisher::deliverToList(List* l, AttrId attr, const Key& key) const {
  // Records this delivery for the destructor and the mutators, and takes it off again on every
  // way out, exceptions included; the publisher is touched then only if it is still alive.
  struct Guard {
    Delivery delivery;
    ~Guard() {
      deliveriesInProgress = delivery.outer;
      if (delivery.publisherDestroyed) return;
      const Publisher& publisher = *delivery.publisher;
      if (List* list = publisher.list();
          list != nullptr && list->needsCompaction && !publisher.delivering()) {
        publisher.compact();
      }
    }
  } guard{Delivery{deliveriesInProgress, this, false}};
  deliveriesInProgress = &guard.delivery;
  // The list stays put until the last delivery ends. Subscribers added during
  // this delivery sit beyond `count` and are skipped.
  const std::size_t count = l->entries.size();
  for (std::size_t i = 0; i < count; ++i) {
    // Re-read the entry each time: the vector may have grown (and moved) and the
    // entry may have been removed or parked by an earlier subscriber.
    const Entry e = l->entries[i];
    if ((e & kActive) == 0) continue;
    subscriberOf(e)->handleChange(*this, attr, key);
    if (guard.delivery.publisherDestroyed) return;  // `this` is gone: touch nothing
  }
}

}  // namespace Pelo
