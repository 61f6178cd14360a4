#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

#include "Mox/BlockCollection.h"
#include "Mox/Collection.h"
#include "Mox/FlatCollection.h"
#include "Mox/Ptr.h"

namespace Mox {

namespace detail {
// Whether the collection moves its elements when others come and go.
template <class C>
inline constexpr bool elementsMove = false;
template <class K, class V, class Compare, std::size_t N>
inline constexpr bool elementsMove<FlatCollection<K, V, Compare, N>> = true;
template <class K, class V, class Compare, std::size_t B>
inline constexpr bool elementsMove<BlockCollection<K, V, Compare, B>> = true;
}  // namespace detail

// A read-only view of a collection of entities (a Collection by default, or a FlatCollection:
// see FlatConstView): walks and lookups yield Ptr<const T>, so a reader that holds an input
// entity as const cannot change the entities below it either. Walk order and guarantees are the
// collection's.
template <class K, class T, class Coll = Collection<K, Ptr<T>>>
class ConstView {
 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::pair<const K&, Ptr<const T>>;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    const_iterator() = default;
    explicit const_iterator(typename Coll::const_iterator it) : it_(it) {}
    value_type operator*() const {
      // A collection that moves its elements gives the iterator's own copy of the key: it stays
      // valid until the iterator moves on.
      if constexpr (detail::elementsMove<Coll>) {
        return {it_.key(), Ptr<const T>(it_->second)};
      } else {
        return {it_->first, Ptr<const T>(it_->second)};
      }
    }
    const K& key() const { return it_.key(); }
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
    typename Coll::const_iterator it_;
  };

  explicit ConstView(const Coll& c) : c_(&c) {}

  const_iterator begin() const { return const_iterator(c_->begin()); }
  const_iterator end() const { return const_iterator(c_->end()); }
  std::size_t size() const { return c_->size(); }
  bool empty() const { return c_->empty(); }
  bool contains(const K& key) const { return c_->contains(key); }
  // The entity of `key`, or null.
  Ptr<const T> find(const K& key) const {
    const Ptr<T>* p = c_->find(key);
    return p ? Ptr<const T>(*p) : Ptr<const T>();
  }

 private:
  const Coll* c_;  // not owned: the entity that holds the collection outlives the view's use
};

// A read-only view of a FlatCollection of entities.
template <class K, class T>
using FlatConstView = ConstView<K, T, FlatCollection<K, Ptr<T>>>;
// A read-only view of a BlockCollection of entities.
template <class K, class T>
using BlockConstView = ConstView<K, T, BlockCollection<K, Ptr<T>>>;

}  // namespace Mox
