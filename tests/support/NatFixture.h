#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RecordingHelper.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMatchSm.h"
#include "UmoNat/UmoNatFlowMcastSm.h"
#include "UmoNat/UmoNatFlowPolicySm.h"
#include "Vyr/Task.h"

namespace UmoNatTest {

inline Nexo::IntfId intf(const char* name) { return Nexo::IntfId(name); }

// The inputs of the root, a recording helper and a fresh task scheduler; the
// root is started on demand and dropped at the end.
class NatFixture : public testing::Test {
 protected:
  NatFixture() { Vyr::TaskSchedulerRoot::schedulerIs(scheduler); }
  ~NatFixture() override {
    root.reset();
    Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
  }

  void start() {
    root = umoNatFlowMcastSmFactory(status, hwStatus, bridgingConfig, bridgingStatus, vlanStatusDir,
                                    brTopo, l3IntfTable, ipStatus, helper);
  }

  // A match whose flow has the destination `dst` ("0.0.0.0" for none).
  Mox::Ptr<Ip::Nat::NatFlowMatchStatus> matchIs(const char* policy, const char* match,
                                                const char* dst = "239.1.1.1") {
    auto m = status->natFlowIs(policy)->matchIs(match);
    const bool none = std::string(dst) == "0.0.0.0";
    m->flowIs(Ip::Nat::NatFlow(Nexo::IpAddr("10.0.0.0"), 0, 8, Nexo::IpAddr(dst), none ? 0 : 5000,
                               none ? 0 : 32));
    return m;
  }
  // An action with the translated destination `dst` ("0.0.0.0" for none).
  Mox::Ptr<Ip::Nat::NatFlowActionStatus> actionIs(const char* policy, const char* match,
                                                  const char* action, const char* dst = "0.0.0.0",
                                                  std::uint32_t version = 1) {
    auto a = status->natFlowIs(policy)->matchIs(match)->actionIs(action);
    a->dstIs(Nexo::IpAndPort(Nexo::IpAddr(dst), 0));
    a->versionIs(version);
    return a;
  }
  // VLAN `vlan` with members, an SVI "Vlan<vlan>" that is up, mapped to
  // topology `topo`.
  void vlanIs(std::uint16_t vlan, std::vector<const char*> members, const char* topo = "T") {
    auto status = vlanStatusDir->vlanStatusIs(Bridging::VlanId(vlan));
    for (const char* m : members) status->vlanPortStatusIs(intf(m), {});
    sviIs(vlan, true);
    brTopo->vidToTopoMapIs(Bridging::VlanId(vlan), brTopo->topoConfigIs(topo));
  }
  void sviIs(std::uint16_t vlan, bool up) {
    const Nexo::IntfId svi("Vlan" + std::to_string(vlan));
    l3IntfTable->intfL3IndexIs(svi, vlan);
    l3IntfTable->routedPortNameIs(vlan, svi);
    auto ip = ipStatus->ipIntfStatusIs(svi);
    ip->routingIs(true);
    ip->addrWithMaskIs(up ? Nexo::IpAddrWithMask("10.0.0.1/24") : Nexo::IpAddrWithMask());
  }
  void portIs(const char* name, Bridging::Topology::PortState state,
              Bridging::SwitchportMode mode = Bridging::SwitchportMode::trunk,
              std::uint16_t native = 1, const char* topo = "T") {
    auto sic = bridgingConfig->switchIntfConfigIs(intf(name));
    sic->switchportModeIs(mode);
    sic->nativeVlanIs(native);
    brTopo->topoConfigIs(topo)->topoPortConfigIs(intf(name))->portStateIs(state);
  }
  Mox::Ptr<const Ip::Nat::HwNatFlowMatchStatus> hwMatch(const char* policy, const char* match) {
    auto p = hwStatus->natFlow(policy);
    return p ? p->match(match) : nullptr;
  }
  UmoNatFlowMatchSm* matchSm(const char* policy, const char* match) {
    auto p = root->policySm().find(policy);
    return p ? p->matchSm().find(match).get() : nullptr;
  }
  UmoNatFlowMcastTopologySm* topo() { return root->topologySm(); }
  UmoNatFlowActionSm* actionSm(const char* policy, const char* match, const char* action) {
    auto* m = matchSm(policy, match);
    return m ? m->actionSm().find(action).get() : nullptr;
  }

  Mox::Ptr<Vyr::TaskScheduler> scheduler = Mox::makePtr<Vyr::TaskScheduler>();
  Mox::Ptr<Ip::Nat::Status> status = Mox::makePtr<Ip::Nat::Status>();
  Mox::Ptr<Ip::Nat::HwNatFlowStatus> hwStatus = Mox::makePtr<Ip::Nat::HwNatFlowStatus>();
  Mox::Ptr<Bridging::Config> bridgingConfig = Mox::makePtr<Bridging::Config>();
  Mox::Ptr<Bridging::Status> bridgingStatus = Mox::makePtr<Bridging::Status>();
  Mox::Ptr<Bridging::VlanStatusDir> vlanStatusDir = Mox::makePtr<Bridging::VlanStatusDir>();
  Mox::Ptr<Bridging::Topology::Config> brTopo = Mox::makePtr<Bridging::Topology::Config>();
  Mox::Ptr<UmoL3Intf::Table> l3IntfTable = Mox::makePtr<UmoL3Intf::Table>();
  Mox::Ptr<Ip::Status> ipStatus = Mox::makePtr<Ip::Status>();
  Mox::Ptr<RecordingHelper> helper = Mox::makePtr<RecordingHelper>();
  Mox::Ptr<UmoNatFlowMcastSm> root;
};

}  // namespace UmoNatTest
