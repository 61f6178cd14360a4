#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Pelo {

// The platform's string: a value type holding UTF-8 bytes. Names of policies,
// matches, actions and topologies are Strings and key the ordered collections,
// which compare them bytewise (the order of std::string).
class String {
 public:
  static constexpr std::size_t npos = std::string::npos;

  String() = default;
  String(const char* s) : s_(s) {}             // NOLINT(google-explicit-constructor)
  String(std::string s) : s_(std::move(s)) {}  // NOLINT(google-explicit-constructor)
  String(std::string_view s) : s_(s) {}        // NOLINT(google-explicit-constructor)
  String(const char* s, std::size_t n) : s_(s, n) {}

  const std::string& str() const { return s_; }
  const char* c_str() const { return s_.c_str(); }
  std::size_t size() const { return s_.size(); }
  bool empty() const { return s_.empty(); }
  char operator[](std::size_t i) const { return s_[i]; }
  operator std::string_view() const { return s_; }  // NOLINT(google-explicit-constructor)

  std::size_t find(std::string_view needle, std::size_t from = 0) const {
    return s_.find(needle, from);
  }
  std::size_t find(char c, std::size_t from = 0) const { return s_.find(c, from); }
  String substr(std::size_t pos, std::size_t n = npos) const { return String(s_.substr(pos, n)); }

  String& operator+=(std::string_view more) {
    s_ += more;
    return *this;
  }
  friend String operator+(String a, std::string_view b) { return a += b; }

  friend bool operator==(const String& a, const String& b) = default;
  friend std::strong_ordering operator<=>(const String& a, const String& b) {
    return a.s_.compare(b.s_) <=> 0;
  }
  friend bool operator==(const String& a, const char* b) { return a.s_ == b; }

 private:
  std::string s_;
};

std::ostream& operator<<(std::ostream& os, const String& s);

}  // namespace Pelo

template <>
struct std::hash<Pelo::String> {
  std::size_t operator()(const Pelo::String& s) const noexcept {
    return std::hash<std::string>{}(s.str());
  }
};
