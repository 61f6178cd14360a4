#include "sim/OvsDataplane.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ostream>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Bridging/Config.h"
#include "UdpFrame.h"
#include "sim/Views.h"

namespace Sim {

namespace {

constexpr const char* kEchoPortName = "echo";
constexpr std::uint16_t kEchoPort = 65000;
// The frame that follows each packet into the switch: ethertype 0x88b5 (local experimental),
// which the bridge sends straight out of the echo port.
constexpr std::uint8_t kEchoFrame[] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0,   0,
                                       0,    0,    0xee, 0x88, 0xb5, 'e',  'c',  'h', 'o'};

std::array<std::uint8_t, 6> macBytes(const Nexo::EthAddr& mac) {
  std::array<std::uint8_t, 6> bytes{};
  std::copy(mac.bytes().begin(), mac.bytes().end(), bytes.begin());
  return bytes;
}

Ovs::Instance::Options instanceOptions() {
  Ovs::Instance::Options options;
  options.ports.push_back({kEchoPortName, kEchoPort});
  return options;
}

Ovs::NatFlowHelper::Options helperOptions() {
  Ovs::NatFlowHelper::Options options;
  options.echoPort = kEchoPort;
  return options;
}

}  // namespace

OvsDataplane::OvsDataplane(Agent& agent)
    : agent_(agent),
      instance_(instanceOptions()),
      helper_(Mox::makePtr<Ovs::NatFlowHelper>(instance_, helperOptions())) {
  helper_->natStatusIs(agent_.natStatus());
  agent_.chip().mirrorIs(helper_);
  sync();
}

OvsDataplane::~OvsDataplane() = default;

std::uint16_t OvsDataplane::addPort(const Nexo::IntfId& intf,
                                    std::vector<Ovs::Instance::Port>& added) {
  if (intf.empty()) return 0;  // the recirculation interface is inside the switch
  if (const auto it = ports_.find(intf); it != ports_.end()) return it->second;
  const auto ofport = static_cast<std::uint16_t>(ports_.size() + 1);
  ports_.emplace(intf, ofport);
  intfs_.emplace(ofport, intf);
  added.push_back({"p" + std::to_string(ofport), ofport});
  helper_->portIs(intf, ofport);
  return ofport;
}

std::size_t OvsDataplane::sync() {
  std::vector<Ovs::Instance::Port> added;
  for (const auto& [intf, config] : agent_.bridgingConfig()->switchIntfConfig()) {
    addPort(intf, added);
  }
  for (const auto& [key, ps] : agent_.chip().portSets()) {
    for (const Nexo::IntfId& intf : ps.intf) addPort(intf, added);
  }
  instance_.addPorts(added);
  return helper_->sync();
}

OvsDataplane::Sent OvsDataplane::send(const Packet& packet) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<Ovs::Instance::Port> added;
  const std::uint16_t ingress = addPort(packet.intf, added);
  instance_.addPorts(added);

  Ovs::UdpFrame frame;
  frame.srcMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0xfe};
  frame.dstMac =
      macBytes(packet.dst.ip().isMulticast() ? Nexo::EthAddr::ipv4Multicast(packet.dst.ip().value())
                                             : agent_.bridgingConfig()->bridgeMacAddr());
  const auto sw = agent_.bridgingConfig()->switchIntfConfig(packet.intf);
  const bool untagged = packet.vlan == 0 || (sw && !sw->nativeVlan().isNone() &&
                                             sw->nativeVlan().value() == packet.vlan);
  frame.vlan = untagged ? 0 : packet.vlan;
  frame.srcIp = packet.src.ip().value();
  frame.dstIp = packet.dst.ip().value();
  frame.srcPort = packet.src.port();
  frame.dstPort = packet.dst.port();
  frame.payload = {'u', 'm', 'o', 'n', 'a', 't'};

  // The echo frame goes in behind the packet on the same port: once it is out, the packet and
  // every copy of it have been forwarded.
  const std::string ingressName = "p" + std::to_string(ingress);
  instance_.inject(ingressName, Ovs::encode(frame));
  instance_.inject(ingressName, kEchoFrame);
  instance_.awaitTransmitted(kEchoPortName, ++framesSeen_[kEchoPortName]);

  Sent sent;
  for (const auto& [ofport, intf] : intfs_) {
    const std::string name = "p" + std::to_string(ofport);
    const std::vector<Ovs::Frame> frames = instance_.transmitted(name);
    std::size_t& seen = framesSeen_[name];
    for (std::size_t i = seen; i < frames.size(); ++i) {
      std::string problem;
      const Ovs::UdpFrame out = Ovs::decode(frames[i], problem);
      if (!problem.empty()) {
        sent.problems.push_back("a frame out of " + intf.name().str() + ": " + problem);
        continue;
      }
      const auto& m = out.dstMac;
      sent.copies.push_back(Copy{intf, out.vlan, Nexo::EthAddr(m[0], m[1], m[2], m[3], m[4], m[5]),
                                 Nexo::IpAndPort(Nexo::IpAddr(out.srcIp), out.srcPort),
                                 Nexo::IpAndPort(Nexo::IpAddr(out.dstIp), out.dstPort)});
    }
    seen = frames.size();
  }
  std::sort(sent.copies.begin(), sent.copies.end());
  ++sends_;
  sendNanoseconds_ += static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start)
          .count());
  return sent;
}

