#pragma once

#include "Mox/Collection.h"
#include "Mox/ConstView.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/Key.h"

// The IP state of the interfaces. The platform side writes it; the system holds it as const.
// The records publish their changes as the NAT input records do (Ip/Nat/Status.h): every
// change as (attribute, key), nothing for an unchanged value, insert-or-get through `xIs(k)`,
// and `xDelAll()` publishing each key in ascending order right after its removal.

namespace Ip {

// The IP state of one interface. Starts without an address (0.0.0.0/0) and not routing.
class IpIntfStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId intfId = 1;
    static constexpr Pelo::AttrId addrWithMask = 2;
    static constexpr Pelo::AttrId routing = 3;
  };

  explicit IpIntfStatus(Nexo::IntfId intfId);

  const Nexo::IntfId& intfId() const { return intfId_; }

  Nexo::IpAddrWithMask addrWithMask() const { return addrWithMask_; }
  void addrWithMaskIs(Nexo::IpAddrWithMask addrWithMask);
  // True while the interface routes IP packets.
  bool routing() const { return routing_; }
  void routingIs(bool routing);

 protected:
  ~IpIntfStatus() override = default;

 private:
  Nexo::IntfId intfId_;
  Nexo::IpAddrWithMask addrWithMask_;
  bool routing_ = false;
};

// The IP state of the switch: the interfaces that have any, by interface.
class Status : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId ipIntfStatus = 1;
  };

  Status() = default;

  Mox::ConstView<Nexo::IntfId, IpIntfStatus> ipIntfStatus() const {
    return Mox::ConstView<Nexo::IntfId, IpIntfStatus>(ipIntfStatus_);
  }
  // The IP state of `intf`, or null.
  Mox::Ptr<const IpIntfStatus> ipIntfStatus(const Nexo::IntfId& intf) const;
  Mox::Ptr<IpIntfStatus> ipIntfStatusIs(const Nexo::IntfId& intf);
  bool ipIntfStatusDel(const Nexo::IntfId& intf);
  void ipIntfStatusDelAll();

 protected:
  ~Status() override = default;

 private:
  Mox::Collection<Nexo::IntfId, Mox::Ptr<IpIntfStatus>> ipIntfStatus_;
};

}  // namespace Ip
