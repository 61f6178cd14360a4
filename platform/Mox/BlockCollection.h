#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

namespace Mox {

// A keyed collection attribute for many elements held compactly: the same walk order, walk
// guarantees and member functions as Collection (see Collection.h), held as a sequence of
// sorted blocks of at most B elements each. An element costs its key and value plus the unused
// room of its block, about a third of a tree node; lookups are two binary searches, and an
// insertion or removal moves at most a block's elements (and, when a block splits or empties,
// the block list).
//
// Like FlatCollection, an insertion or removal moves elements: references and pointers to
// elements (from find, is, isWith or an iterator) hold until the next insertion or removal.
// Iterators survive every change: an iterator keeps its key and finds its place again when the
// elements have moved.
template <class K, class V, class Compare = std::less<K>, std::size_t B = 64>
class BlockCollection {
  static_assert(B >= 4);

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

 private:
  using Block = std::vector<value_type>;

 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = BlockCollection::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = const value_type&;
    using pointer = const value_type*;

    const_iterator() = default;
    const_iterator(const BlockCollection* owner, std::size_t block, std::size_t pos)
        : owner_(owner), block_(block), pos_(pos), generation_(owner->generation_) {
      if (block_ < owner_->blocks_.size()) key_ = owner_->blocks_[block_][pos_].first;
    }

    reference operator*() const { return *current(); }
    pointer operator->() const { return current(); }
    const K& key() const { return *key_; }

    const_iterator& operator++() {
      if (!key_) return *this;
      if (generation_ == owner_->generation_) {
        if (++pos_ == owner_->blocks_[block_].size()) {
          ++block_;
          pos_ = 0;
        }
      } else {
        std::tie(block_, pos_) = owner_->upperBound(*key_);
        generation_ = owner_->generation_;
      }
      if (block_ < owner_->blocks_.size()) {
        key_ = owner_->blocks_[block_][pos_].first;
      } else {
        key_.reset();
      }
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++*this;
      return old;
    }

    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.equals(b); }

   private:
    bool equals(const const_iterator& o) const {
      if (!key_ || !o.key_) return key_.has_value() == o.key_.has_value();
      return owner_->same(*key_, *o.key_);
    }
    // Elements may have moved since the iterator was positioned.
    const value_type* current() const {
      if (generation_ == owner_->generation_) return &owner_->blocks_[block_][pos_];
      return owner_->findEntry(*key_);
    }

