#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "Mox/Pool.h"

namespace Mox {

// Reference counts are plain increments by default. Switching the framework to
// thread-safe mode makes every count (those of shared Pelo::String blocks too)
// an atomic read-modify-write from then on; switch before any pointer or string
// is shared between threads.
void threadSafePtrIs(bool threadSafe);
bool threadSafePtr();

namespace detail {
extern std::atomic<bool> threadSafePtr;
}

// Base of every reference-counted object of the framework: entities, state
// machines, tasks. Objects live on the heap only and are destroyed when the
// last Ptr to them goes.
//
// Destruction runs in two steps: the object is first marked for deletion, then
// handleZeroReferences() runs (by default it deletes the object). Dispatch
// functions test isMarkedForDeletion() to ignore notifications that reach a
// dying object. References taken and dropped again while an object is being
// destroyed do not destroy it twice.
class PtrInterface {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void ref() const noexcept {
    if (detail::threadSafePtr.load(std::memory_order_relaxed)) {
      std::atomic_ref<std::uint32_t>(count_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++count_;
    }
  }
  void unref() const noexcept {
    std::uint32_t left;
    if (detail::threadSafePtr.load(std::memory_order_relaxed)) {
      left = std::atomic_ref<std::uint32_t>(count_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = --count_;
    }
    if (left == 0 && !markedForDeletion_) {
      markedForDeletion_ = true;
      const_cast<PtrInterface*>(this)->handleZeroReferences();
    }
  }

  std::uint32_t references() const noexcept { return count_; }
  bool isMarkedForDeletion() const noexcept { return markedForDeletion_; }

  // Objects alive in the process; tests compare it before and after to prove
  // that nothing leaked.
  static std::int64_t instances() noexcept;

  // Objects come from the small-object pool (Mox/Pool.h); the delete of the most derived
  // class passes its size back.
  static void* operator new(std::size_t size) { return poolAllocate(size); }
  static void operator delete(void* p, std::size_t size) noexcept { poolFree(p, size); }
  static void* operator new(std::size_t /*size*/, void* place) noexcept { return place; }
  static void operator delete(void* /*p*/, void* /*place*/) noexcept {}

 protected:
  PtrInterface() noexcept;
  // Checks that nothing still refers to the object.
  virtual ~PtrInterface();

  // The last reference went; the object is already marked for deletion.
  // Reactors run their clean-up here before they delete themselves.
  virtual void handleZeroReferences() { delete this; }

  // Marks the object for deletion without a release: for an object whose
  // constructor fails and takes itself down (see Reactor::unwindConstruction).
  void markedForDeletionIs() const noexcept { markedForDeletion_ = true; }

 private:
  alignas(std::atomic_ref<std::uint32_t>::required_alignment) mutable std::uint32_t count_ = 0;
  mutable bool markedForDeletion_ = false;
};

// An intrusive, reference-counted strong pointer to a PtrInterface object (or a
// const one). Copying increments the count, destruction decrements it.
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  // Takes a new reference to `p`, which must live on the heap.
  explicit Ptr(T* p) noexcept : p_(p) {
    if (p_ != nullptr) p_->ref();
  }
  Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o)
  noexcept : Ptr(o.get()) {}  // NOLINT(google-explicit-constructor)
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
  noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() { reset(); }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // Drops the reference (possibly destroying the object).
  void reset() noexcept {
    if (T* p = std::exchange(p_, nullptr)) p->unref();
  }
  // Gives up the reference without dropping it; for moves between Ptr types.
  [[nodiscard]] T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }
  template <class U>
  friend std::strong_ordering operator<=>(const Ptr& a, const Ptr<U>& b) noexcept {
    return std::compare_three_way{}(static_cast<const volatile void*>(a.get()),
                                    static_cast<const volatile void*>(b.get()));
  }

 private:
  T* p_ = nullptr;
};

// Allocates and constructs a T and returns the first reference to it.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> ptrStaticCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(static_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrDynamicCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrConstCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace Mox

template <class T>
struct std::hash<Mox::Ptr<T>> {
  std::size_t operator()(const Mox::Ptr<T>& p) const noexcept {
    return std::hash<const void*>{}(static_cast<const void*>(p.get()));
  }
};
