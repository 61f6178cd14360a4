#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <variant>

#include "Mox/Entity.h"
#include "Mox/PtrSet.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "UmoNat/UmoNatExport.h"

class UmoNatFlowActionSm;

// A key of the action index: an interface, a VLAN or a host MAC. Keys order by
// kind (interfaces, then VLANs, then MACs), then by value.
using UmoNatflowActionSmKey = std::variant<Nexo::IntfId, std::uint16_t, Nexo::EthAddr>;
// The keys one action is registered under, ascending (in the order of
// UmoNatflowActionSmKey) and without duplicates: withdrawing the action costs
// only its own keys. Each key is one word, its kind in the two low bits
// (interfaces, VLANs, MACs ascending), so the four keys of a usual action
// (two interfaces on two VLANs) live inside the object; more go to a heap
// block, whose room clearing keeps for the next pass. No key word is 0: the
// words hold the keys followed by zeros, or else 0 and the heap block's
// address, size and room.
class UMONAT_EXPORT UmoNatflowActionSmKeys {
 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = UmoNatflowActionSmKey;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    const_iterator() = default;
    explicit const_iterator(const std::uint64_t* word) : word_(word) {}
    value_type operator*() const { return decode(*word_); }
    const_iterator& operator++() {
      ++word_;
      return *this;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    const std::uint64_t* word_ = nullptr;
  };

  static constexpr std::size_t kInline = 4;

  UmoNatflowActionSmKeys() = default;
  UmoNatflowActionSmKeys(const UmoNatflowActionSmKeys&) = delete;
  UmoNatflowActionSmKeys& operator=(const UmoNatflowActionSmKeys&) = delete;
  UmoNatflowActionSmKeys(UmoNatflowActionSmKeys&& o) noexcept : words_(o.words_) { o.words_ = {}; }
  UmoNatflowActionSmKeys& operator=(UmoNatflowActionSmKeys&& o) noexcept;
  ~UmoNatflowActionSmKeys() { release(); }

  const_iterator begin() const { return const_iterator(data()); }
  const_iterator end() const { return const_iterator(data() + size()); }
  std::size_t size() const;
  bool empty() const { return spilled() ? words_[2] == 0 : words_[0] == 0; }
  // Whether the keys live in a heap block.
  bool spilled() const { return words_[0] == 0 && words_[1] != 0; }

  // Inserts `key` in its place; returns false when it was there already.
  bool insert(const UmoNatflowActionSmKey& key);
  // Removes every key, keeping a heap block's room.
  void clear();

  // One key as a word, and back.
  static std::uint64_t encode(const UmoNatflowActionSmKey& key);
  static UmoNatflowActionSmKey decode(std::uint64_t word);

 private:
  static bool less(std::uint64_t a, std::uint64_t b);
  std::uint64_t* heap() const { return reinterpret_cast<std::uint64_t*>(words_[1]); }
  const std::uint64_t* data() const { return spilled() ? heap() : words_.data(); }
  void release() noexcept;

  std::array<std::uint64_t, kInline> words_{};
};

// An entry of the topology tracker's action index: the action state machines
// whose port sets were built from one key (an interface, a VLAN or a host MAC).
// The set holds plain, non-owning references in insertion order: the index
// never keeps an action state machine alive, and a dying one withdraws itself.
template <class Key>
class UmoNatflowActionSmEntry : public Mox::Entity {
 public:
  const Key& key() const { return key_; }
  const Mox::PtrSet<UmoNatFlowActionSm>& actionSm() const { return actionSm_; }
  // Inserts `actionSm`; inserting a member already there changes nothing.
  void actionSmIs(UmoNatFlowActionSm* actionSm) { actionSm_.is(actionSm); }
  void actionSmDel(UmoNatFlowActionSm* actionSm) { actionSm_.del(actionSm); }
  void actionSmDelAll() { actionSm_.delAll(); }

 protected:
  explicit UmoNatflowActionSmEntry(Key key) : key_(std::move(key)) {}

 private:
  Key key_;
  Mox::PtrSet<UmoNatFlowActionSm> actionSm_;
};

// Actions by physical or aggregate interface.
class UMONAT_EXPORT UmoNatflowActionSmIntf : public UmoNatflowActionSmEntry<Nexo::IntfId> {
 public:
  explicit UmoNatflowActionSmIntf(const Nexo::IntfId& intf);
  const Nexo::IntfId& intf() const { return key(); }
};

// Actions by VLAN.
class UMONAT_EXPORT UmoNatflowActionSmVlan : public UmoNatflowActionSmEntry<std::uint16_t> {
 public:
  explicit UmoNatflowActionSmVlan(std::uint16_t vlan);
  std::uint16_t vlan() const { return key(); }
};

// Actions by host MAC address.
class UMONAT_EXPORT UmoNatflowActionSmMac : public UmoNatflowActionSmEntry<Nexo::EthAddr> {
 public:
  explicit UmoNatflowActionSmMac(const Nexo::EthAddr& mac);
  const Nexo::EthAddr& mac() const { return key(); }
};

UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmIntf> UmoNatflowActionSmIntfIs(const Nexo::IntfId& intf);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmVlan> UmoNatflowActionSmVlanIs(std::uint16_t vlan);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmMac> UmoNatflowActionSmMacIs(const Nexo::EthAddr& mac);
// The same, for the type framework's generic construction.
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmIntf> umoNatflowActionSmIntfFactory(
    const Nexo::IntfId& intf);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmVlan> umoNatflowActionSmVlanFactory(std::uint16_t vlan);
UMONAT_EXPORT Mox::Ptr<UmoNatflowActionSmMac> umoNatflowActionSmMacFactory(
    const Nexo::EthAddr& mac);
