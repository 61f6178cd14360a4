#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Instance.h"
#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Mox/Ptr.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/String.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"

namespace Ovs {

// A hardware helper whose hardware is an Open vSwitch bridge: the NAT flow groups, port sets and
// translations the system programs become OpenFlow tables and groups that forward real frames by
// the chip's forwarding rules (docs/forwarding.md; the mapping is in docs/dataplane-ovs.md).
//
// Calls change the helper's own tables at once and answer as the helper contract says: group ids
// and port-set ids are the lowest free (from 1; port sets within their group), and a request
// beyond a configured capacity fails (a group or a new port set comes back as 0, a new
// translation as false). A call that breaks the contract (an unknown group or port set, a null
// port set) changes nothing, returns the failure value and is counted as refused. Nothing reaches
// the bridge until sync(), which pushes the difference between what the tables mean and what the
// bridge holds as one atomic bundle: the bridge never forwards by half of a reprogramming. The
// agent calls sync() at the end of each turn of its event loop; sync() also follows the matches'
// flows, which it reads by policy and match name from the NAT status, as a chip-specific helper on
// a switch does.
//
// Interfaces reach the bridge through OpenFlow port numbers given by portIs(); an interface
// without one receives no copies. The empty interface is the recirculation interface.
class NatFlowHelper : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

  struct Options {
    std::size_t groupCapacity = kUnlimited;
    std::size_t portSetCapacity = kUnlimited;      // over all groups
    std::size_t translationCapacity = kUnlimited;  // source and destination together
    // A port that frames of ethertype 0x88b5 (local experimental) leave by, from whatever port
    // they come in (0: none). A port handles its frames in the order they arrive, so such a frame
    // sent in behind others says, when it comes out, that they have been forwarded.
    std::uint16_t echoPort = 0;
  };

  // The OpenFlow state the tables mean: flows by "table=T,priority=P,MATCH" with their
  // "actions=..." and groups by id with their whole description. Rendering is a pure function of
  // the tables, the flows and the port numbers.
  struct OpenFlowState {
    std::map<std::string, std::string> flows;
    std::map<std::uint32_t, std::string> groups;
    friend bool operator==(const OpenFlowState&, const OpenFlowState&) = default;
  };

  struct Stats {
    std::uint64_t calls = 0;               // helper calls
    std::uint64_t refused = 0;             // calls that broke the contract
    std::uint64_t syncs = 0;               // syncs that sent a bundle
    std::uint64_t mods = 0;                // flow and group modifications sent
    std::chrono::nanoseconds syncTime{0};  // total wall-clock time of those syncs
    std::chrono::nanoseconds longestSync{0};
  };

  // `instance` must outlive the helper; the helper owns its bridge's OpenFlow tables and groups.
  NatFlowHelper(Instance& instance, Options options);

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

  // The NAT status the matches' flows are read from; null: no flow is known (nothing is
  // classified).
  void natStatusIs(Mox::Ptr<const Ip::Nat::Status> natStatus) {
    natStatus_ = std::move(natStatus);
    classifierDirty_ = true;
  }
  // Copies to `intf` leave through OpenFlow port `ofport` (0: through none).
  void portIs(const Nexo::IntfId& intf, std::uint16_t ofport);
  std::uint16_t port(const Nexo::IntfId& intf) const;

  OpenFlowState render() const;
  // Brings the bridge to render() with one bundle of the differences; returns the number of
  // modifications sent (0: it was consistent, and nothing was sent). Only what calls touched since
  // the last sync is rendered again (and the classifier, when a flow changed), so a sync costs
  // what changed, not what the bridge holds. Throws Error when the switch refuses the bundle; the
  // bridge then holds what it held, and the next sync tries again.
  std::size_t sync();
  // What the bridge holds since the last successful sync, as render() writes it.
  const OpenFlowState& bridgeState() const { return pushed_; }
  // What the bridge holds, in the switch's own words: its groups, then its flows without
  // counters, each sorted.
  std::string dump() const;

  const Stats& stats() const { return stats_; }
  std::size_t groupCount() const { return groups_.size(); }
  std::size_t portSetCount() const { return portSets_.size(); }
  std::size_t translationCount() const { return srcTranslations_.size() + dstTranslations_.size(); }

 protected:
  ~NatFlowHelper() override;

 private:
  struct Group {
    Pelo::String policy;
    Pelo::String match;
    bool unicast = false;
    std::uint64_t allocation = 0;  // of a match's groups of one kind, the newest takes traffic
  };
  struct PortSet {
    std::uint16_t vlan = 0;
    std::vector<Nexo::IntfId> intf;
    Nexo::EthAddr dmac;
  };
  struct Translation {
    std::uint16_t vlan = 0;
    Nexo::IpAndPort nat;
    Nexo::IpAndPort flow;
    std::uint32_t pfxLen = 0;
    Nexo::EthAddr dmac;  // destination translations only
  };
  using PortSetKey = std::pair<std::uint32_t, std::uint32_t>;

  bool groupKnown(std::uint32_t groupId) const { return groups_.count(groupId) != 0; }
  bool portSetKnown(std::uint32_t groupId, std::uint32_t portSetId) const {
    return portSets_.count({groupId, portSetId}) != 0;
  }
  bool updateTranslation(std::map<PortSetKey, Translation>& table, std::uint32_t groupId,
                         std::uint32_t portSetId, Translation translation);
  // The parts of render(): the fixed pipeline, the classifier, one group, one port set's entries.
  void renderFixed(OpenFlowState& state) const;
  void renderClassifier(OpenFlowState& state) const;
  void renderGroup(std::uint32_t groupId, OpenFlowState& state) const;
  void renderPortSet(const PortSetKey& key, const PortSet& ps, OpenFlowState& state) const;

  Instance& instance_;
  Options options_;
  Mox::Ptr<const Ip::Nat::Status> natStatus_;
  std::map<Nexo::IntfId, std::uint16_t> ports_;
  std::map<std::uint32_t, Group> groups_;
  std::map<PortSetKey, PortSet> portSets_;
  std::map<PortSetKey, Translation> srcTranslations_;
  std::map<PortSetKey, Translation> dstTranslations_;
  std::uint64_t allocations_ = 0;
  // What the classifier is rendered from: the matches' flows by policy and match name.
  struct ClassifierInput {
    std::string policy;
    std::string match;
    Ip::Nat::NatFlow flow;
    friend bool operator==(const ClassifierInput&, const ClassifierInput&) = default;
  };
  std::vector<ClassifierInput> classifierInputs() const;

  // What the bridge holds since the last successful sync; nothing before the first, which also
  // clears whatever the bridge held.
  OpenFlowState pushed_;
  bool cleared_ = false;
  // The keys of the flows each part rendered at the last sync: (0, -) the fixed pipeline,
  // (1, -) the classifier, (2, port set) a port set's entries.
  std::map<std::pair<int, PortSetKey>, std::vector<std::string>> partKeys_;
  // What changed since the last sync.
  std::set<PortSetKey> dirtyPortSets_;
  std::set<std::uint32_t> dirtyGroups_;
  bool classifierDirty_ = false;
  std::vector<ClassifierInput> classifierInputs_;
  Stats stats_;
};

}  // namespace Ovs
