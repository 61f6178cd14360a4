#include "UmoNat/UmoNatflowActionSmIndex.h"

#include <algorithm>
#include <compare>
#include <cstring>

namespace {

// The kind of a key word, in its two low bits; never 0, so that no key word is 0.
constexpr std::uint64_t kIntf = 1;
constexpr std::uint64_t kVlan = 2;
constexpr std::uint64_t kMac = 3;
constexpr std::uint64_t kKindMask = 3;

}  // namespace

std::uint64_t UmoNatflowActionSmKeys::encode(const UmoNatflowActionSmKey& key) {
  if (const auto* intf = std::get_if<Nexo::IntfId>(&key)) {
    return static_cast<std::uint64_t>(intf->handle()) | kIntf;
  }
  if (const auto* vlan = std::get_if<std::uint16_t>(&key)) {
    return static_cast<std::uint64_t>(*vlan) << 2 | kVlan;
  }
  std::uint64_t mac = 0;
  for (const std::uint8_t byte : std::get<Nexo::EthAddr>(key).bytes()) mac = mac << 8 | byte;
  return mac << 2 | kMac;
}

UmoNatflowActionSmKey UmoNatflowActionSmKeys::decode(std::uint64_t word) {
  switch (word & kKindMask) {
    case kIntf:
      return Nexo::IntfId::fromHandle(static_cast<std::uintptr_t>(word & ~kKindMask));
    case kVlan:
      return static_cast<std::uint16_t>(word >> 2);
    default: {
      const std::uint64_t mac = word >> 2;
      return Nexo::EthAddr(
          static_cast<std::uint8_t>(mac >> 40), static_cast<std::uint8_t>(mac >> 32),
          static_cast<std::uint8_t>(mac >> 24), static_cast<std::uint8_t>(mac >> 16),
          static_cast<std::uint8_t>(mac >> 8), static_cast<std::uint8_t>(mac));
    }
  }
}

// Kinds order as their tags do; VLANs and MACs as their numbers (the bytes of a MAC address
// read as one big-endian number order as the address does); interfaces by IntfId's natural
// order, not by the address of their records.
bool UmoNatflowActionSmKeys::less(std::uint64_t a, std::uint64_t b) {
  const std::uint64_t kindA = a & kKindMask;
  const std::uint64_t kindB = b & kKindMask;
  if (kindA != kindB) return kindA < kindB;
  if (kindA == kIntf) {
    return Nexo::IntfId::fromHandle(static_cast<std::uintptr_t>(a & ~kKindMask)) <
           Nexo::IntfId::fromHandle(static_cast<std::uintptr_t>(b & ~kKindMask));
  }
  return a < b;
}

UmoNatflowActionSmKeys& UmoNatflowActionSmKeys::operator=(UmoNatflowActionSmKeys&& o) noexcept {
  if (this != &o) {
    release();
    words_ = o.words_;
    o.words_ = {};
  }
  return *this;
}

std::size_t UmoNatflowActionSmKeys::size() const {
  if (spilled()) return static_cast<std::size_t>(words_[2]);
  std::size_t n = 0;
  while (n < kInline && words_[n] != 0) ++n;
  return n;
}

bool UmoNatflowActionSmKeys::insert(const UmoNatflowActionSmKey& key) {
  const std::uint64_t word = encode(key);
  const std::size_t n = size();
  std::uint64_t* keys = spilled() ? heap() : words_.data();
  std::uint64_t* at = std::lower_bound(keys, keys + n, word, less);
  if (at != keys + n && *at == word) return false;
  const auto pos = static_cast<std::size_t>(at - keys);
  if (!spilled() && n < kInline) {
    std::memmove(at + 1, at, (n - pos) * sizeof(std::uint64_t));
    *at = word;
    return true;
  }
  const std::size_t room = spilled() ? static_cast<std::size_t>(words_[3]) : kInline;
  if (n == room) {
    // A new block of twice the room, the keys copied around the new one.
    auto* block = new std::uint64_t[2 * room];
    std::memcpy(block, keys, pos * sizeof(std::uint64_t));
    block[pos] = word;
    std::memcpy(block + pos + 1, keys + pos, (n - pos) * sizeof(std::uint64_t));
    release();
    words_ = {0, reinterpret_cast<std::uint64_t>(block), n + 1, 2 * room};
    return true;
  }
  std::memmove(at + 1, at, (n - pos) * sizeof(std::uint64_t));
  *at = word;
  words_[2] = n + 1;
  return true;
}

void UmoNatflowActionSmKeys::clear() {
  if (spilled()) {
    words_[2] = 0;
  } else {
    words_ = {};
  }
}

void UmoNatflowActionSmKeys::release() noexcept {
  if (spilled()) delete[] heap();
  words_ = {};
}

UmoNatflowActionSmIntf::UmoNatflowActionSmIntf(const Nexo::IntfId& intf)
    : UmoNatflowActionSmEntry(intf) {}

UmoNatflowActionSmVlan::UmoNatflowActionSmVlan(std::uint16_t vlan)
    : UmoNatflowActionSmEntry(vlan) {}

UmoNatflowActionSmMac::UmoNatflowActionSmMac(const Nexo::EthAddr& mac)
    : UmoNatflowActionSmEntry(mac) {}

Mox::Ptr<UmoNatflowActionSmIntf> UmoNatflowActionSmIntfIs(const Nexo::IntfId& intf) {
  return Mox::makePtr<UmoNatflowActionSmIntf>(intf);
}
Mox::Ptr<UmoNatflowActionSmVlan> UmoNatflowActionSmVlanIs(std::uint16_t vlan) {
  return Mox::makePtr<UmoNatflowActionSmVlan>(vlan);
}
Mox::Ptr<UmoNatflowActionSmMac> UmoNatflowActionSmMacIs(const Nexo::EthAddr& mac) {
  return Mox::makePtr<UmoNatflowActionSmMac>(mac);
}
Mox::Ptr<UmoNatflowActionSmIntf> umoNatflowActionSmIntfFactory(const Nexo::IntfId& intf) {
  return UmoNatflowActionSmIntfIs(intf);
}
Mox::Ptr<UmoNatflowActionSmVlan> umoNatflowActionSmVlanFactory(std::uint16_t vlan) {
  return UmoNatflowActionSmVlanIs(vlan);
}
Mox::Ptr<UmoNatflowActionSmMac> umoNatflowActionSmMacFactory(const Nexo::EthAddr& mac) {
  return UmoNatflowActionSmMacIs(mac);
}
