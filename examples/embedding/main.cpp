// Embedding UmoNat as a switch's forwarding agent does: the agent owns the inputs (NAT policies,
// bridging, topology, IP and L3 state), the hardware status tree the system writes and a
// chip-specific hardware helper; it creates the system with the root factory, registers its show
// command, runs the event loop's timers and tears the system down.
//
// The helper here is a tiny chip of our own: it hands out ids and prints every call.

#include <cstdio>
#include <map>
#include <string>
#include <utility>

#include "Agent/AgentCommandCallback.h"
#include "Bridging/Config.h"
#include "Bridging/Topology.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Ip/Status.h"
#include "Mox/Ptr.h"
#include "UmoL3Intf/Table.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowMcastSmCli.h"
#include "UmoNat/UmoNatModule.h"
#include "Vyr/Task.h"

namespace {

// 1. The hardware helper: the system's only way to the chip.
class PrintingChip : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  PrintingChip() : UmoHelper::UmoNatFlowMcastHelper("PrintingChip") {}

  std::uint32_t createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                   bool unicast) override {
    const std::uint32_t id = ++lastGroup_;
    std::printf("chip: group %u for %s/%s (%s)\n", id, policy.str().c_str(), match.str().c_str(),
                unicast ? "unicast" : "multicast");
    return id;
  }
  void deleteNatFlowGroup(const Pelo::String& /*policy*/, const Pelo::String& /*match*/,
                          std::uint32_t groupId) override {
    std::printf("chip: free group %u\n", groupId);
  }
  std::uint32_t updateNatFlowVlanPortSet(
      std::uint32_t groupId, std::uint32_t portSetId,
      const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) override {
    const std::uint32_t id = portSetId != 0 ? portSetId : ++lastPortSet_[groupId];
    std::string intfs;
    for (const auto& [intf, member] : ps->intf()) intfs += " " + intf.name().str();
    std::printf("chip: group %u port set %u: vlan %u, ports%s\n", groupId, id, ps->vlan(),
                intfs.c_str());
    return id;
  }
  void deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) override {
    std::printf("chip: group %u port set %u removed\n", groupId, portSetId);
  }
  bool updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                   const Nexo::IpAndPort& /*dstFlow*/, std::uint32_t /*pfxLen*/,
                                   const Nexo::EthAddr& /*dmac*/) override {
    std::printf("chip: group %u port set %u: destination to %s on vlan %u\n", groupId, portSetId,
                dstNat.stringValue().str().c_str(), vlan);
    return true;
  }
  void deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) override {
    std::printf("chip: group %u port set %u: destination translation removed\n", groupId,
                portSetId);
  }

 private:
  std::uint32_t lastGroup_ = 0;
  std::map<std::uint32_t, std::uint32_t> lastPortSet_;
};

Nexo::IntfId intf(const char* name) { return Nexo::IntfId(Pelo::String(name)); }

}  // namespace