void OvsDataplane::print(std::ostream& os) const {
  os << "dataplane ovs: bridge " << instance_.bridge() << ", " << ports_.size()
     << " switch port(s), echo port " << kEchoPort << "\n";
  for (const auto& [ofport, intf] : intfs_) {
    os << "  port " << ofport << "  p" << ofport << "  " << intf << "\n";
  }
  os << helper_->dump();
}

void OvsDataplane::printStats(std::ostream& os) const {
  const Ovs::NatFlowHelper::Stats& s = helper_->stats();
  const auto ms = [](std::chrono::nanoseconds ns) { return static_cast<double>(ns.count()) / 1e6; };
  char line[160];
  std::snprintf(
      line, sizeof line, "helper calls %llu (refused %llu); bundles %llu, modifications %llu\n",
      static_cast<unsigned long long>(s.calls), static_cast<unsigned long long>(s.refused),
      static_cast<unsigned long long>(s.syncs), static_cast<unsigned long long>(s.mods));
  os << line;
  std::snprintf(line, sizeof line,
                "sync time %.3f ms in all, %.3f ms per bundle, longest %.3f ms\n", ms(s.syncTime),
                s.syncs == 0 ? 0.0 : ms(s.syncTime) / static_cast<double>(s.syncs),
                ms(s.longestSync));
  os << line;
  std::snprintf(line, sizeof line, "packets sent %llu, %.3f ms per packet\n",
                static_cast<unsigned long long>(sends_),
                sends_ == 0
                    ? 0.0
                    : static_cast<double>(sendNanoseconds_) / 1e6 / static_cast<double>(sends_));
  os << line;
}

void OvsDataplane::printJson(std::ostream& os, const OvsDataplane* dataplane) {
  nlohmann::json doc = {{"dataplane", dataplane ? "ovs" : "chip"},
                        {"bridge", nullptr},
                        {"ports", nlohmann::json::array()},
                        {"groups", nlohmann::json::array()},
                        {"flows", nlohmann::json::array()}};
  if (dataplane != nullptr) {
    doc["bridge"] = dataplane->instance_.bridge();
    for (const auto& [ofport, intf] : dataplane->intfs_) {
      doc["ports"].push_back({{"ofport", ofport},
                              {"port", "p" + std::to_string(ofport)},
                              {"interface", intf.name().str()}});
    }
    // The bridge's own lines, as `show dataplane` prints them: groups first, then flows.
    std::istringstream lines(dataplane->helper_->dump());
    for (std::string line; std::getline(lines, line);) {
      doc[line.starts_with("group_id=") ? "groups" : "flows"].push_back(line);
    }
  }
  writeJson(os, doc);
}

void OvsDataplane::printStatsJson(std::ostream& os, const OvsDataplane* dataplane) {
  Ovs::NatFlowHelper::Stats s;
  std::uint64_t sends = 0;
  std::uint64_t sendNanoseconds = 0;
  if (dataplane != nullptr) {
    s = dataplane->helper_->stats();
    sends = dataplane->sends_;
    sendNanoseconds = dataplane->sendNanoseconds_;
  }
  const auto ms = [](auto ns) { return static_cast<double>(ns) / 1e6; };
  const nlohmann::json doc = {{"dataplane", dataplane ? "ovs" : "chip"},
                              {"helperCalls", s.calls},
                              {"refused", s.refused},
                              {"bundles", s.syncs},
                              {"modifications", s.mods},
                              {"syncMs", ms(s.syncTime.count())},
                              {"longestSyncMs", ms(s.longestSync.count())},
                              {"packets", sends},
                              {"sendMs", ms(sendNanoseconds)}};
  writeJson(os, doc);
}

}  // namespace Sim