    const BlockCollection* owner_ = nullptr;
    std::size_t block_ = 0;
    std::size_t pos_ = 0;
    std::uint64_t generation_ = 0;
    std::optional<K> key_;  // the current key; empty at the end
  };
  using iterator = const_iterator;

  BlockCollection() = default;
  BlockCollection(const BlockCollection&) = default;
  BlockCollection& operator=(const BlockCollection&) = default;
  ~BlockCollection() { delAll(); }

  const_iterator begin() const { return const_iterator(this, 0, 0); }
  const_iterator end() const { return const_iterator(this, blocks_.size(), 0); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const K& key) const { return findEntry(key) != nullptr; }
  // The keys present now, ascending: a snapshot for code that removes
  // elements one by one while others may come and go.
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(size_);
    for (const Block& block : blocks_) {
      for (const value_type& e : block) out.push_back(e.first);
    }
    return out;
  }

  // The value for `key`, or null.
  const V* find(const K& key) const {
    const value_type* e = findEntry(key);
    return e != nullptr ? &e->second : nullptr;
  }
  V* find(const K& key) {
    const value_type* e = findEntry(key);
    return e != nullptr ? const_cast<V*>(&e->second) : nullptr;
  }

  // Inserts `value` under `key`, replacing any present value; returns the stored
  // value. A replaced value is destroyed after the new one is in place.
  V& is(const K& key, V value) {
    if (V* present = find(key)) {
      std::swap(*present, value);
      return *present;
    }
    return insert(key, std::move(value));
  }
  // Returns the value for `key`, inserting `make()` first when there is none.
  template <class Make>
  V& isWith(const K& key, Make&& make) {
    if (V* present = find(key)) return *present;
    return insert(key, std::forward<Make>(make)());
  }

  // Removes the element of `key`; returns whether there was one.
  bool del(const K& key) {
    auto [b, pos] = lowerBound(key);
    if (b == blocks_.size() || !same(blocks_[b][pos].first, key)) return false;
    Block& block = blocks_[b];
    [[maybe_unused]] V victim = std::move(block[pos].second);  // dies after the removal
    block.erase(block.begin() + static_cast<std::ptrdiff_t>(pos));
    --size_;
    ++generation_;
    settleAfterRemoval(b);
    return true;
  }
  // Removes every element. Values are destroyed in ascending key order, after
  // the collection is already empty.
  void delAll() {
    if (size_ == 0) return;
    std::vector<Block> victims;
    victims.swap(blocks_);
    size_ = 0;
    ++generation_;
    for (Block& block : victims) {
      for (value_type& e : block) [[maybe_unused]] V victim = std::move(e.second);
    }
  }

 private:
  bool same(const K& a, const K& b) const { return !comp_(a, b) && !comp_(b, a); }

  // The first block whose last key is not below `key`, and the first position in it whose key
  // is not below `key`; (blocks, 0) past the end.
  std::pair<std::size_t, std::size_t> lowerBound(const K& key) const {
    const auto b = std::partition_point(blocks_.begin(), blocks_.end(), [&](const Block& block) {
      return comp_(block.back().first, key);
    });
    if (b == blocks_.end()) return {blocks_.size(), 0};
    const auto e = std::partition_point(b->begin(), b->end(),
                                        [&](const value_type& v) { return comp_(v.first, key); });
    return {static_cast<std::size_t>(b - blocks_.begin()),
            static_cast<std::size_t>(e - b->begin())};
  }
  // The place of the first key above `key`.
  std::pair<std::size_t, std::size_t> upperBound(const K& key) const {
    auto [b, pos] = lowerBound(key);
    if (b < blocks_.size() && same(blocks_[b][pos].first, key)) {
      if (++pos == blocks_[b].size()) {
        ++b;
        pos = 0;
      }
    }
    return {b, pos};
  }
  const value_type* findEntry(const K& key) const {
    auto [b, pos] = lowerBound(key);
    if (b == blocks_.size() || !same(blocks_[b][pos].first, key)) return nullptr;
    return &blocks_[b][pos];
  }

  V& insert(const K& key, V&& value) {
    ++generation_;
    ++size_;
    auto [b, pos] = lowerBound(key);
    if (b == blocks_.size()) {
      // Above every key: onto the last block, or a new one when that is full, so that keys
      // arriving in ascending order fill their blocks completely.
      if (blocks_.empty() || blocks_.back().size() == B) {
        blocks_.emplace_back();
        grow(blocks_.back());
        blocks_.back().emplace_back(key, std::move(value));
        return blocks_.back().back().second;
      }
      b = blocks_.size() - 1;
      pos = blocks_[b].size();
    }
    if (blocks_[b].size() == B) {
      // A full block splits in two halves; the element goes to the half its place is in.
      Block upper;
      upper.reserve(B);
      const std::size_t half = B / 2;
      std::move(blocks_[b].begin() + half, blocks_[b].end(), std::back_inserter(upper));
      blocks_[b].erase(blocks_[b].begin() + half, blocks_[b].end());
      blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(upper));
      if (pos > half) {
        ++b;
        pos -= half;
      }
    }
    Block& block = blocks_[b];
    if (block.size() == block.capacity()) grow(block);
    block.emplace(block.begin() + static_cast<std::ptrdiff_t>(pos), key, std::move(value));
    return block[pos].second;
  }

  // Room for a few more elements: blocks grow by half their size up to B, so that a small
  // collection wastes little.
  static void grow(Block& block) {
    const std::size_t want = std::min(B, std::max<std::size_t>(4, block.size() + block.size() / 2));
    block.reserve(want);
  }

  // Drops block `b` when it is empty, or merges it into a neighbour when both fit in half a
  // block, so that blocks stay at least a quarter full on average.
  void settleAfterRemoval(std::size_t b) {
    Block& block = blocks_[b];
    if (block.empty()) {
      blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b));
      return;
    }
    if (b + 1 < blocks_.size() && block.size() + blocks_[b + 1].size() <= B / 2) {
      Block& next = blocks_[b + 1];
      if (block.capacity() < block.size() + next.size()) block.reserve(block.size() + next.size());
      std::move(next.begin(), next.end(), std::back_inserter(block));
      blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b) + 1);
    } else if (block.size() < block.capacity() / 4) {
      block.shrink_to_fit();
    }
  }

  std::vector<Block> blocks_;  // non-empty, in key order
  std::size_t size_ = 0;
  std::uint64_t generation_ = 0;  // moves on every insertion and removal: elements move
  [[no_unique_address]] Compare comp_;
};

}  // namespace Mox
