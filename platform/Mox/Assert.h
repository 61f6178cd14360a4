#pragma once

#include <functional>
#include <string>

namespace Mox {

// Reports a broken invariant and stops the process. Writes
// "assertion failed: <text> (<file>:<line>)" to stderr, then the assertion context (see
// assertionContextIs), then the newest Skimtrace records (up to 32, oldest first, one per line
// prefixed by "  skimtrace: "), flushes stderr and aborts. Called by MOX_ASSERT; never returns.
[[noreturn]] void assertionFailed(const char* text, const char* file, int line);

// Installs the function that says what the process was doing, for the report of a failed
// assertion: a program that drives the system (the simulator, a test) names the input that led
// to the failure. assertionFailed calls it once, after the assertion line, and writes each line of
// the returned text prefixed by "  context: "; a function that throws writes
// "  context: <unavailable>", and an assertion failing inside it is reported without context. An
// empty function, the default, writes nothing. Replaces the function installed before.
void assertionContextIs(std::function<std::string()> context);

}  // namespace Mox

// Checks an invariant of the calling code. Always compiled in, whatever NDEBUG says: `expr` is
// evaluated exactly once, and when it is false the process stops through Mox::assertionFailed
// with the expression's source text, e.g. MOX_ASSERT(groups == 2) reports "groups == 2".
#define MOX_ASSERT(expr)                                 \
  do {                                                   \
    if (!(expr)) [[unlikely]] {                          \
      ::Mox::assertionFailed(#expr, __FILE__, __LINE__); \
    }                                                    \
  } while (0)
