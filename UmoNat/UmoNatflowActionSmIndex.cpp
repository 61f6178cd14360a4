#include "UmoNat/UmoNatflowActionSmIndex.h"

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
