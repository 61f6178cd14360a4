// Programming of one NAT action: its software port sets from the topology,
// its hardware port sets, and its source and destination translations.

#include "Mox/Assert.h"
#include "Mox/Trace.h"
#include "UmoNat/UmoNatFlowActionSm.h"
#include "UmoNat/UmoNatFlowMcastTopologySm.h"

namespace {

constinit Mox::TraceHandle traceHandle("UmoNatFlowActionSm");

using Ip::Nat::NatFlowType;

// The destination MAC of multicast copies.
constexpr Nexo::EthAddr kMcastMac(0x01, 0x00, 0x5e, 0x00, 0x00, 0x00);

const char* kind(bool unicast) { return unicast ? "ucast" : "mcast"; }

std::uint32_t idIn(const Ip::Nat::NatFlowPortSet& ps, bool portSetId2) {
  return portSetId2 ? ps.portSetId2() : ps.portSetId();
}

// Calls `each(vlan, portSet, psId)` for every port set of one kind in `vps`,
// with its id in the group, which the port-set step has set.
template <class Each>
void forEachPortSet(const Ip::Nat::NatFlowVlanPortSets& vps, bool unicast, bool portSetId2,
                    Each each) {
  for (const auto& [vlan, ps] : unicast ? vps.ucastPortSet() : vps.mcastPortSet()) {
    const std::uint32_t psId = idIn(*ps, portSetId2);
    MOX_ASSERT(psId);
    each(vlan, *ps, psId);
  }
}

// The same interfaces, in whatever order.
bool sameIntfs(const Ip::Nat::NatFlowPortSet& a, const Ip::Nat::NatFlowPortSet& b) {
  if (a.intf().size() != b.intf().size()) return false;
  for (const auto& [intf, present] : a.intf()) {
    if (!b.intf(intf)) return false;
  }
  return true;
}

// Tells a dry computation's probe that a physical next hop went into a port
// set. A live computation has no trace line for this: the caller adds the
// interface itself after the checks that it traces.
void reportAdded(UmoNatFlowPortSetProbe* probe, bool unicast, const Nexo::IntfId& intf,
                 std::uint16_t vlan) {
  if (probe == nullptr) return;
  std::ostringstream text;
  text << "Added intf " << intf << " in port set of vlan " << vlan;
  probe->step(UmoNatFlowPortSetProbe::Step::added, traceHandle.name(), 6, text.str());
  probe->member(unicast, vlan, intf);
}

}  // namespace

#define ACTION_HEAD(fn)                                                        \
  "UmoNatFlowActionSm::" fn ", policy: " << policy() << ", match: " << match() \
                                         << ", action: " << action()

void UmoNatFlowActionSm::updateSwPortSet(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps) {
  const NatFlowType ft = hwActionStatus_->flowType();
  MOX_TRACE(traceHandle, 2, ACTION_HEAD("updateSwPortSet") << ", ft: " << ft);
  MOX_ASSERT(initialized());
  MOX_ASSERT(actionStatus()->version());
  // The walk below registers the action again under every key it uses.
  topologySm()->delActionSm(this);
  fillSwPortSet(*vps, ft, nullptr);
}

void UmoNatFlowActionSm::computeSwPortSet(Ip::Nat::NatFlowVlanPortSets& vps, NatFlowType ft,
                                          UmoNatFlowPortSetProbe& probe) const {
  MOX_ASSERT(initialized() && actionStatus()->version());
  // A dry computation neither registers this machine anywhere nor changes it.
  const_cast<UmoNatFlowActionSm*>(this)->fillSwPortSet(vps, ft, &probe);
}

// Each step is traced, or in a dry computation reported to the probe.
#define STEP(level, kind, streamExpr) UMONAT_PROBE_STEP(probe, traceHandle, level, kind, streamExpr)

