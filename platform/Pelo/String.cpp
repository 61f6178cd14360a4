#include "Pelo/String.h"

#include <ostream>

namespace Pelo {

namespace detail {
std::atomic<bool> threadSafeStrings{false};
}  // namespace detail

void threadSafeStringsIs(bool threadSafe) {
  detail::threadSafeStrings.store(threadSafe, std::memory_order_relaxed);
}

void String::Rep::destroy(Rep* rep) noexcept { delete rep; }

String& String::operator+=(std::string_view more) {
  if (more.empty()) return *this;
  if (rep_ == nullptr) {
    rep_ = new Rep(std::string(more));
  } else if (rep_->unique()) {
    rep_->s += more;
  } else {
    // Shared: the other holders keep the old bytes.
    std::string joined;
    joined.reserve(rep_->s.size() + more.size());
    joined += rep_->s;
    joined += more;
    String(std::move(joined)).swap(*this);
  }
  return *this;
}

std::ostream& operator<<(std::ostream& os, const String& s) { return os << s.str(); }

}  // namespace Pelo
