#pragma once

#include <cstdint>

#include "Ip/Nat/HwStatus.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IpAddr.h"
#include "Pelo/String.h"
#include "UmoNat/UmoNatExport.h"

namespace UmoHelper {

// The system's only way to the forwarding hardware. The agent supplies a
// chip-specific subclass to the root factory; every match and action state
// machine shares it. This class itself does nothing: every operation has a
// do-nothing default, so the library runs (and is tested) with no hardware.
//
// The helper reports failure only through its results and raises nothing. It
// is called from the agent's event loop only.
class UMONAT_EXPORT UmoNatFlowMcastHelper : public Mox::Entity {
 public:
  explicit UmoNatFlowMcastHelper(const Pelo::String& name);

  // Allocates a NAT flow group for a match: `unicast` is true for the unicast
  // group of a match that needs two groups, false otherwise. Returns the group
  // id, owned by the match until it deletes it, or 0 when no group is free (the
  // caller retries later). Default: 0.
  virtual std::uint32_t createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                           bool unicast);
  // Frees a group that createNatFlowGroup returned for the same policy and
  // match. Called once per distinct group id, never with 0.
  virtual void deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                  std::uint32_t groupId);
  // Programs the port set `ps` into group `groupId`. `portSetId` is the id the
  // port set already has in this group, or 0 for a port set new to it. Returns
  // the id under which the port set is now programmed; the caller keeps it.
  // Default: 0.
  virtual std::uint32_t updateNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId,
                                                 const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps);
  // Removes a port set from a group.
  virtual void deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId);
  // Attaches a source translation to a port set of a group: packets of the
  // flow's source `srcFlow` (prefix length `pfxLen`) leaving on `vlan` get the
  // source `srcNat`. Returns true on success. Default: false.
  virtual bool updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                           std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                           const Nexo::IpAndPort& srcFlow, std::uint32_t pfxLen);
  // Removes the source translation of a port set.
  virtual void deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId);
  // Attaches a destination translation to a port set of a group: packets of
  // the flow's destination `dstFlow` (prefix length `pfxLen`) leaving on `vlan`
  // get the destination `dstNat` and the destination MAC `dmac`. Returns true
  // on success. Default: false.
  virtual bool updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                           std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                           const Nexo::IpAndPort& dstFlow, std::uint32_t pfxLen,
                                           const Nexo::EthAddr& dmac);
  // Removes the destination translation of a port set.
  virtual void deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId);

 protected:
  ~UmoNatFlowMcastHelper() override;

 private:
  // The one body of the three port-set and translation deletes.
  static void deleteNothing(std::uint32_t groupId, std::uint32_t portSetId);
};

}  // namespace UmoHelper
