#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <unordered_map>
#include <vector>

namespace Mox {

// A set of raw, non-owning object pointers (the set never keeps its members
// alive), walked in insertion order: a member removed and inserted again goes
// to the end. Insertion, removal and lookup cost the same whatever the size.
//
// Walks survive changes of the set: the member a walk stands on may be
// removed, members removed ahead are not visited, members inserted during the
// walk are reached by it. An iterator must not outlive its set.
template <class T>
class PtrSet {
 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T*;
    using difference_type = std::ptrdiff_t;
    using reference = T*;
    using pointer = T* const*;

    const_iterator() = default;
    const_iterator(const PtrSet* set, std::size_t pos) : set_(set), pos_(pos) {
      if (set_ != nullptr) {
        ++set_->walks_;
        skipRemoved();
      }
    }
    const_iterator(const const_iterator& o) : set_(o.set_), pos_(o.pos_) {
      if (set_ != nullptr) ++set_->walks_;
    }
    const_iterator& operator=(const const_iterator& o) {
      if (this == &o) return *this;
      release();
      set_ = o.set_;
      pos_ = o.pos_;
      if (set_ != nullptr) ++set_->walks_;
      return *this;
    }
    ~const_iterator() { release(); }

    T* operator*() const { return set_->slots_[pos_]; }
    const_iterator& operator++() {
      ++pos_;
      skipRemoved();
      return *this;
    }
    // Two iterators are equal at the same position; every position at or past
    // the last slot is the end.
    friend bool operator==(const const_iterator& a, const const_iterator& b) {
      return a.position() == b.position();
    }

   private:
    std::size_t position() const {
      if (set_ == nullptr) return 0;
      return pos_ < set_->slots_.size() ? pos_ : SIZE_MAX;
    }
    void skipRemoved() {
      while (pos_ < set_->slots_.size() && set_->slots_[pos_] == nullptr) ++pos_;
    }
    void release() {
      if (set_ != nullptr && --set_->walks_ == 0) set_->compactIfSparse();
    }

    const PtrSet* set_ = nullptr;
    std::size_t pos_ = 0;
  };

  PtrSet() = default;
  PtrSet(const PtrSet&) = delete;
  PtrSet& operator=(const PtrSet&) = delete;

  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, slots_.size()); }

  std::size_t size() const { return index_.size(); }
  bool empty() const { return index_.empty(); }
  bool contains(const T* member) const { return index_.count(member) != 0; }

  // Inserts `member` at the end unless it is already there; returns whether it
  // was inserted.
  bool is(T* member) {
    if (index_.count(member) != 0) return false;
    if (spare_.empty()) {
      index_.emplace(member, slots_.size());
    } else {
      // The node of the last member removed: a member taken out and put back, as the action
      // index does on every programming pass, costs no allocation.
      spare_.key() = member;
      spare_.mapped() = slots_.size();
      index_.insert(std::move(spare_));
    }
    slots_.push_back(member);
    return true;
  }
  // Removes `member`; returns whether it was there.
  bool del(const T* member) {
    auto it = index_.find(member);
    if (it == index_.end()) return false;
    slots_[it->second] = nullptr;  // positions stay put for the walks under way
    spare_ = index_.extract(it);
    compactIfSparse();
    return true;
  }
  void delAll() {
    index_.clear();
    for (auto& slot : slots_) slot = nullptr;
    compactIfSparse();
  }

 private:
  // Drops removed slots once they are the majority, unless a walk stands on
  // a position. Each compaction costs the live members; it is paid for by the
  // removals since the last one.
  void compactIfSparse() const {
    if (walks_ != 0 || slots_.size() < 2 * index_.size() + 8) return;
    std::size_t live = 0;
    for (T* member : slots_) {
      if (member == nullptr) continue;
      slots_[live] = member;
      index_[member] = live;
      ++live;
    }
    slots_.resize(live);
  }

  // Members in insertion order; null where one was removed.
  mutable std::vector<T*> slots_;
  mutable std::unordered_map<const T*, std::size_t> index_;  // member to slot
  // One node kept from the last removal, for the next insertion.
  typename std::unordered_map<const T*, std::size_t>::node_type spare_;
  mutable std::size_t walks_ = 0;  // iterators alive
};

}  // namespace Mox
