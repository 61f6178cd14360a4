#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Mox {

// The value of a collection that is a set of keys: it takes no room in an element and reads as
// true, so the set walks like a collection of (key, true).
struct Present {
  constexpr operator bool() const { return true; }  // NOLINT(google-explicit-constructor)
  friend constexpr bool operator==(Present, Present) { return true; }
};

// One element of a FlatCollection. An empty value (Present) takes no room.
template <class K, class V>
struct FlatEntry {
  const K first;
  [[no_unique_address]] V second;
};

// A keyed collection attribute for a few elements: the same walk order, walk guarantees and
// member functions as Collection (see Collection.h), held as a sorted array of (key, value)
// with room for N elements inside the object and on the heap beyond that. Lookups are binary
// searches, and insertion and removal move the elements behind the changed place, so it suits
// collections of a handful of elements, not thousands.
//
// Unlike Collection, an insertion or removal moves the elements behind it: references and
// pointers to elements (from find, is, isWith or an iterator) hold until the next insertion or
// removal. Iterators themselves survive every change, as Collection's do: an iterator keeps its
// key and finds its place again when the elements have moved.
template <class K, class V, class Compare = std::less<K>, std::size_t N = 2>
class FlatCollection {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = FlatEntry<K, V>;

  static_assert(N >= 1);

  template <bool Const>
  class Iterator {
    using Owner = std::conditional_t<Const, const FlatCollection, FlatCollection>;

   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = FlatEntry<K, V>;
    using difference_type = std::ptrdiff_t;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;

    Iterator() = default;
    Iterator(Owner* owner, std::size_t index) : owner_(owner), index_(index) {
      if (index_ < owner_->size_) key_ = owner_->data()[index_].first;
    }

    reference operator*() const { return owner_->data()[position()]; }
    pointer operator->() const { return &owner_->data()[position()]; }
    const K& key() const { return *key_; }

    Iterator& operator++() {
      if (!key_) return *this;
      // Where the current key still stands, the next greater key is right behind it.
      index_ = owner_->holds(index_, *key_) ? index_ + 1 : owner_->upperBound(*key_);
      if (index_ < owner_->size_) {
        key_ = owner_->data()[index_].first;
      } else {
        key_.reset();
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
      return owner_->same(*key_, *o.key_);
    }
    // Elements may have moved since the iterator was positioned.
    std::size_t position() const {
      return owner_->holds(index_, *key_) ? index_ : owner_->lowerBound(*key_);
    }

    Owner* owner_ = nullptr;
    std::size_t index_ = 0;
    std::optional<K> key_;  // the current key; empty at the end
  };
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  FlatCollection() = default;
  FlatCollection(const FlatCollection& o) {
    reserve(o.size_);
    for (const value_type& e : o.elements()) ::new (data() + size_++) value_type(e);
  }
  FlatCollection(FlatCollection&& o) noexcept { take(o); }
  // The replaced elements are destroyed after the new ones are in place.
  FlatCollection& operator=(FlatCollection o) {
    FlatCollection old(std::move(*this));
    take(o);
    return *this;
  }
  ~FlatCollection() {
    delAll();
    // What the destructors of the removed values put back goes without ceremony.
    destroyElements();
    release();
  }

