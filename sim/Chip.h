#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Ip/Nat/HwStatus.h"
#include "Ip/Nat/Status.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Nexo/IpAddr.h"
#include "Pelo/String.h"
#include "UmoNat/UmoNatFlowMcastHelper.h"
#include "sim/Forwarding.h"

namespace Sim {

// The simulated forwarding chip: a small NAT flow table behind the hardware helper interface, for
// the simulator and the scenario tests.
//
// Tables: NAT flow groups (ids from 1, lowest free first, each remembering the policy and match
// that own it and whether it was asked for as unicast); port sets per group (ids from 1, lowest
// free first within the group, each remembering its VLAN, interfaces and destination MAC); and at
// most one source and one destination translation per port set, with their arguments. Groups,
// port sets (over all groups) and translations (source and destination together) each have a
// capacity, unlimited by default; a request beyond it fails as the hardware would: a group or a
// new port set comes back as 0, a new translation as false. Reprogramming an existing port set or
// translation takes no new room.
//
// The chip never aborts. A call that breaks the helper's contract is refused: it changes nothing,
// returns the failure value, is counted and is listed as a violation with the call. Violations:
// any operation on a group that is not allocated (including a second free), a group freed by
// another policy or match than the one that allocated it, a group freed while it still holds
// port sets or translations, an unknown port-set id, a translation programmed on a port set that
// does not exist, and a null port set. A port set may be removed before its translations, which
// stay until they are removed themselves; removing a translation that is not there does nothing
// and is noted in the log.
//
// Forwarding (docs/forwarding.md) is a pure function of these tables and of the flows of the
// matches, which the chip reads by policy and match name from a read-only view of the NAT status,
// as a chip-specific helper on a switch does.
//
// Every call is logged with its arguments and result in call order (and traced on "SimChip" at
// level 1). Everything it prints comes out in ascending id order. Created by the simulator's
// agent and handed to the system as its helper; used from the event loop only.
class Chip : public UmoHelper::UmoNatFlowMcastHelper {
 public:
  static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

  // The helper operations, in the order the counters print.
  enum class Op : std::uint8_t {
    createNatFlowGroup,
    deleteNatFlowGroup,
    updateNatFlowVlanPortSet,
    deleteNatFlowVlanPortSet,
    updateNatFlowSrcTranslation,
    deleteNatFlowSrcTranslation,
    updateNatFlowDstTranslation,
    deleteNatFlowDstTranslation,
  };
  static constexpr std::size_t kOpCount = 8;
  static const char* opName(Op op);

  // How the calls of one operation went: `failed` ran out of room or met an injected fault,
  // `refused` broke the contract (a violation); the rest succeeded.
  struct Counter {
    std::uint64_t calls = 0;
    std::uint64_t failed = 0;
    std::uint64_t refused = 0;
  };

  struct Group {
    Pelo::String policy;
    Pelo::String match;
    bool unicast = false;
    // The number of the call that allocated it: of a match's groups of one kind, the newest
    // takes its traffic.
    std::uint64_t allocation = 0;
  };
  struct PortSet {
    std::uint16_t vlan = 0;
    std::vector<Nexo::IntfId> intf;  // ascending
    Nexo::EthAddr dmac;
    friend bool operator==(const PortSet&, const PortSet&) = default;
  };
  struct SrcTranslation {
    std::uint16_t vlan = 0;
    Nexo::IpAndPort srcNat;
    Nexo::IpAndPort srcFlow;
    std::uint32_t pfxLen = 0;
    friend bool operator==(const SrcTranslation&, const SrcTranslation&) = default;
  };
  struct DstTranslation {
    std::uint16_t vlan = 0;
    Nexo::IpAndPort dstNat;
    Nexo::IpAndPort dstFlow;
    std::uint32_t pfxLen = 0;
    Nexo::EthAddr dmac;
    friend bool operator==(const DstTranslation&, const DstTranslation&) = default;
  };
  // (group id, port-set id)
  using PortSetKey = std::pair<std::uint32_t, std::uint32_t>;

  // One logged call: its number (from 1), its text with arguments and result, and, for a refused
  // call, why.
  struct Call {
    std::uint64_t number = 0;
    std::string text;
    std::string violation;
  };

  Chip();

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

  // Capacities (kUnlimited for no limit). Lowering one below what is in use frees nothing; new
  // requests fail until enough is freed.
  void groupCapacityIs(std::size_t capacity) { groupCapacity_ = capacity; }
  std::size_t groupCapacity() const { return groupCapacity_; }
  void portSetCapacityIs(std::size_t capacity) { portSetCapacity_ = capacity; }
  std::size_t portSetCapacity() const { return portSetCapacity_; }
  void translationCapacityIs(std::size_t capacity) { translationCapacity_ = capacity; }
  std::size_t translationCapacity() const { return translationCapacity_; }

  // Injected faults: the next `n` group requests fail whatever room there is (replaces the count
  // still pending); unicast or multicast group requests fail while switched on.
  void failNextGroupsIs(std::uint32_t n) { failNextGroups_ = n; }
  std::uint32_t failNextGroups() const { return failNextGroups_; }
  void failUnicastGroupsIs(bool fail) { failUnicastGroups_ = fail; }
  bool failUnicastGroups() const { return failUnicastGroups_; }
  void failMulticastGroupsIs(bool fail) { failMulticastGroups_ = fail; }
  bool failMulticastGroups() const { return failMulticastGroups_; }