int main() {
  std::printf("UmoNat %s\n", UmoNat::version());

  // 2. The event loop's timers: one scheduler for the process, on a virtual clock here.
  auto scheduler = Mox::makePtr<Vyr::TaskScheduler>("agent");
  Vyr::TaskSchedulerRoot::schedulerIs(scheduler);

  // 3. The inputs the agent publishes, and the status tree the system writes.
  auto natStatus = Mox::makePtr<Ip::Nat::Status>();
  auto hwStatus = Mox::makePtr<Ip::Nat::HwNatFlowStatus>();
  auto bridgingConfig = Mox::makePtr<Bridging::Config>();
  auto bridgingStatus = Mox::makePtr<Bridging::Status>();
  auto vlans = Mox::makePtr<Bridging::VlanStatusDir>();
  auto topology = Mox::makePtr<Bridging::Topology::Config>();
  auto l3Table = Mox::makePtr<UmoL3Intf::Table>();
  auto ipStatus = Mox::makePtr<Ip::Status>();

  // A switch: Ethernet1 and Ethernet2 in VLAN 20, both forwarding, and VLAN 20 routed.
  bridgingConfig->bridgeMacAddrIs(Nexo::EthAddr(0x00, 0x1c, 0x73, 0x00, 0x00, 0x01));
  auto vlan20 = vlans->vlanStatusIs(Bridging::VlanId(20));
  auto mst0 = topology->topoConfigIs(Pelo::String("MST0"));
  for (const char* name : {"Ethernet1", "Ethernet2"}) {
    auto sw = bridgingConfig->switchIntfConfigIs(intf(name));
    sw->switchportModeIs(Bridging::SwitchportMode::access);
    sw->nativeVlanIs(Bridging::VlanIdOrNone(20));
    vlan20->vlanPortStatusIs(intf(name), Bridging::VlanPortStatus());
    mst0->topoPortConfigIs(intf(name))->portStateIs(Bridging::Topology::PortState::forwarding);
  }
  topology->vidToTopoMapIs(Bridging::VlanId(20), mst0);
  auto vlanIntf = ipStatus->ipIntfStatusIs(intf("Vlan20"));
  vlanIntf->addrWithMaskIs(Nexo::IpAddrWithMask("10.0.20.1/24"));
  vlanIntf->routingIs(true);
  l3Table->intfL3IndexIs(intf("Vlan20"), 20);
  l3Table->routedPortNameIs(20, intf("Vlan20"));

  // One policy: the stream 239.1.1.1:5000 from 10.1.0.0/16, re-addressed to 239.100.1.1 and
  // sent to every port of VLAN 20 (a next hop through the VLAN interface).
  auto match = natStatus->natFlowIs(Pelo::String("video"))->matchIs(Pelo::String("news"));
  match->flowIs(Ip::Nat::NatFlow(Nexo::IpAddr("10.1.0.0"), 0, 16, Nexo::IpAddr("239.1.1.1"), 5000,
                                 32));
  auto action = match->actionIs(Pelo::String("mcast"));
  action->dstIs(Nexo::IpAndPort("239.100.1.1:0"));
  action->intfIs(intf("Vlan20"), Ip::Nat::NatFlowNextHop(20, Nexo::EthAddr()));
  action->versionIs(1);

  // 4. The system: the root factory scans the inputs and programs the chip.
  auto chip = Mox::makePtr<PrintingChip>();
  std::printf("-- start\n");
  auto root = umoNatFlowMcastSmFactory(natStatus, hwStatus, bridgingConfig, bridgingStatus, vlans,
                                       topology, l3Table, ipStatus, chip);

  // 5. The show command, registered with the agent's command framework; its output goes to the
  // requester's descriptor (standard output here).
  Agent::CommandRegistry commands;
  commands.callbackIs(umoNatFlowMcastSmCliCallbackFactory(
      Pelo::String("showNatFlowActionHw"), Pelo::String("Show the NAT flow actions in hardware"),
      hwStatus));
  std::fflush(stdout);
  commands.dispatch(1, Pelo::String("showNatFlowActionHw"));

  // 6. A topology change: Ethernet2 stops forwarding. The system queues the actions that use it
  // and reprograms them when its backlog task runs on the event loop's timers.
  std::printf("-- Ethernet2 blocking\n");
  mst0->topoPortConfigIs(intf("Ethernet2"))->portStateIs(Bridging::Topology::PortState::blocking);
  scheduler->runUntilIdle();
  std::fflush(stdout);
  commands.dispatch(1, Pelo::String("showNatFlowActionHw"));

  // 7. Teardown: dropping the root frees what the system holds in the chip.
  std::printf("-- stop\n");
  commands.callbackDel(Pelo::String("showNatFlowActionHw"));
  root.reset();
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
  return hwStatus->natFlow().size() == 0 ? 0 : 1;
}
