#pragma once

#include <utility>

#include "Bridging/Types.h"
#include "Mox/Collection.h"
#include "Mox/ConstView.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Pelo/Key.h"

// The bridging records the NAT system follows: switchport configuration, VLAN membership and
// learned hosts. The platform side (a simulator, tests) writes them; the system holds them as
// const.
//
// Every record publishes each change of each of its attributes as (attribute, key): the key is
// the collection key of the inserted, changed or removed element, empty for a scalar. A setter
// that stores the value already held publishes nothing. `xIs(k)` of an entity collection
// returns the element of k, creating and publishing it when absent. `xDelAll()` removes the
// keys present at the call in ascending key order and publishes each key right after its
// removal. A change inside a nested entity is published by that entity only.

namespace Bridging {

// The switchport configuration of one interface. Starts as an access port in VLAN 1.
class SwitchIntfConfig : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId intfId = 1;
    static constexpr Pelo::AttrId switchportMode = 2;
    static constexpr Pelo::AttrId nativeVlan = 3;
  };

  explicit SwitchIntfConfig(Nexo::IntfId intfId);

  const Nexo::IntfId& intfId() const { return intfId_; }

  SwitchportMode switchportMode() const { return switchportMode_; }
  void switchportModeIs(SwitchportMode switchportMode);
  // The VLAN untagged packets belong to.
  VlanIdOrNone nativeVlan() const { return nativeVlan_; }
  void nativeVlanIs(VlanIdOrNone nativeVlan);

 protected:
  ~SwitchIntfConfig() override = default;

 private:
  Nexo::IntfId intfId_;
  SwitchportMode switchportMode_ = SwitchportMode::access;
  VlanIdOrNone nativeVlan_ = VlanIdOrNone(1);
};

// The bridging configuration of the switch: the switchports by interface and the switch's own
// MAC address.
class Config : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId switchIntfConfig = 1;
    static constexpr Pelo::AttrId bridgeMacAddr = 2;
  };

  Config() = default;

  Mox::ConstView<Nexo::IntfId, SwitchIntfConfig> switchIntfConfig() const {
    return Mox::ConstView<Nexo::IntfId, SwitchIntfConfig>(switchIntfConfig_);
  }
  // The switchport of `intf`, or null.
  Mox::Ptr<const SwitchIntfConfig> switchIntfConfig(const Nexo::IntfId& intf) const;
  Mox::Ptr<SwitchIntfConfig> switchIntfConfigIs(const Nexo::IntfId& intf);
  bool switchIntfConfigDel(const Nexo::IntfId& intf);
  void switchIntfConfigDelAll();

  // The switch's own MAC address: the destination MAC of copies recirculated through the
  // switch.
  Nexo::EthAddr bridgeMacAddr() const { return bridgeMacAddr_; }
  void bridgeMacAddrIs(Nexo::EthAddr bridgeMacAddr);

 protected:
  ~Config() override = default;

 private:
  Mox::Collection<Nexo::IntfId, Mox::Ptr<SwitchIntfConfig>> switchIntfConfig_;
  Nexo::EthAddr bridgeMacAddr_;
};

// The status of an interface in a VLAN; only its presence (membership) carries meaning.
struct VlanPortStatus {
  friend bool operator==(const VlanPortStatus&, const VlanPortStatus&) = default;
};

// One VLAN that exists on the switch, with its member interfaces.
class VlanStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId vlanId = 1;
    static constexpr Pelo::AttrId vlanPortStatus = 2;
  };

  explicit VlanStatus(VlanId vlanId);

  VlanId vlanId() const { return vlanId_; }

  const Mox::Collection<Nexo::IntfId, VlanPortStatus>& vlanPortStatus() const {
    return vlanPortStatus_;
  }
  // The status of member `intf`, or null when it is not a member.
  const VlanPortStatus* vlanPortStatus(const Nexo::IntfId& intf) const {
    return vlanPortStatus_.find(intf);
  }
  // Publishes (Attr::vlanPortStatus, intf) when `intf` is new or its status differs.
  void vlanPortStatusIs(const Nexo::IntfId& intf, VlanPortStatus status);
  // Publishes (Attr::vlanPortStatus, intf) when it removed the member.
  bool vlanPortStatusDel(const Nexo::IntfId& intf);
  void vlanPortStatusDelAll();

 protected:
  ~VlanStatus() override = default;

 private:
  VlanId vlanId_;
  Mox::Collection<Nexo::IntfId, VlanPortStatus> vlanPortStatus_;
};

// The VLANs that exist on the switch.
class VlanStatusDir : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId vlanStatus = 1;
  };

  VlanStatusDir() = default;

  Mox::ConstView<VlanId, VlanStatus> vlanStatus() const {
    return Mox::ConstView<VlanId, VlanStatus>(vlanStatus_);
  }
  // The VLAN `vlan`, or null.
  Mox::Ptr<const VlanStatus> vlanStatus(VlanId vlan) const;
  Mox::Ptr<VlanStatus> vlanStatusIs(VlanId vlan);
  bool vlanStatusDel(VlanId vlan);
  void vlanStatusDelAll();

 protected:
  ~VlanStatusDir() override = default;

 private:
  Mox::Collection<VlanId, Mox::Ptr<VlanStatus>> vlanStatus_;
};

// Where a learned MAC address lives: the interface it was learned on.
class LearnedHost {
 public:
  LearnedHost() = default;
  explicit LearnedHost(Nexo::IntfId intf) : intf_(std::move(intf)) {}

  const Nexo::IntfId& intf() const { return intf_; }

  friend bool operator==(const LearnedHost& a, const LearnedHost& b) = default;

 private:
  Nexo::IntfId intf_;
};

// The MAC table of one filtering database: the learned hosts by MAC address.
class FdbStatus : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId fid = 1;
    static constexpr Pelo::AttrId learnedHost = 2;
  };

  explicit FdbStatus(Fid fid);

  Fid fid() const { return fid_; }

  const Mox::Collection<Nexo::EthAddr, LearnedHost>& learnedHost() const { return learnedHost_; }
  // The host of `mac`, or null when it is not learned.
  const LearnedHost* learnedHost(Nexo::EthAddr mac) const { return learnedHost_.find(mac); }
  // Publishes (Attr::learnedHost, mac) when `mac` is new or moved to another interface.
  void learnedHostIs(Nexo::EthAddr mac, LearnedHost host);
  // Publishes (Attr::learnedHost, mac) when it removed the host.
  bool learnedHostDel(Nexo::EthAddr mac);
  void learnedHostDelAll();

 protected:
  ~FdbStatus() override = default;

 private:
  Fid fid_;
  Mox::Collection<Nexo::EthAddr, LearnedHost> learnedHost_;
};

// The MAC tables of the switch, by filtering database.
class Status : public Mox::Entity {
 public:
  struct Attr {
    static constexpr Pelo::AttrId fdbStatus = 1;
  };

  Status() = default;

  Mox::ConstView<Fid, FdbStatus> fdbStatus() const {
    return Mox::ConstView<Fid, FdbStatus>(fdbStatus_);
  }
  // The MAC table of `fid`, or null.
  Mox::Ptr<const FdbStatus> fdbStatus(Fid fid) const;
  Mox::Ptr<FdbStatus> fdbStatusIs(Fid fid);
  bool fdbStatusDel(Fid fid);
  void fdbStatusDelAll();

 protected:
  ~Status() override = default;

 private:
  Mox::Collection<Fid, Mox::Ptr<FdbStatus>> fdbStatus_;
};

}  // namespace Bridging