  // A second helper that receives every call the chip carries out (not the ones it fails or
  // refuses), with the same arguments, right after the chip: a real dataplane kept in step with
  // the model. A result of the mirror that differs from the chip's is noted as a divergence.
  // Null: none.
  void mirrorIs(Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> mirror) { mirror_ = std::move(mirror); }
  // The divergences noted since the last call, one line each, oldest first.
  std::vector<std::string> takeDivergences() { return std::exchange(divergences_, {}); }

  // The NAT status the chip reads the matches' flows from; null: no flow is known.
  void natStatusIs(Mox::Ptr<const Ip::Nat::Status> natStatus) { natStatus_ = std::move(natStatus); }

  // Forwards `packet` by the tables as they are (docs/forwarding.md): its own pass, then one pass
  // for each copy it sends into the recirculation interface. Changes nothing.
  Forwarding forward(const Packet& packet) const;

  const std::map<std::uint32_t, Group>& groups() const { return groups_; }
  const std::map<PortSetKey, PortSet>& portSets() const { return portSets_; }
  const std::map<PortSetKey, SrcTranslation>& srcTranslations() const { return srcTranslations_; }
  const std::map<PortSetKey, DstTranslation>& dstTranslations() const { return dstTranslations_; }
  std::size_t translationCount() const { return srcTranslations_.size() + dstTranslations_.size(); }
  // True when no group, port set or translation is allocated.
  bool empty() const { return groups_.empty() && portSets_.empty() && translationCount() == 0; }

  const std::vector<Call>& calls() const { return calls_; }
  const Counter& counter(Op op) const { return counters_[static_cast<std::size_t>(op)]; }
  // The refused calls, in call order.
  std::vector<const Call*> violations() const;
  std::size_t violationCount() const { return violationCount_; }

  // Printers; each writes whole lines.
  // The tables: groups with owners, port sets, translations, capacities and injected faults.
  void printTables(std::ostream& os) const;
  // Every call made, one per line, in call order.
  void printCalls(std::ostream& os) const;
  // The calls made since the previous printCallsSinceLastLook, one per line.
  void printCallsSinceLastLook(std::ostream& os);
  // Calls, failures and refusals per operation.
  void printCounters(std::ostream& os) const;
  // What is still allocated, then the violations.
  void printLeftovers(std::ostream& os) const;

 protected:
  ~Chip() override;

 private:
  // Logs a call; `result` is empty for operations that return nothing, `note` explains a failure
  // and `violation` (non-empty) makes it a refused call.
  void log(Op op, std::string text, const std::string& result, const std::string& note,
           const std::string& violation);
  // Why an operation on `groupId` must be refused, or "" when the group is allocated.
  std::string groupViolation(std::uint32_t groupId) const;
  std::string portSetViolation(std::uint32_t groupId, std::uint32_t portSetId) const;
  // What `groupId` still holds, e.g. "2 port sets, 1 translation", or "" when nothing.
  std::string groupContents(std::uint32_t groupId) const;
  void printGroups(std::ostream& os) const;
  void printPortSets(std::ostream& os) const;
  void printTranslations(std::ostream& os) const;
  // One pass of `packet` through the pipeline.
  Pass forwardOnce(const Packet& packet) const;
  // The group of the match `policy`/`match` that takes `packet`, or 0 when it holds none.
  std::uint32_t groupFor(const Pelo::String& policy, const Pelo::String& match,
                         const Packet& packet) const;
  // The copies of the port set `key` for `packet`, translated, appended to `copies`.
  void emit(const PortSetKey& key, const PortSet& ps, const Packet& packet,
            std::vector<Copy>& copies) const;

  // Notes a divergence when the mirror answered the last call with `got` instead of `want`.
  template <class T>
  void compareMirror(const T& want, const T& got);

  Mox::Ptr<const Ip::Nat::Status> natStatus_;  // the flows; read only
  Mox::Ptr<UmoHelper::UmoNatFlowMcastHelper> mirror_;
  std::vector<std::string> divergences_;
  std::map<std::uint32_t, Group> groups_;
  std::set<std::uint32_t> freedGroups_;  // freed and not allocated again
  std::map<PortSetKey, PortSet> portSets_;
  std::map<PortSetKey, SrcTranslation> srcTranslations_;
  std::map<PortSetKey, DstTranslation> dstTranslations_;

  std::size_t groupCapacity_ = kUnlimited;
  std::size_t portSetCapacity_ = kUnlimited;
  std::size_t translationCapacity_ = kUnlimited;
  std::uint32_t failNextGroups_ = 0;
  bool failUnicastGroups_ = false;
  bool failMulticastGroups_ = false;

  std::vector<Call> calls_;
  std::size_t callsSeen_ = 0;  // calls already printed by printCallsSinceLastLook
  std::array<Counter, kOpCount> counters_{};
  std::size_t violationCount_ = 0;
};

}  // namespace Sim
