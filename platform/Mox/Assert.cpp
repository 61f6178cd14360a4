#include "Mox/Assert.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Skimtrace/Skimtrace.h"

namespace Mox {

namespace {

// The number of Skimtrace records shown after a failed assertion.
constexpr std::size_t kPostMortemRecords = 32;

}  // namespace

void assertionFailed(const char* text, const char* file, int line) {
  std::fprintf(stderr, "assertion failed: %s (%s:%d)\n", text, file, line);
  // The assertion line goes out first, so it survives whatever happens while the ring is dumped.
  std::fflush(stderr);
  try {
    for (const std::string& record : Skimtrace::dump(kPostMortemRecords)) {
      std::fprintf(stderr, "  skimtrace: %s\n", record.c_str());
    }
  } catch (...) {
    std::fputs("  skimtrace: <unavailable>\n", stderr);
  }
  std::fflush(stderr);
  std::abort();
}

}  // namespace Mox
