#pragma once

#include <concepts>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Mox/BlockCollection.h"
#include "Mox/Reactor.h"

namespace Mox {

// Thrown when an owner re-creates a child under an existing key with other
// constructor arguments than the child was made with.
class MutatorReinstantiatingException : public std::logic_error {
 public:
  explicit MutatorReinstantiatingException(const std::string& what) : std::logic_error(what) {}
};

// A child that can tell whether it was constructed with given arguments:
// its collection then keeps no copy of them.
template <class T, class... Args>
concept AnswersConstructedWith = requires(const T& child, const Args&... args) {
  { child.constructedWith(args...) } -> std::convertible_to<bool>;
};

// The children a state machine owns, keyed by K: each a reactor T created with
// the constructor arguments Args. Removing a child drops the collection's
// reference, which destroys the child (its doCleanup runs first) unless someone
// else still holds it. Walks are those of Collection, in ascending key order;
// the children are held in a BlockCollection (an owner may have thousands), so
// a walk yields the key as the iterator's own copy and the child as a
// reference of its own, both valid while children come and go.
//
// To detect a re-creation with other arguments, the collection asks the child
// (`bool constructedWith(const Args&...) const`) when it has that member, and
// otherwise keeps a copy of the arguments next to it.
template <class K, class T, class... Args>
class ChildCollection {
  struct NoArgs {};
  // Defined only where a slot is made or read, with T complete: a T still
  // incomplete there would answer differently in different files.
  struct Slot {
    static_assert(sizeof(T) != 0, "the child's class must be complete here");
    Ptr<T> child;
    [[no_unique_address]] std::conditional_t<AnswersConstructedWith<T, Args...>, NoArgs,
                                             std::tuple<Args...>>
        args;
  };
  using Slots = BlockCollection<K, Slot>;

 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::pair<const K&, Ptr<T>>;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    const_iterator() = default;
    explicit const_iterator(typename Slots::const_iterator it) : it_(it) {}
    value_type operator*() const { return {it_.key(), it_->second.child}; }
    const_iterator& operator++() {
      ++it_;
      return *this;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    typename Slots::const_iterator it_;
  };

  const_iterator begin() const { return const_iterator(slots_.begin()); }
  const_iterator end() const { return const_iterator(slots_.end()); }
  std::size_t size() const { return slots_.size(); }
  bool empty() const { return slots_.empty(); }

  // The child of `key`, or null.
  Ptr<T> find(const K& key) const {
    const Slot* s = slots_.find(key);
    return s ? s->child : Ptr<T>();
  }

  // Returns the child of `key`. An existing child made with the same arguments
  // is kept; one made with other arguments makes this throw
  // MutatorReinstantiatingException. Otherwise a new child is constructed (its
  // constructor runs its handleInitialized), its notifications are switched on,
  // and it is inserted.
  Ptr<T> is(const K& key, const Args&... args) {
    if (const Slot* s = slots_.find(key)) {
      if (sameArgs(*s, args...)) return s->child;
      throw MutatorReinstantiatingException(
          "child re-created under an existing key with different constructor arguments");
    }
    Ptr<T> child = reactorIs<T>(args...);
    // The constructor may have inserted a child under the same key re-entrantly;
    // the one made last wins, the other is released.
    if constexpr (AnswersConstructedWith<T, Args...>) {
      slots_.is(key, Slot{child, NoArgs{}});
    } else {
      slots_.is(key, Slot{child, std::tuple<Args...>(args...)});
    }
    return child;
  }

  // Removes the child of `key`; returns whether there was one.
  bool del(const K& key) { return slots_.del(key); }
  // Removes every child, in ascending key order.
  void delAll() { slots_.delAll(); }

 private:
  static bool sameArgs(const Slot& s, const Args&... args) {
    if constexpr (AnswersConstructedWith<T, Args...>) {
      return s.child->constructedWith(args...);
    } else {
      return s.args == std::tie(args...);
    }
  }

  Slots slots_;
};

}  // namespace Mox