void UmoNatFlowActionSm::fillSwPortSet(Ip::Nat::NatFlowVlanPortSets& vps, NatFlowType ft,
                                       UmoNatFlowPortSetProbe* probe) {
  const bool ucast = ft != NatFlowType::natFlowTypeMulticast;
  const bool mcast = ft != NatFlowType::natFlowTypeUnicast;

  if (actionStatus_->intf().empty()) {
    // Recirculation: one unicast port set on the recirculation VLAN, whatever
    // the flow type.
    const std::uint16_t vlan = topologySm()->natFlowRecircVlan();
    STEP(2, nextHop, "Intf: recirc, vlan: " << vlan);
    auto ps = vps.ucastPortSetIs(vlan);
    MOX_ASSERT(ps);
    ps->intfIs(Nexo::IntfId(""));
    ps->dmacIs(bridgingConfig() ? bridgingConfig()->bridgeMacAddr() : Nexo::EthAddr());
    if (probe == nullptr) {
      topologySm()->addActionSmRecirc(this);
    } else {
      probe->member(true, vlan, Nexo::IntfId(""));
    }
    return;
  }

  for (const auto& [intf, nextHop] : actionStatus_->intf()) {
    const Ip::Nat::NatFlowNextHop* iter = &nextHop;
    STEP(2, nextHop, "Intf: " << intf << ", vlan: " << iter->vlan() << ", mac: " << iter->mac());
    if (Nexo::VlanIntfId::isVlanIntfId(intf)) {
      const std::uint16_t vid = Nexo::VlanIntfId::vlanId(intf);
      if (vid == 0 || vid == 4095) {
        STEP(2, refused, "Invalid vlan");
        continue;
      }
      if (ucast && !topologySm()->addSviPorts(vid, iter->mac(), &vps, true, this, probe)) {
        // No multicast attempt either.
        STEP(2, refused, "Invalid or empty vlan");
        continue;
      }
      if (mcast && !topologySm()->addSviPorts(vid, kMcastMac, &vps, false, this, probe)) {
        STEP(2, refused, "Invalid or empty vlan");
      }
      continue;
    }
    const std::uint16_t vlan = topologySm()->addPhysicalPort(intf, iter->vlan(), this, probe);
    if (vlan == 0) {
      STEP(2, refused, "Invalid vlan or port state");
      continue;
    }
    STEP(2, check, "PortSet intf: " << intf << ", vlan: " << vlan);
    if (ucast) {
      // A unicast flow's physical next hop always has a MAC; one of a flow
      // without a destination may not, and then there is no host to send to.
      if (ft != NatFlowType::natFlowTypeUnicast && iter->mac().isZero()) {
        STEP(2, refused, "Invalid mac (" << iter->mac() << ") for the intf, skip intf");
        continue;
      }
      auto ps = vps.ucastPortSetIs(vlan);
      MOX_ASSERT(ps);
      MOX_ASSERT(iter->mac() != Nexo::EthAddr::ethAddrZero());
      // One destination MAC per unicast port set: the first next hop wins.
      if (!ps->dmac().isZero() && ps->dmac() != iter->mac()) {
        STEP(2, refused,
             "Different mac (" << ps->dmac() << ") already found in the vlan, skip intf");
        continue;
      }
      ps->intfIs(intf);
      ps->dmacIs(iter->mac());
      reportAdded(probe, true, intf, vlan);
    }
    if (mcast) {
      auto ps = vps.mcastPortSetIs(vlan);
      MOX_ASSERT(ps);
      ps->intfIs(intf);
      ps->dmacIs(kMcastMac);
      reportAdded(probe, false, intf, vlan);
    }
  }
}

#undef STEP

void UmoNatFlowActionSm::updateHwPortSet(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps) {
  const NatFlowType ft = hwActionStatus_->flowType();
  MOX_TRACE(traceHandle, 2, ACTION_HEAD("updateHwPortSet") << ", ft: " << ft);
  if (!initialized_ || version() == 0) return;
  MOX_ASSERT(matchSmStatus()->groupNum());
  for (const GroupUse& use : groupUses(ft)) {
    updateHwPortSetGroup(vps, use.group, use.unicast, use.portSetId2);
  }
}

