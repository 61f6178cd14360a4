#include "Ip/Status.h"

#include <utility>
#include <vector>

namespace Ip {

// IpIntfStatus

IpIntfStatus::IpIntfStatus(Nexo::IntfId intfId)
    : Mox::Entity(intfId.name()), intfId_(std::move(intfId)) {}

void IpIntfStatus::addrWithMaskIs(Nexo::IpAddrWithMask addrWithMask) {
  if (addrWithMask_ == addrWithMask) return;
  addrWithMask_ = addrWithMask;
  publishChange(Attr::addrWithMask);
}

void IpIntfStatus::routingIs(bool routing) {
  if (routing_ == routing) return;
  routing_ = routing;
  publishChange(Attr::routing);
}

// Status

Mox::Ptr<const IpIntfStatus> Status::ipIntfStatus(const Nexo::IntfId& intf) const {
  const Mox::Ptr<IpIntfStatus>* status = ipIntfStatus_.find(intf);
  return status != nullptr ? *status : nullptr;
}

Mox::Ptr<IpIntfStatus> Status::ipIntfStatusIs(const Nexo::IntfId& intf) {
  if (const Mox::Ptr<IpIntfStatus>* status = ipIntfStatus_.find(intf)) return *status;
  auto status = Mox::makePtr<IpIntfStatus>(intf);
  ipIntfStatus_.is(intf, status);
  publishChange(Attr::ipIntfStatus, intf);
  return status;
}

bool Status::ipIntfStatusDel(const Nexo::IntfId& intf) {
  if (!ipIntfStatus_.del(intf)) return false;
  publishChange(Attr::ipIntfStatus, intf);
  return true;
}

void Status::ipIntfStatusDelAll() {
  for (const Nexo::IntfId& intf : ipIntfStatus_.keys()) ipIntfStatusDel(intf);
}

}  // namespace Ip
