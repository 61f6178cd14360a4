#pragma once

namespace Mox {

// Reports a broken invariant and stops the process. Writes
// "assertion failed: <text> (<file>:<line>)" to stderr, then the newest Skimtrace records (up to
// 32, oldest first, one per line prefixed by "  skimtrace: "), flushes stderr and aborts.
// Called by MOX_ASSERT; never returns.
[[noreturn]] void assertionFailed(const char* text, const char* file, int line);

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