void UmoNatFlowActionSm::updateHwPortSetGroup(const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets>& vps,
                                              std::uint32_t group, bool unicast, bool portSetId2) {
  MOX_TRACE(traceHandle, 2,
            "UmoNatFlowActionSm::updateHwPortSetGroup, group: " << group << ", unicast: " << unicast
                                                                << ", portSetId2: " << portSetId2);
  if (!initialized_ || version() == 0 || group == 0) return;
  const auto& hw = hwActionStatus_;
  const Mox::Ptr<Ip::Nat::NatFlowVlanPortSets> old = hw->vlanPortSets();
  auto portSetsOf = [unicast](const Ip::Nat::NatFlowVlanPortSets& sets) {
    return unicast ? sets.ucastPortSet() : sets.mcastPortSet();
  };

  // Port sets that are gone take their translations with them.
  if (old) {
    for (const auto& [vlan, ps] : portSetsOf(*old)) {
      const std::uint32_t id = idIn(*ps, portSetId2);
      if (id == 0 || (vps && portSetsOf(*vps).contains(vlan))) continue;
      helper()->deleteNatFlowVlanPortSet(group, id);
      // Gone from the chip: should a later call of this step fail, the
      // recorded port set no longer claims the id.
      auto gone = unicast ? old->ucastPortSetIs(vlan) : old->mcastPortSetIs(vlan);
      if (portSetId2) {
        gone->portSetId2Is(0);
      } else {
        gone->portSetIdIs(0);
      }
      if (!hw->srcNat().ip().isZero()) helper()->deleteNatFlowSrcTranslation(group, id);
      if (unicast || !hw->dstNat().ip().isZero()) helper()->deleteNatFlowDstTranslation(group, id);
    }
  }
  if (!vps) return;

  const bool actionSrc = !actionStatus_->src().ip().isZero();
  const bool actionDst = !actionStatus_->dst().ip().isZero();
  for (const auto& [vlan, constPs] : portSetsOf(*vps)) {
    auto ps = unicast ? vps->ucastPortSetIs(vlan) : vps->mcastPortSetIs(vlan);
    bool change = true;
    bool dmacChange = false;
    bool newVlan = false;
    std::uint32_t id = 0;
    if (old) {
      // With no previous port sets (first pass, or after a reset) nothing
      // counts as a new VLAN: the translation step programs everything.
      auto oldPs = portSetsOf(*old).find(vlan);
      if (!oldPs) {
        newVlan = true;
      } else {
        id = idIn(*oldPs, portSetId2);
        change = !sameIntfs(*ps, *oldPs);
        if (unicast) dmacChange = oldPs->dmac() != ps->dmac();
      }
    }
    if (unicast) {
      MOX_TRACE(traceHandle, 2,
                "Update ucast portSet, group: " << group << ", portSetId: " << id
                                                << ", vlan: " << vlan << ", change: " << change
                                                << ", dmacChange: " << dmacChange
                                                << ", newVlan: " << newVlan);
    } else {
      MOX_TRACE(traceHandle, 2,
                "Update mcast portSet, group: " << group << ", portSetId: " << id
                                                << ", vlan: " << vlan << ", change: " << change
                                                << ", newVlan: " << newVlan);
    }
    if (change) {
      id = helper()->updateNatFlowVlanPortSet(group, id, ps);
      MOX_TRACE(traceHandle, 2, "New portSetId: " << id);
    }
    // Also when nothing changed, so that ids carry over from pass to pass.
    if (portSetId2) {
      ps->portSetId2Is(id);
    } else {
      ps->portSetIdIs(id);
    }
    // Translations of port sets new in the group, with the values recorded for
    // the action's other port sets.
    const bool dst = unicast ? newVlan || dmacChange : newVlan && actionDst;
    if (dst) {
      MOX_TRACE(traceHandle, 2, "Update dst translation");
      helper()->updateNatFlowDstTranslation(group, id, vlan, hw->dstNat(), hw->dstFlow(),
                                            hw->dstLen(), ps->dmac());
    }
    if (newVlan && actionSrc) {
      MOX_TRACE(traceHandle, 2, "Update src translation");
      helper()->updateNatFlowSrcTranslation(group, id, vlan, hw->srcNat(), hw->srcFlow(),
                                            hw->srcLen());
    }
  }
}

void UmoNatFlowActionSm::keepProgrammedPortSets(Ip::Nat::NatFlowVlanPortSets& vps) const {
  const auto old = hwActionStatus_->vlanPortSets();
  if (!old) return;
  for (const bool unicast : {true, false}) {
    for (const auto& [vlan, oldPs] : unicast ? old->ucastPortSet() : old->mcastPortSet()) {
      if (oldPs->portSetId() == 0 && oldPs->portSetId2() == 0) continue;
      const bool had =
          unicast ? vps.ucastPortSet().contains(vlan) : vps.mcastPortSet().contains(vlan);
      auto ps = unicast ? vps.ucastPortSetIs(vlan) : vps.mcastPortSetIs(vlan);
      if (!had) {
        for (const auto& [intf, present] : oldPs->intf()) ps->intfIs(intf);
        ps->dmacIs(oldPs->dmac());
      }
      if (ps->portSetId() == 0) ps->portSetIdIs(oldPs->portSetId());
      if (ps->portSetId2() == 0) ps->portSetId2Is(oldPs->portSetId2());
    }
  }
}

