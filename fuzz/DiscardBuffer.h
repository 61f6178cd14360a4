#pragma once

#include <ios>
#include <streambuf>

namespace Fuzz {

// A stream buffer that takes every character and keeps none: a stream over it still formats all
// it is given, which a stream without a buffer would skip.
class DiscardBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char* /*s*/, std::streamsize n) override { return n; }
};

}  // namespace Fuzz
