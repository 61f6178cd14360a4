#include "Mox/Assert.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "Skimtrace/Skimtrace.h"

namespace Mox {

namespace {

// The number of Skimtrace records shown after a failed assertion.
constexpr std::size_t kPostMortemRecords = 32;

// Created on first use and never destroyed, so an assertion may fail during static destruction.
std::function<std::string()>& assertionContext() {
  static auto* const context = new std::function<std::string()>;
  return *context;
}

// Set while the context function runs: an assertion failing inside it skips the context.
bool inAssertionContext = false;

void printAssertionContext() {
  const std::function<std::string()>& context = assertionContext();
  if (!context || inAssertionContext) return;
  inAssertionContext = true;
  try {
    const std::string text = context();
    std::size_t begin = 0;
    while (begin < text.size()) {
      std::size_t end = text.find('\n', begin);
      if (end == std::string::npos) end = text.size();
      std::fprintf(stderr, "  context: %.*s\n", static_cast<int>(end - begin), text.data() + begin);
      begin = end + 1;
    }
  } catch (...) {
    std::fputs("  context: <unavailable>\n", stderr);
  }
  std::fflush(stderr);
}

}  // namespace

void assertionContextIs(std::function<std::string()> context) {
  assertionContext() = std::move(context);
}

void assertionFailed(const char* text, const char* file, int line) {
  std::fprintf(stderr, "assertion failed: %s (%s:%d)\n", text, file, line);
  // The assertion line goes out first, so it survives whatever happens while the ring is dumped.
  std::fflush(stderr);
  printAssertionContext();
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
