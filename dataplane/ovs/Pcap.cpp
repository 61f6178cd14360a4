#include "Pcap.h"

#include <fstream>
#include <iterator>

#include "Process.h"

namespace Ovs {
namespace {

constexpr std::uint32_t kMagicMicro = 0xa1b2c3d4;
constexpr std::uint32_t kMagicNano = 0xa1b23c4d;
constexpr std::size_t kFileHeaderSize = 24;
constexpr std::size_t kRecordHeaderSize = 16;

std::uint32_t little32(const std::vector<std::uint8_t>& bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 16 |
         static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

std::uint32_t swap32(std::uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xff00) | ((v << 8) & 0xff0000) | (v << 24);
}

}  // namespace

std::vector<Frame> readPcap(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};
  if (bytes.size() < kFileHeaderSize) return {};
  std::uint32_t magic = little32(bytes, 0);
  bool swapped = false;
  if (magic != kMagicMicro && magic != kMagicNano) {
    swapped = true;
    if (swap32(magic) != kMagicMicro && swap32(magic) != kMagicNano) {
      throw Error(path + " is not a pcap capture");
    }
  }
  auto field = [&](std::size_t at) {
    std::uint32_t v = little32(bytes, at);
    return swapped ? swap32(v) : v;
  };

  std::vector<Frame> frames;
  std::size_t at = kFileHeaderSize;
  while (bytes.size() - at >= kRecordHeaderSize) {
    std::size_t length = field(at + 8);
    at += kRecordHeaderSize;
    if (bytes.size() - at < length) break;
    auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    frames.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
    at += length;
  }
  return frames;
}

}  // namespace Ovs
