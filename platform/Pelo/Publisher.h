#pragma once

#include <cstddef>
#include <vector>

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
class Publisher {
 public:
  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  // Tells every remaining subscriber (handlePublisherDestroyed) and stops any
  // delivery in progress.
  virtual ~Publisher();

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
  void publishChange(AttrId attr, const Key& key = Key()) const;

 private:
  struct Entry {
    Subscriber* subscriber;  // not owned; null once removed during a delivery
    bool active;
  };
  // One delivery in progress, linked from the innermost outwards.
  struct Delivery {
    Delivery* outer;
    bool publisherDestroyed;
  };

  Entry* entryFor(const Subscriber* subscriber) const;
  void compact() const;

  mutable std::vector<Entry> entries_;
  mutable Delivery* deliveries_ = nullptr;
  mutable bool needsCompaction_ = false;
};

}  // namespace Pelo
