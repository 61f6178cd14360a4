#include "BenchSupport.h"

#include "UmoNat/UmoNatFlowActionSm.h"

#include <malloc.h>

#include "Mox/Pool.h"

namespace UmoNatBench {

namespace {

std::string port(std::size_t i) { return "Ethernet" + std::to_string(i % 48 + 1); }

}  // namespace

Switch::Switch(std::size_t actions, std::size_t special, std::size_t actionsPerMatch)
    : scheduler(Mox::makePtr<Vyr::TaskScheduler>()),
      status(Mox::makePtr<Ip::Nat::Status>()),
      hwStatus(Mox::makePtr<Ip::Nat::HwNatFlowStatus>()),
      bridgingConfig(Mox::makePtr<Bridging::Config>()),
      bridgingStatus(Mox::makePtr<Bridging::Status>()),
      vlanStatusDir(Mox::makePtr<Bridging::VlanStatusDir>()),
      brTopo(Mox::makePtr<Bridging::Topology::Config>()),
      l3IntfTable(Mox::makePtr<UmoL3Intf::Table>()),
      ipStatus(Mox::makePtr<Ip::Status>()),
      helper(Mox::makePtr<CountingHelper>()) {
  Vyr::TaskSchedulerRoot::schedulerIs(scheduler);
  auto topo = brTopo->topoConfigIs("T");
  for (std::uint16_t vlan : {10, 20, 30}) {
    auto vs = vlanStatusDir->vlanStatusIs(Bridging::VlanId(vlan));
    for (std::size_t p = 0; p < 48; ++p) vs->vlanPortStatusIs(Nexo::IntfId(port(p)), {});
    vs->vlanPortStatusIs(Nexo::IntfId("Ethernet49"), {});
    const Nexo::IntfId svi("Vlan" + std::to_string(vlan));
    l3IntfTable->intfL3IndexIs(svi, vlan);
    l3IntfTable->routedPortNameIs(vlan, svi);
    auto ip = ipStatus->ipIntfStatusIs(svi);
    ip->routingIs(true);
    ip->addrWithMaskIs(Nexo::IpAddrWithMask("10.0.0.1/24"));
    brTopo->vidToTopoMapIs(Bridging::VlanId(vlan), topo);
  }
  for (std::size_t p = 0; p < 49; ++p) {
    const Nexo::IntfId intf("Ethernet" + std::to_string(p + 1));
    bridgingConfig->switchIntfConfigIs(intf)->switchportModeIs(Bridging::SwitchportMode::trunk);
    topo->topoPortConfigIs(intf)->portStateIs(Bridging::Topology::PortState::forwarding);
  }
  auto policy = status->natFlowIs("P");
  for (std::size_t i = 0; i < actions; ++i) {
    auto match = policy->matchIs("M" + std::to_string(i / actionsPerMatch));
    match->flowIs(
        Ip::Nat::NatFlow(Nexo::IpAddr("10.0.0.0"), 0, 8, Nexo::IpAddr("239.1.1.1"), 5000, 32));
    auto action = match->actionIs("A" + std::to_string(i));
    action->srcIs(Nexo::IpAndPort("1.1.1.1:0"));
    action->dstIs(Nexo::IpAndPort(Nexo::IpAddr(0xEF020000u + static_cast<std::uint32_t>(i)), 0));
    action->intfIs(Nexo::IntfId(i < special ? std::string("Ethernet49") : port(i)),
                   Ip::Nat::NatFlowNextHop(10, Nexo::EthAddr("00:00:00:00:00:01")));
    action->intfIs(Nexo::IntfId(port(i + 7)),
                   Ip::Nat::NatFlowNextHop(20, Nexo::EthAddr("00:00:00:00:00:01")));
    action->versionIs(1);
  }
}

Switch::~Switch() {
  root.reset();
  status->natFlowDelAll();
  helper.reset();
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
}

void Switch::start() {
  root = umoNatFlowMcastSmFactory(status, hwStatus, bridgingConfig, bridgingStatus, vlanStatusDir,
                                  brTopo, l3IntfTable, ipStatus, helper);
}

std::vector<UmoNatFlowActionSm*> Switch::actionSms() const {
  std::vector<UmoNatFlowActionSm*> actions;
  for (const auto& [name, policy] : root->policySm()) {
    for (const auto& [m, match] : policy->matchSm()) {
      for (const auto& [a, action] : match->actionSm()) actions.push_back(action.get());
    }
  }
  return actions;
}

std::size_t Switch::heapInUse() {
  // malloc's bytes in use count the pool's chunks whole; count its live blocks instead, as
  // malloc counts its own live chunks and not its free ones.
  const Mox::PoolStats pool = Mox::poolStats();
  return mallinfo2().uordblks - pool.chunkBytes + static_cast<std::size_t>(pool.liveBlockBytes);
}

}  // namespace UmoNatBench
