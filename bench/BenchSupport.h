#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Allocations.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "Vyr/Task.h"

class UmoNatFlowActionSm;

namespace UmoNatBench {

// A chip with no limits that counts calls and hands out ids: the cost of
// the hardware is not what the benchmarks measure.
class CountingHelper : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  CountingHelper() : UmoHelper::UmoNatFlowMcastHelper("CountingHelper") {}
  std::uint32_t createNatFlowGroup(const Pelo::String&, const Pelo::String&, bool) override {
    ++calls;
    return ++nextGroup;
  }
  void deleteNatFlowGroup(const Pelo::String&, const Pelo::String&, std::uint32_t) override {
    ++calls;
  }
  std::uint32_t updateNatFlowVlanPortSet(std::uint32_t, std::uint32_t id,
                                         const Mox::Ptr<const Ip::Nat::NatFlowPortSet>&) override {
    ++calls;
    return id != 0 ? id : ++nextPortSet;
  }
  void deleteNatFlowVlanPortSet(std::uint32_t, std::uint32_t) override { ++calls; }
  bool updateNatFlowSrcTranslation(std::uint32_t, std::uint32_t, std::uint16_t,
                                   const Nexo::IpAndPort&, const Nexo::IpAndPort&,
                                   std::uint32_t) override {
    ++calls;
    return true;
  }
  void deleteNatFlowSrcTranslation(std::uint32_t, std::uint32_t) override { ++calls; }
  bool updateNatFlowDstTranslation(std::uint32_t, std::uint32_t, std::uint16_t,
                                   const Nexo::IpAndPort&, const Nexo::IpAndPort&, std::uint32_t,
                                   const Nexo::EthAddr&) override {
    ++calls;
    return true;
  }
  void deleteNatFlowDstTranslation(std::uint32_t, std::uint32_t) override { ++calls; }

  std::uint64_t calls = 0;
  std::uint32_t nextGroup = 0;
  std::uint32_t nextPortSet = 0;
};

// A switch with VLANs 10, 20 and 30 whose members Ethernet1..48 all forward in
// one topology, with an SVI up for each VLAN, and NAT actions in matches of
// ten actions each (`actionsPerMatch`). Action i egresses on Ethernet(i % 48 + 1) in VLAN 10 and
// on Ethernet((i + 7) % 48 + 1) in VLAN 20: two port sets each. The first
// `special` actions use Ethernet49 instead of their VLAN 10 port, so that an
// event on Ethernet49 touches exactly them.
struct Switch {
  explicit Switch(std::size_t actions, std::size_t special = 0, std::size_t actionsPerMatch = 10);
  ~Switch();
  void start();
  // Every action state machine of the started system, in policy, match and action order.
  std::vector<UmoNatFlowActionSm*> actionSms() const;
  // Heap bytes in use, from the allocator.
  static std::size_t heapInUse();

  Mox::Ptr<Vyr::TaskScheduler> scheduler;
  Mox::Ptr<Ip::Nat::Status> status;
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwStatus;
  Mox::Ptr<Bridging::Config> bridgingConfig;
  Mox::Ptr<Bridging::Status> bridgingStatus;
  Mox::Ptr<Bridging::VlanStatusDir> vlanStatusDir;
  Mox::Ptr<Bridging::Topology::Config> brTopo;
  Mox::Ptr<UmoL3Intf::Table> l3IntfTable;
  Mox::Ptr<Ip::Status> ipStatus;
  Mox::Ptr<CountingHelper> helper;
  Mox::Ptr<UmoNatFlowMcastSm> root;
};

}  // namespace UmoNatBench
