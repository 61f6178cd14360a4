#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Mox {

// A keyed collection for lookups only: finding, inserting and removing an
// element cost the same whatever the size. It is not walked; keys() gives the
// keys in ascending order when a listing is needed. A removed value is
// destroyed after it has left the collection.
template <class K, class V, class Hash = std::hash<K>>
class HashCollection {
 public:
  HashCollection() = default;
  HashCollection(const HashCollection&) = delete;
  HashCollection& operator=(const HashCollection&) = delete;
  ~HashCollection() { delAll(); }

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  bool contains(const K& key) const { return map_.find(key) != map_.end(); }

  // The value for `key`, or null.
  const V* find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  V* find(const K& key) {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
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
    return true;
  }
  void delAll() {
    std::unordered_map<K, V, Hash> victims;
    victims.swap(map_);
  }

  // The keys, ascending.
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& entry : map_) out.push_back(entry.first);
    std::sort(out.begin(), out.end());
    return out;
  }

 private:
  std::unordered_map<K, V, Hash> map_;
};

}  // namespace Mox