  iterator begin() { return iterator(this, 0); }
  iterator end() { return iterator(this, size_); }
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, size_); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const K& key) const { return indexOf(key) != size_; }
  // The keys present now, ascending: a snapshot for code that removes
  // elements one by one while others may come and go.
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(size_);
    for (const value_type& e : elements()) out.push_back(e.first);
    return out;
  }

  // The value for `key`, or null.
  const V* find(const K& key) const {
    const std::size_t i = indexOf(key);
    return i == size_ ? nullptr : &data()[i].second;
  }
  V* find(const K& key) {
    const std::size_t i = indexOf(key);
    return i == size_ ? nullptr : &data()[i].second;
  }

  // Inserts `value` under `key`, replacing any present value; returns the stored
  // value. A replaced value is destroyed after the new one is in place.
  V& is(const K& key, V value) {
    const std::size_t i = lowerBound(key);
    if (holds(i, key)) {
      std::swap(data()[i].second, value);
      return data()[i].second;
    }
    return insertAt(i, key, std::move(value)).second;
  }
  // Returns the value for `key`, inserting `make()` first when there is none.
  template <class Make>
  V& isWith(const K& key, Make&& make) {
    if (V* present = find(key)) return *present;
    // `make` may change the collection: the place is looked up after it ran.
    V value = std::forward<Make>(make)();
    const std::size_t i = lowerBound(key);
    if (holds(i, key)) return data()[i].second;
    return insertAt(i, key, std::move(value)).second;
  }

  // Removes the element of `key`; returns whether there was one.
  bool del(const K& key) {
    const std::size_t i = indexOf(key);
    if (i == size_) return false;
    value_type* d = data();
    [[maybe_unused]] V victim = std::move(d[i].second);  // dies after the removal
    std::destroy_at(d + i);
    for (std::size_t j = i + 1; j < size_; ++j) relocate(d + j, d + j - 1);
    --size_;
    return true;
  }
  // Removes every element. Values are destroyed in ascending key order, after
  // the collection is already empty.
  void delAll() {
    if (size_ == 0) return;
    FlatCollection victims(std::move(*this));
    victims.destroyElements();
  }

 private:
  using Size = std::uint32_t;

  value_type* data() {
    return capacity_ > N ? heap_ : std::launder(reinterpret_cast<value_type*>(local_));
  }
  const value_type* data() const {
    return capacity_ > N ? heap_ : std::launder(reinterpret_cast<const value_type*>(local_));
  }
  struct Span {
    const value_type* b;
    const value_type* e;
    const value_type* begin() const { return b; }
    const value_type* end() const { return e; }
  };
  Span elements() const { return {data(), data() + size_}; }

  bool same(const K& a, const K& b) const { return !comp_(a, b) && !comp_(b, a); }
  // Whether position `i` holds `key`.
  bool holds(std::size_t i, const K& key) const {
    return i < size_ && !comp_(key, data()[i].first) && !comp_(data()[i].first, key);
  }
  // The first position whose key is not less than `key`.
  std::size_t lowerBound(const K& key) const {
    const value_type* d = data();
    return static_cast<std::size_t>(
        std::lower_bound(d, d + size_, key,
                         [this](const value_type& e, const K& k) { return comp_(e.first, k); }) -
        d);
  }
  // The first position whose key is greater than `key`.
  std::size_t upperBound(const K& key) const {
    const value_type* d = data();
    return static_cast<std::size_t>(
        std::upper_bound(d, d + size_, key,
                         [this](const K& k, const value_type& e) { return comp_(k, e.first); }) -
        d);
  }

  // The position of `key`, or size() when absent.
  std::size_t indexOf(const K& key) const {
    const std::size_t i = lowerBound(key);
    return holds(i, key) ? i : size_;
  }

  static void relocate(value_type* from, value_type* to) noexcept {
    static_assert(std::is_nothrow_move_constructible_v<value_type>,
                  "elements move when others come and go");
    ::new (to) value_type(std::move(*from));
    std::destroy_at(from);
  }
  static value_type* allocate(Size n) {
    return static_cast<value_type*>(
        ::operator new(n * sizeof(value_type), std::align_val_t(alignof(value_type))));
  }
  void release() noexcept {
    if (capacity_ > N) {
      ::operator delete(heap_, std::align_val_t(alignof(value_type)));
      capacity_ = N;
    }
  }
  void destroyElements() noexcept {
    value_type* d = data();
    for (Size i = 0; i < size_; ++i) std::destroy_at(d + i);
    size_ = 0;
  }
  // Room for `n` elements; only while empty.
  void reserve(std::size_t n) {
    if (n <= capacity_) return;
    heap_ = allocate(static_cast<Size>(n));
    capacity_ = static_cast<Size>(n);
  }
  // Takes the elements of `o`, which is left empty; only while this is empty.
  void take(FlatCollection& o) noexcept {
    if (o.capacity_ > N) {
      heap_ = o.heap_;
      capacity_ = o.capacity_;
      o.capacity_ = N;
    } else {
      value_type* from = o.data();
      value_type* to = data();
      for (Size i = 0; i < o.size_; ++i) relocate(from + i, to + i);
    }
    size_ = o.size_;
    o.size_ = 0;
  }

  value_type& insertAt(std::size_t i, const K& key, V&& value) {
    if (size_ == capacity_) {
      const Size capacity = capacity_ * 2;
      value_type* fresh = allocate(capacity);
      value_type* d = data();
      ::new (fresh + i) value_type{key, std::move(value)};
      for (std::size_t j = 0; j < i; ++j) relocate(d + j, fresh + j);
      for (std::size_t j = i; j < size_; ++j) relocate(d + j, fresh + j + 1);
      release();
      heap_ = fresh;
      capacity_ = capacity;
    } else {
      value_type* d = data();
      for (std::size_t j = size_; j > i; --j) relocate(d + j - 1, d + j);
      ::new (d + i) value_type{key, std::move(value)};
    }
    ++size_;
    return data()[i];
  }

  // The elements: inside the object while capacity_ is N, on the heap above that.
  union {
    alignas(value_type) unsigned char local_[N * sizeof(value_type)];
    value_type* heap_;
  };
  Size size_ = 0;
  Size capacity_ = N;
  [[no_unique_address]] Compare comp_;
};

}  // namespace Mox
