#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

namespace Mox {

// A set of raw, non-owning object pointers (the set never keeps its members
// alive), walked in insertion order: a member removed and inserted again goes
// to the end. Insertion, removal and lookup cost the same whatever the size.
//
// Walks survive changes of the set: the member a walk stands on may be
// removed, members removed ahead are not visited, members inserted during the
// walk are reached by it. An iterator must not outlive its set.
//
// Layout: the members sit in a dense vector in insertion order (null where one
// was removed), and an open-addressing table (linear probing) maps a member to
// its position by holding only the position: the pointer is read back from the
// vector. A member costs a vector slot and a few bytes of table.
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

  std::size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }
  bool contains(const T* member) const { return find(member) != kNone; }

  // Inserts `member` at the end unless it is already there; returns whether it
  // was inserted.
  bool is(T* member) {
    if (find(member) != kNone) return false;
    // Room first: the table holds at most three quarters of its cells.
    if (4 * (live_ + 1) > 3 * std::size_t{mask_ + 1} || table_ == nullptr) {
      rebuild(2 * std::size_t{mask_ + 1});
    }
    // The vector grows by half its size rather than doubling: a set of thousands of members
    // keeps a fifth of its room unused on average instead of a third.
    if (slots_.size() == slots_.capacity()) slots_.reserve(slots_.size() + slots_.size() / 2 + 4);
    slots_.push_back(member);
    place(slots_.size() - 1);
    ++live_;
    return true;
  }
  // Removes `member`; returns whether it was there.
  bool del(const T* member) {
    const std::size_t cell = find(member);
    if (cell == kNone) return false;
    slots_[table_[cell]] = nullptr;  // positions stay put for the walks under way
    erase(cell);
    --live_;
    compactIfSparse();
    return true;
  }
  void delAll() {
    for (auto& slot : slots_) slot = nullptr;
    if (table_ != nullptr) {
      for (std::size_t c = 0; c <= mask_; ++c) table_[c] = kNone;
    }
    live_ = 0;
    compactIfSparse();
  }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  std::size_t home(const T* member) const {
    // Fibonacci hashing of the address, whose low bits are alignment.
    // The top bits of the product are the well-mixed ones: members made one after another, at
    // a fixed distance, land evenly spread over the table.
    const auto bits = reinterpret_cast<std::uintptr_t>(member) >> 3;
    const std::uint64_t product = static_cast<std::uint64_t>(bits) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(product >> (64 - std::countr_one(mask_)));
  }
  // The table cell of `member`, or kNone.
  std::size_t find(const T* member) const {
    if (live_ == 0) return kNone;
    for (std::size_t cell = home(member);; cell = (cell + 1) & mask_) {
      const std::uint32_t pos = table_[cell];
      if (pos == kNone) return kNone;
      if (slots_[pos] == member) return cell;
    }
  }
  // Empties `cell`, moving back the entries of its probe run that would no
  // longer be found (no markers for removed entries are needed).
  void erase(std::size_t cell) const {
    std::size_t hole = cell;
    for (std::size_t next = (hole + 1) & mask_; table_[next] != kNone; next = (next + 1) & mask_) {
      const std::size_t want = home(slots_[table_[next]]);
      // The entry at `next` may move into the hole unless its home lies
      // cyclically in (hole, next].
      if (((next - want) & mask_) >= ((next - hole) & mask_)) {
        table_[hole] = table_[next];
        hole = next;
      }
    }
    table_[hole] = kNone;
  }
  // A table of `cells` cells (a power of two) filled from the vector.
  void rebuild(std::size_t cells) const {
    if (cells < 8) cells = 8;
    if (table_ == nullptr || cells != std::size_t{mask_ + 1}) {
      table_ = std::make_unique<std::uint32_t[]>(cells);
      mask_ = static_cast<std::uint32_t>(cells - 1);
    }
    for (std::size_t c = 0; c < cells; ++c) table_[c] = kNone;
    for (std::size_t pos = 0; pos < slots_.size(); ++pos) {
      if (slots_[pos] != nullptr) place(pos);
    }
  }
  // Enters position `pos` of slots_ in the first free cell of its member's probe run.
  void place(std::size_t pos) const {
    std::size_t cell = home(slots_[pos]);
    while (table_[cell] != kNone) cell = (cell + 1) & mask_;
    table_[cell] = static_cast<std::uint32_t>(pos);
  }
  // Drops removed slots once they are the majority, unless a walk stands on
  // a position. Each compaction costs the live members; it is paid for by the
  // removals since the last one.
  void compactIfSparse() const {
    if (walks_ != 0 || slots_.size() < 2 * live_ + 8) return;
    // Each member moves down to its new position and its cell is rewritten in
    // place: the cost follows the members, not the size of the table. A cell
    // is found by its old position, which no other cell holds at that moment
    // (the new positions handed out so far are all below it).
    std::uint32_t live = 0;
    for (std::size_t pos = 0; pos < slots_.size(); ++pos) {
      T* member = slots_[pos];
      if (member == nullptr) continue;
      if (pos != live) {
        std::size_t cell = home(member);
        while (table_[cell] != pos) cell = (cell + 1) & mask_;
        table_[cell] = live;
        slots_[live] = member;
      }
      ++live;
    }
    slots_.resize(live);
  }

  // Members in insertion order; null where one was removed.
  mutable std::vector<T*> slots_;
  // Open-addressing table of positions in slots_; kNone marks a free cell.
  mutable std::unique_ptr<std::uint32_t[]> table_;
  mutable std::uint32_t mask_ = 0;  // cells - 1
  std::uint32_t live_ = 0;          // members
  mutable std::size_t walks_ = 0;   // iterators alive
};

}  // namespace Mox
