#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "Mox/Collection.h"

namespace Mox {

// A set of raw, non-owning object pointers (the set never keeps its members
// alive), walked in insertion order: a member removed and inserted again goes
// to the end. Lookup, insertion and removal cost the same whatever the size.
// Walks have the guarantees of Collection: the current member may be removed,
// members inserted during a walk are reached by it, removed ones are not.
template <class T>
class PtrSet {
  using Order = Collection<std::uint64_t, T*>;

 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T*;
    using difference_type = std::ptrdiff_t;
    using reference = T*;
    using pointer = T* const*;

    const_iterator() = default;
    explicit const_iterator(typename Order::const_iterator it) : it_(it) {}
    T* operator*() const { return it_->second; }
    const_iterator& operator++() {
      ++it_;
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++it_;
      return old;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    typename Order::const_iterator it_;
  };

  const_iterator begin() const { return const_iterator(order_.begin()); }
  const_iterator end() const { return const_iterator(order_.end()); }

  std::size_t size() const { return index_.size(); }
  bool empty() const { return index_.empty(); }
  bool contains(const T* member) const { return index_.count(member) != 0; }

  // Inserts `member` at the end unless it is already there; returns whether it
  // was inserted.
  bool is(T* member) {
    auto [it, inserted] = index_.try_emplace(member, next_);
    if (!inserted) return false;
    order_.is(next_++, member);
    return true;
  }
  // Removes `member`; returns whether it was there.
  bool del(const T* member) {
    auto it = index_.find(member);
    if (it == index_.end()) return false;
    const std::uint64_t seq = it->second;
    index_.erase(it);
    order_.del(seq);
    return true;
  }
  void delAll() {
    index_.clear();
    order_.delAll();
  }

 private:
  Order order_;                                        // insertion number to member
  std::unordered_map<const T*, std::uint64_t> index_;  // member to insertion number
  std::uint64_t next_ = 0;
};

}  // namespace Mox
