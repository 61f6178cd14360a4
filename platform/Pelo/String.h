#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

namespace Pelo {

// Reference counts of shared strings are plain increments by default; thread-safe
// mode makes them atomic read-modify-writes (Mox::threadSafePtrIs switches both).
void threadSafeStringsIs(bool threadSafe);

namespace detail {
extern std::atomic<bool> threadSafeStrings;

// The bytes of every empty String: made on first use and never destroyed, so
// that static objects may use them at any time.
inline const std::string& emptyString() {
  static const union Holder {
    Holder() : s() {}
    ~Holder() {}
    std::string s;
  } holder;
  return holder.s;
}
}  // namespace detail

// The platform's string: a value type holding UTF-8 bytes. Names of policies,
// matches, actions and topologies are Strings and key the ordered collections,
// which compare them bytewise (the order of std::string).
//
// A String is one pointer wide: it points at an immutable, reference-counted
// block holding the bytes (null for the empty string), so copies share the
// block and cost a count. Mutation copies the block first when it is shared.
class String {
 public:
  static constexpr std::size_t npos = std::string::npos;

  String() noexcept = default;
  String(const char* s) : String(std::string_view(s)) {}  // NOLINT(google-explicit-constructor)
  String(std::string s)                                   // NOLINT(google-explicit-constructor)
      : rep_(s.empty() ? nullptr : new Rep(std::move(s))) {}
  String(std::string_view s)  // NOLINT(google-explicit-constructor)
      : rep_(s.empty() ? nullptr : new Rep(std::string(s))) {}
  String(const char* s, std::size_t n) : String(std::string_view(s, n)) {}

  String(const String& o) noexcept : rep_(o.rep_) {
    if (rep_ != nullptr) rep_->ref();
  }
  String(String&& o) noexcept : rep_(std::exchange(o.rep_, nullptr)) {}
  String& operator=(const String& o) noexcept {
    String(o).swap(*this);
    return *this;
  }
  String& operator=(String&& o) noexcept {
    String(std::move(o)).swap(*this);
    return *this;
  }
  ~String() {
    if (rep_ != nullptr) rep_->unref();
  }
  void swap(String& o) noexcept { std::swap(rep_, o.rep_); }

  const std::string& str() const noexcept {
    return rep_ != nullptr ? rep_->s : detail::emptyString();
  }
  const char* c_str() const noexcept { return str().c_str(); }
  std::size_t size() const noexcept { return rep_ != nullptr ? rep_->s.size() : 0; }
  bool empty() const noexcept { return rep_ == nullptr; }
  char operator[](std::size_t i) const { return str()[i]; }
  // NOLINTNEXTLINE(google-explicit-constructor)
  operator std::string_view() const noexcept { return str(); }

  std::size_t find(std::string_view needle, std::size_t from = 0) const {
    return str().find(needle, from);
  }
  std::size_t find(char c, std::size_t from = 0) const { return str().find(c, from); }
  String substr(std::size_t pos, std::size_t n = npos) const {
    return String(str().substr(pos, n));
  }

  String& operator+=(std::string_view more);
  friend String operator+(String a, std::string_view b) { return a += b; }

  friend bool operator==(const String& a, const String& b) noexcept {
    return a.rep_ == b.rep_ || std::string_view(a) == std::string_view(b);
  }
  friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
    if (a.rep_ == b.rep_) return std::strong_ordering::equal;
    return std::string_view(a).compare(std::string_view(b)) <=> 0;
  }
  friend bool operator==(const String& a, const char* b) { return std::string_view(a) == b; }

 private:
  // The shared block. The bytes never change while the block is shared.
  struct Rep {
    explicit Rep(std::string str) : s(std::move(str)) {}
    // True when the caller holds the only reference.
    bool unique() noexcept {
      if (detail::threadSafeStrings.load(std::memory_order_relaxed)) {
        return std::atomic_ref<std::uint32_t>(refs).load(std::memory_order_acquire) == 1;
      }
      return refs == 1;
    }
    void ref() noexcept {
      if (detail::threadSafeStrings.load(std::memory_order_relaxed)) {
        std::atomic_ref<std::uint32_t>(refs).fetch_add(1, std::memory_order_relaxed);
      } else {
        ++refs;
      }
    }
    void unref() noexcept {
      if (detail::threadSafeStrings.load(std::memory_order_relaxed)) {
        // The last holder frees the block without a read-modify-write: nobody
        // else can reach it to take a new reference.
        std::atomic_ref<std::uint32_t> count(refs);
        if (count.load(std::memory_order_acquire) != 1 &&
            count.fetch_sub(1, std::memory_order_acq_rel) != 1) {
          return;
        }
      } else if (--refs != 0) {
        return;
      }
      destroy(this);
    }
    static void destroy(Rep* rep) noexcept;

    std::string s;
    alignas(std::atomic_ref<std::uint32_t>::required_alignment) std::uint32_t refs = 1;
  };

  Rep* rep_ = nullptr;
};

std::ostream& operator<<(std::ostream& os, const String& s);

}  // namespace Pelo

template <>
struct std::hash<Pelo::String> {
  std::size_t operator()(const Pelo::String& s) const noexcept {
    return std::hash<std::string_view>{}(std::string_view(s));
  }
};
