#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "UmoNat/UmoNatFlowMcastHelper.h"

namespace UmoNatTest {

// A hardware helper for tests: logs every call with its arguments and result,
// in call order, and lets a test choose results. Groups are allocated lowest
// free id first, from 1; port-set ids likewise, per group.
class RecordingHelper : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  RecordingHelper();

  std::uint32_t createNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                                   bool unicast) override;
  void deleteNatFlowGroup(const Pelo::String& policy, const Pelo::String& match,
                          std::uint32_t groupId) override;
  std::uint32_t updateNatFlowVlanPortSet(
      std::uint32_t groupId, std::uint32_t portSetId,
      const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& ps) override;
  void deleteNatFlowVlanPortSet(std::uint32_t groupId, std::uint32_t portSetId) override;
  bool updateNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& srcNat,
                                   const Nexo::IpAndPort& srcFlow, std::uint32_t pfxLen) override;
  void deleteNatFlowSrcTranslation(std::uint32_t groupId, std::uint32_t portSetId) override;
  bool updateNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId,
                                   std::uint16_t vlan, const Nexo::IpAndPort& dstNat,
                                   const Nexo::IpAndPort& dstFlow, std::uint32_t pfxLen,
                                   const Nexo::EthAddr& dmac) override;
  void deleteNatFlowDstTranslation(std::uint32_t groupId, std::uint32_t portSetId) override;

  // Results chosen by the test.
  void failNextGroupsIs(unsigned n) { failNextGroups_ = n; }
  void failUnicastGroupsIs(bool fail) { failUnicastGroups_ = fail; }
  void failMulticastGroupsIs(bool fail) { failMulticastGroups_ = fail; }
  // Most groups that may be allocated at once (0: no limit).
  void groupCapacityIs(std::size_t capacity) { groupCapacity_ = capacity; }

  // The calls since the last take, one per line, e.g.
  // "createNatFlowGroup(P1, M1, false) = 1".
  std::vector<std::string> takeCalls();
  // The same, keeping only the calls whose text contains `part` (for example
  // "Group(" for group allocation and release).
  std::vector<std::string> takeCalls(std::string_view part);
  const std::vector<std::string>& calls() const { return calls_; }
  // Groups allocated and not yet freed.
  const std::set<std::uint32_t>& groups() const { return groups_; }
  // Port sets programmed and not yet deleted, as (group, id).
  const std::set<std::pair<std::uint32_t, std::uint32_t>>& portSets() const { return portSets_; }

 private:
  std::vector<std::string> calls_;
  std::set<std::uint32_t> groups_;
  std::set<std::pair<std::uint32_t, std::uint32_t>> portSets_;
  unsigned failNextGroups_ = 0;
  bool failUnicastGroups_ = false;
  bool failMulticastGroups_ = false;
  std::size_t groupCapacity_ = 0;
};

}  // namespace UmoNatTest
