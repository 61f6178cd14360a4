#pragma once

#include <cstddef>
#include <iterator>
#include <utility>
#include <variant>

#include "Mox/Collection.h"
#include "Mox/FlatCollection.h"
#include "Mox/Ptr.h"

namespace Mox {

// A read-only view of a collection of entities, a Collection or a FlatCollection: walks and
// lookups yield Ptr<const T>, so a reader that holds an input entity as const cannot change the
// entities below it either. Walk order and guarantees are the collection's.
template <class K, class T, class Compare = std::less<K>>
class ConstView {
  using Coll = Collection<K, Ptr<T>, Compare>;
  using Flat = FlatCollection<K, Ptr<T>, Compare>;

 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::pair<const K&, Ptr<const T>>;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    const_iterator() = default;
    explicit const_iterator(typename Coll::const_iterator it) : it_(it) {}
    explicit const_iterator(typename Flat::const_iterator it) : it_(it) {}
    // A flat collection moves its elements when others come and go, so there the key is the
    // iterator's own copy: it stays valid until the iterator moves on.
    value_type operator*() const {
      if (const auto* it = std::get_if<typename Coll::const_iterator>(&it_)) {
        return {(*it)->first, Ptr<const T>((*it)->second)};
      }
      const auto& it = std::get<typename Flat::const_iterator>(it_);
      return {it.key(), Ptr<const T>(it->second)};
    }
    const K& key() const {
      return std::visit([](const auto& it) -> const K& { return it.key(); }, it_);
    }
    const_iterator& operator++() {
      std::visit([](auto& it) { ++it; }, it_);
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    std::variant<typename Coll::const_iterator, typename Flat::const_iterator> it_;
  };

  explicit ConstView(const Coll& c) : c_(&c) {}
  explicit ConstView(const Flat& c) : c_(&c) {}

  const_iterator begin() const {
    return std::visit([](const auto* c) { return const_iterator(c->begin()); }, c_);
  }
  const_iterator end() const {
    return std::visit([](const auto* c) { return const_iterator(c->end()); }, c_);
  }
  std::size_t size() const {
    return std::visit([](const auto* c) { return c->size(); }, c_);
  }
  bool empty() const {
    return std::visit([](const auto* c) { return c->empty(); }, c_);
  }
  bool contains(const K& key) const {
    return std::visit([&key](const auto* c) { return c->contains(key); }, c_);
  }
  // The entity of `key`, or null.
  Ptr<const T> find(const K& key) const {
    const Ptr<T>* p = std::visit([&key](const auto* c) { return c->find(key); }, c_);
    return p ? Ptr<const T>(*p) : Ptr<const T>();
  }

 private:
  // Not owned: the entity that holds the collection outlives the view's use.
  std::variant<const Coll*, const Flat*> c_;
};

}  // namespace Mox