void UmoNatFlowActionSm::updateHwTranslation() {
  const NatFlowType ft = hwActionStatus_->flowType();
  const Ip::Nat::NatFlow& flow = hwMatchStatus()->flow();
  MOX_TRACE(traceHandle, 2,
            ACTION_HEAD("updateHwTranslation")
                << ", flow: " << flow << ", src: " << actionStatus_->src()
                << ", dst: " << actionStatus_->dst() << ", ft: " << ft);
  if (!initialized_ || version() == 0) return;
  // Without its groups nothing is recorded: a later pass programs it all.
  if (hwMatchStatus()->groupIdUc() == 0) return;
  if (matchSmStatus()->groupNum() == 2 && hwMatchStatus()->groupIdMc() == 0) return;
  const auto& hw = hwActionStatus_;
  const auto uses = groupUses(ft);

  // Only the address of the programmed source is compared, not its port.
  const bool srcSame = hw->srcFlow() == flow.src() && hw->srcLen() == flow.srcPrefixLen() &&
                       hw->srcNat().ip() == actionStatus_->src().ip();
  if (!srcSame) {
    for (const GroupUse& use : uses) updateHwTranslationSrc(use.group, use.unicast, use.portSetId2);
    hw->srcFlowIs(flow.src());
    hw->srcLenIs(flow.srcPrefixLen());
    hw->srcNatIs(actionStatus_->src());
  }
  const bool dstSame = hw->dstFlow() == flow.dst() && hw->dstLen() == flow.dstPrefixLen() &&
                       hw->dstNat().ip() == actionStatus_->dst().ip();
  if (dstSame) return;
  for (const GroupUse& use : uses) updateHwTranslationDst(use.group, use.unicast, use.portSetId2);
  hw->dstFlowIs(flow.dst());
  hw->dstLenIs(flow.dstPrefixLen());
  hw->dstNatIs(actionStatus_->dst());
}

void UmoNatFlowActionSm::updateHwTranslationSrc(std::uint32_t group, bool unicast,
                                                bool portSetId2) {
  MOX_TRACE(traceHandle, 2,
            "UmoNatFlowActionSm::updateHwTranslationSrc, group: "
                << group << ", unicast: " << unicast << ", portSetId2: " << portSetId2);
  MOX_ASSERT(initialized() && actionStatus()->version());
  MOX_ASSERT(group);
  const auto& vps = hwActionStatus_->vlanPortSets();
  MOX_ASSERT(vps);
  const Ip::Nat::NatFlow& flow = hwMatchStatus()->flow();
  const Nexo::IpAndPort& src = actionStatus_->src();
  const bool update = !src.ip().isZero();
  if (!update && hwActionStatus_->srcNat().ip().isZero()) return;
  forEachPortSet(*vps, unicast, portSetId2, [&](std::uint16_t vlan, auto&, std::uint32_t psId) {
    MOX_TRACE(traceHandle, 2,
              (update ? "Update " : "Delete ")
                  << kind(unicast) << " src translation, group: " << group << ", vlan: " << vlan
                  << ", portSetId: " << psId);
    if (update) {
      helper()->updateNatFlowSrcTranslation(group, psId, vlan, src, flow.src(),
                                            flow.srcPrefixLen());
    } else {
      helper()->deleteNatFlowSrcTranslation(group, psId);
    }
  });
}

void UmoNatFlowActionSm::updateHwTranslationDst(std::uint32_t group, bool unicast,
                                                bool portSetId2) {
  MOX_TRACE(traceHandle, 2,
            "UmoNatFlowActionSm::updateHwTranslationDst, group: "
                << group << ", unicast: " << unicast << ", portSetId2: " << portSetId2);
  MOX_ASSERT(initialized() && actionStatus()->version());
  MOX_ASSERT(group);
  const auto& vps = hwActionStatus_->vlanPortSets();
  MOX_ASSERT(vps);
  const Ip::Nat::NatFlow& flow = hwMatchStatus()->flow();
  const Nexo::IpAndPort& dst = actionStatus_->dst();
  // Every unicast port set always has a destination translation (it carries
  // the port set's MAC); multicast ones only with a destination to translate.
  const bool update = unicast || !dst.ip().isZero();
  if (!update && hwActionStatus_->dstNat().ip().isZero()) return;
  forEachPortSet(*vps, unicast, portSetId2, [&](std::uint16_t vlan, auto& ps, std::uint32_t psId) {
    MOX_TRACE(traceHandle, 2,
              (update ? "Update " : "Delete ")
                  << kind(unicast) << " dst translation, group: " << group << ", vlan: " << vlan
                  << ", portSetId: " << psId);
    if (update) {
      helper()->updateNatFlowDstTranslation(group, psId, vlan, dst, flow.dst(), flow.dstPrefixLen(),
                                            ps.dmac());
    } else {
      helper()->deleteNatFlowDstTranslation(group, psId);
    }
  });
}
