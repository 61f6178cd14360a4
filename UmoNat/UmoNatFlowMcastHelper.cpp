#include "UmoNat/UmoNatFlowMcastHelper.h"

namespace UmoHelper {

UmoNatFlowMcastHelper::UmoNatFlowMcastHelper(const Pelo::String& name) : Mox::Entity(name) {}

UmoNatFlowMcastHelper::~UmoNatFlowMcastHelper() = default;

std::uint32_t UmoNatFlowMcastHelper::createNatFlowGroup(const Pelo::String& /*policy*/,
                                                        const Pelo::String& /*match*/,
                                                        bool /*unicast*/) {
  return 0;
}

void UmoNatFlowMcastHelper::deleteNatFlowGroup(const Pelo::String& /*policy*/,
                                               const Pelo::String& /*match*/,
                                               std::uint32_t /*groupId*/) {}

std::uint32_t UmoNatFlowMcastHelper::updateNatFlowVlanPortSet(
    std::uint32_t /*groupId*/, std::uint32_t /*portSetId*/,
    const Mox::Ptr<const Ip::Nat::NatFlowPortSet>& /*ps*/) {
  return 0;
}

void UmoNatFlowMcastHelper::deleteNatFlowVlanPortSet(std::uint32_t groupId,
                                                     std::uint32_t portSetId) {
  deleteNothing(groupId, portSetId);
}

bool UmoNatFlowMcastHelper::updateNatFlowSrcTranslation(std::uint32_t /*groupId*/,
                                                        std::uint32_t /*portSetId*/,
                                                        std::uint16_t /*vlan*/,
                                                        const Nexo::IpAndPort& /*srcNat*/,
                                                        const Nexo::IpAndPort& /*srcFlow*/,
                                                        std::uint32_t /*pfxLen*/) {
  return false;
}

void UmoNatFlowMcastHelper::deleteNatFlowSrcTranslation(std::uint32_t groupId,
                                                        std::uint32_t portSetId) {
  deleteNothing(groupId, portSetId);
}

bool UmoNatFlowMcastHelper::updateNatFlowDstTranslation(
    std::uint32_t /*groupId*/, std::uint32_t /*portSetId*/, std::uint16_t /*vlan*/,
    const Nexo::IpAndPort& /*dstNat*/, const Nexo::IpAndPort& /*dstFlow*/, std::uint32_t /*pfxLen*/,
    const Nexo::EthAddr& /*dmac*/) {
  return false;
}

void UmoNatFlowMcastHelper::deleteNatFlowDstTranslation(std::uint32_t groupId,
                                                        std::uint32_t portSetId) {
  deleteNothing(groupId, portSetId);
}

void UmoNatFlowMcastHelper::deleteNothing(std::uint32_t /*groupId*/, std::uint32_t /*portSetId*/) {}

}  // namespace UmoHelper
