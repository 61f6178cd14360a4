#pragma once

#include <cstddef>
#include <cstdint>

#include "Pelo/Key.h"

namespace Pelo {

class Publisher;

// Receives the changes of the publishers it is subscribed to.
class Subscriber {
 public:
  // One change of `publisher`: attribute `attr`, with the collection key of the
  // changed element (empty for a scalar attribute). Called synchronously from
  // Publisher::publishChange, on the publishing thread.
  virtual void handleChange(const Publisher& publisher, AttrId attr, const Key& key) = 0;

  // `publisher` is being destroyed while this subscriber is still subscribed; the
  // subscription is gone when this returns. The default does nothing.
  virtual void handlePublisherDestroyed(const Publisher& publisher);

 protected:
  Subscriber() = default;
  Subscriber(const Subscriber&) = default;
  Subscriber& operator=(const Subscriber&) = default;
  ~Subscriber() = default;
};

// A list of subscribers that are told of every change, synchronously, in the
// order in which they subscribed.
//
// The list may change while a change is being delivered (re-entrancy):
//  - a subscriber removed during delivery (itself or another) receives nothing
//    more, including the rest of the current change;
//  - a subscriber added during delivery receives only later changes;
//  - a subscriber made inactive during delivery receives nothing more until it
//    is made active again;
//  - the publisher may be destroyed during delivery: delivery stops at once.
// A change published from inside a delivery (nested) is delivered completely
// before the outer delivery goes on.
//
// Every entity is a publisher and most have no subscriber or one, so a
// publisher is one word: the subscribers (none, one held inline, or a list on
// the heap). The deliveries in progress, which only a publisher with a list
// needs to know of, are kept per thread outside the publishers. The destructor
// is not virtual: nothing is deleted through a Publisher*.
class Publisher {
 public:
  Publisher() noexcept = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  // Tells every remaining subscriber (handlePublisherDestroyed) and stops any
  // delivery in progress.
  ~Publisher();

  // Subscribing is not a change of the publisher, so a const publisher (an input
  // entity) can be subscribed to.
  // Subscribes `subscriber`; `active` false parks it (it receives nothing) until
  // subscriberActiveIs(subscriber, true). Subscribing twice is a no-op apart
  // from setting the flag.
  void subscriberAdd(Subscriber* subscriber, bool active = true) const;
  // Switches delivery to `subscriber` on or off; no-op when not subscribed.
  void subscriberActiveIs(Subscriber* subscriber, bool active) const;
  // Unsubscribes `subscriber`; no-op when not subscribed.
  void subscriberRemove(Subscriber* subscriber) const;

  std::size_t subscriberCount() const;

  // Delivers (attr, key) to every active subscriber.
  void publishChange(AttrId attr, const Key& key = Key()) const {
    if (subscribers_ != 0) deliver(attr, key);
  }

 private:
  // A subscription is one word: the subscriber's address with kActive set
  // while it receives changes; 0 in a list marks an entry removed during a
  // delivery (positions stay stable until the last delivery ends).
  using Entry = std::uintptr_t;
  static constexpr Entry kActive = 1;
  // Set in subscribers_ when it points at a List rather than one subscriber.
  static constexpr std::uintptr_t kList = 2;
  static_assert(alignof(Subscriber) > (kActive | kList));
  struct List;
  struct Delivery;
  // This thread's deliveries to lists in progress, innermost first.
  static thread_local Delivery* deliveriesInProgress;

  static Subscriber* subscriberOf(Entry e) {
    return reinterpret_cast<Subscriber*>(e & ~(kActive | kList));
  }
  List* list() const {
    return (subscribers_ & kList) != 0 ? reinterpret_cast<List*>(subscribers_ & ~kList) : nullptr;
  }
  Entry* entryFor(const Subscriber* subscriber) const;
  void deliver(AttrId attr, const Key& key) const;
  void deliverToList(List* list, AttrId attr, const Key& key) const;
  // Whether a delivery of this publisher to its list is in progress on this thread.
  bool delivering() const;
  void compact() const;

  // 0, one Entry, or a List* tagged with kList.
  mutable std::uintptr_t subscribers_ = 0;
};

}  // namespace Pelo
