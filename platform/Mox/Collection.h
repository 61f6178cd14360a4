#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Mox/Pool.h"

namespace Mox {

// A keyed collection attribute: a map from K to V, walked in ascending key order.
//
// Walks are deterministic and survive changes of the collection:
//  - the element a walk stands on may be removed; the walk goes on with the
//    next key;
//  - after any removal or insertion during a walk, the walk continues with the
//    smallest key greater than the current one that is present at that moment:
//    removed elements not yet reached are not visited, inserted elements with a
//    greater key are visited, inserted elements with a smaller key are not;
//  - dereference an iterator only while its element is present.
// A removed value is destroyed after it has left the map, so code run by its
// destructor sees the collection without it.
template <class K, class V, class Compare = std::less<K>>
class Collection {
  // Tree nodes come from the small-object pool: a collection of thousands of elements takes
  // no malloc header per element.
  using Map = std::map<K, V, Compare, PoolAllocator<std::pair<const K, V>>>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = typename Map::value_type;

  template <bool Const>
  class Iterator {
    using Owner = std::conditional_t<Const, const Collection, Collection>;
    using MapIt = std::conditional_t<Const, typename Map::const_iterator, typename Map::iterator>;

   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = typename Map::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;

    Iterator() = default;
    Iterator(Owner* owner, MapIt it) : owner_(owner), it_(it), generation_(owner->generation_) {
      if (it_ != mapEnd()) key_ = it_->first;
    }

    reference operator*() const { return *current(); }
    pointer operator->() const { return &*current(); }
    const K& key() const { return *key_; }

    Iterator& operator++() {
      if (!key_) return *this;
      if (generation_ == owner_->generation_) {
        ++it_;
      } else {
        it_ = owner_->map_.upper_bound(*key_);
        generation_ = owner_->generation_;
      }
      if (it_ == mapEnd()) {
        key_.reset();
      } else {
        key_ = it_->first;
      }
      return *this;
    }
    Iterator operator++(int) {
      Iterator old = *this;
      ++*this;
      return old;
    }

    friend bool operator==(const Iterator& a, const Iterator& b) { return a.equals(b); }

   private:
    bool equals(const Iterator& o) const {
      if (!key_ || !o.key_) return key_.has_value() == o.key_.has_value();
      const auto& less = owner_->map_.key_comp();
      return !less(*key_, *o.key_) && !less(*o.key_, *key_);
    }
    MapIt mapEnd() const { return owner_->map_.end(); }
    MapIt current() const {
      // Elements may have been removed since the iterator was positioned.
      if (generation_ != owner_->generation_) return owner_->map_.find(*key_);
      return it_;
    }

    Owner* owner_ = nullptr;
    MapIt it_{};
    std::uint64_t generation_ = 0;
    std::optional<K> key_;  // the current key; empty at the end
  };
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  Collection() = default;
  Collection(const Collection&) = default;
  Collection& operator=(const Collection&) = default;
  ~Collection() { delAll(); }

  iterator begin() { return iterator(this, map_.begin()); }
  iterator end() { return iterator(this, map_.end()); }
  const_iterator begin() const { return const_iterator(this, map_.begin()); }
  const_iterator end() const { return const_iterator(this, map_.end()); }

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  bool contains(const K& key) const { return map_.find(key) != map_.end(); }
  // The keys present now, ascending: a snapshot for code that removes
  // elements one by one while others may come and go.
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& entry : map_) out.push_back(entry.first);
    return out;
  }

  // The value for `key`, or null.
  const V* find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  V* find(const K& key) {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }

  // Inserts `value` under `key`, replacing any present value; returns the stored
  // value. A replaced value is destroyed after the new one is in place.
  V& is(const K& key, V value) {
    auto [it, inserted] = map_.try_emplace(key, std::move(value));
    if (!inserted) std::swap(it->second, value);
    return it->second;
  }
  // Returns the value for `key`, inserting `make()` first when there is none.
  template <class Make>
  V& isWith(const K& key, Make&& make) {
    auto it = map_.find(key);
    if (it == map_.end()) it = map_.emplace(key, std::forward<Make>(make)()).first;
    return it->second;
  }

  // Removes the element of `key`; returns whether there was one.
  bool del(const K& key) {
    auto it = map_.find(key);
    if (it == map_.end()) return false;
    [[maybe_unused]] V victim = std::move(it->second);  // dies after the erase
    map_.erase(it);
    ++generation_;
    return true;
  }
  // Removes every element. Values are destroyed in ascending key order, after
  // the collection is already empty.
  void delAll() {
    if (map_.empty()) return;
    Map victims;
    victims.swap(map_);
    ++generation_;
    while (!victims.empty()) victims.erase(victims.begin());
  }

 private:
  Map map_;
  std::uint64_t generation_ = 0;  // moves on every removal
};

}  // namespace Mox
