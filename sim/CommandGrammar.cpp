#include "sim/CommandGrammar.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <set>
#include <sstream>
#include <utility>

#include "Bridging/Types.h"
#include "sim/Agent.h"
#include "sim/LineParser.h"

namespace Sim {

namespace {

// How many existing names a listing shows after a placeholder's meaning.
constexpr std::size_t kListedNames = 10;

std::string quoted(std::string_view word) { return "'" + std::string(word) + "'"; }

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool isPlaceholder(std::string_view word) {
  return std::none_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

// "a, b or c".
std::string listed(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
    text += words[i];
  }
  return text;
}

// What a placeholder stands for, in the words of a listing. NAME is named after its command.
std::string meaning(std::string_view placeholder, std::string_view command) {
  static const std::map<std::string_view, std::string_view> kMeanings = {
      {"POLICY", "a policy name"},
      {"MATCH", "a match name"},
      {"ACTION", "an action name"},
      {"TOPOLOGY", "a topology name"},
      {"INTF", "an interface name"},
      {"V", "a VLAN id"},
      {"MAC", "a MAC address, e.g. 02:00:00:00:00:01"},
      {"IP[:PORT]", "an IPv4 address, optionally with a port, e.g. 239.1.1.1:5000"},
      {"A.B.C.D[:PORT]", "an IPv4 address, optionally with a port, e.g. 10.1.0.5:4000"},
      {"A.B.C.D/LEN", "an IPv4 address and mask length, e.g. 10.0.10.1/24"},
      {"A.B.C.D/LEN:PORT", "an IPv4 address, mask length and port, e.g. 10.1.0.0/16:0"},
      {"N", "a decimal number"},
      {"SECONDS", "seconds, e.g. 10 or 0.5"},
      {"MODE", "a switchport mode"},
      {"STATE", "a port state"},
      {"PATTERN/LEVELS", "trace sources and levels, e.g. UmoNat*/0-9"},
      {"COMMAND", "a command"},
  };
  if (placeholder == "NAME") {
    if (command == "policy") return "a policy name";
    if (command == "match") return "a match name";
    if (command == "action") return "an action name";
    if (command == "topology") return "a topology name";
    return "a name";
  }
  const auto found = kMeanings.find(placeholder);
  return found == kMeanings.end() ? "a value" : std::string(found->second);
}

// One element of a syntax: a word, or an optional group of words.
struct Element {
  bool optional = false;
  std::vector<std::string> words;
};

// The elements of `syntax`. A '[' that begins a word opens an optional group, which ends at the
// ']' that balances it; brackets inside a word belong to a placeholder ("IP[:PORT]").
std::vector<Element> elementsOf(std::string_view syntax) {
  std::vector<Element> elements;
  int depth = 0;
  for (std::string word : LineParser::split(syntax)) {
    if (depth == 0 && word.front() == '[') {
      word.erase(0, 1);
      elements.push_back({true, {}});
      depth = 1;
    }
    if (depth == 0) {
      elements.push_back({false, {word}});
      continue;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
      if (word[i] == '[') ++depth;
      if (word[i] == ']' && --depth == 0) {
        word.erase(i, 1);
        break;
      }
    }
    elements.back().words.push_back(word);
  }
  return elements;
}

// Every order of every selection of `groups`, the empty one first.
void orderings(const std::vector<std::size_t>& groups, std::vector<std::size_t>& chosen,
               std::vector<std::vector<std::size_t>>& out) {
  out.push_back(chosen);
  for (const std::size_t group : groups) {
    if (std::find(chosen.begin(), chosen.end(), group) != chosen.end()) continue;
    chosen.push_back(group);
    orderings(groups, chosen, out);
    chosen.pop_back();
  }
}

// The word sequences `elements` accepts from `from` on, each appended to `prefix`.
void expand(const std::vector<Element>& elements, std::size_t from,
            const std::vector<std::string>& prefix, std::vector<std::vector<std::string>>& out) {
  if (from == elements.size()) {
    out.push_back(prefix);
    return;
  }
  if (!elements[from].optional) {
    std::vector<std::string> longer = prefix;
    longer.insert(longer.end(), elements[from].words.begin(), elements[from].words.end());
    expand(elements, from + 1, longer, out);
    return;
  }
  std::vector<std::size_t> groups;
  std::size_t end = from;
  while (end < elements.size() && elements[end].optional) groups.push_back(end++);
  std::vector<std::vector<std::size_t>> orders;
  std::vector<std::size_t> chosen;
  orderings(groups, chosen, orders);
  for (const std::vector<std::size_t>& order : orders) {
    std::vector<std::string> longer = prefix;
    for (const std::size_t group : order) {
      longer.insert(longer.end(), elements[group].words.begin(), elements[group].words.end());
    }
    expand(elements, end, longer, out);
  }
}

// The words of `line` before the one being typed, and that one ("" after a space).
std::pair<std::vector<std::string>, std::string> splitTyped(std::string_view line) {
  std::vector<std::string> words = LineParser::split(line);
  const bool partial = !line.empty() && line.back() != ' ' && line.back() != '\t';
  if (!partial || words.empty()) return {words, ""};
  std::string last = std::move(words.back());
  words.pop_back();
  return {words, last};
}

std::string joined(const std::vector<std::string>& words, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : " ") + words[i];
  return text;
}

}  // namespace

CommandGrammar::CommandGrammar(const std::vector<CommandForm>& forms) : forms_(forms) {
  for (std::size_t form = 0; form < forms_.size(); ++form) {
    const std::string command(forms_[form].command);
    if (std::find(commands_.begin(), commands_.end(), command) == commands_.end()) {
      commands_.push_back(command);
    }
    std::vector<std::vector<std::string>> sequences;
    expand(elementsOf(forms_[form].syntax), 0, {}, sequences);
    for (const std::vector<std::string>& sequence : sequences) {
      Path path{form, {}};
      for (const std::string& text : sequence) {
        Word word;
        std::string_view rest = text;
        while (!rest.empty()) {
          const std::size_t bar = rest.find('|');
          std::string alternative(rest.substr(0, bar));
          rest = bar == std::string_view::npos ? "" : rest.substr(bar + 1);
          if (alternative.size() > 3 && alternative.ends_with("...")) {
            word.repeats = true;
            alternative.resize(alternative.size() - 3);
          }
          if (isPlaceholder(alternative)) {
            word.placeholder = alternative;
          } else {
            word.keywords.push_back(alternative);
          }
        }
        path.words.push_back(std::move(word));
      }
      paths_.push_back(std::move(path));
    }
  }
}

std::vector<CommandGrammar::Position> CommandGrammar::follow(const std::vector<std::string>& words,
                                                             std::string& problem) const {
  std::vector<Position> positions;
  for (const Path& path : paths_) positions.push_back({&path, 0, false, {}});
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& given = words[i];
    // A word that is a keyword where one may come is that keyword, never a value.
    std::vector<Position> asKeyword;
    std::vector<Position> asValue;
    const auto take = [&](const Position& from, const Word& word, std::size_t next) {
      Position to{from.path, next, word.repeats, from.bound};
      if (std::find(word.keywords.begin(), word.keywords.end(), given) != word.keywords.end()) {
        asKeyword.push_back(std::move(to));
      } else if (!word.placeholder.empty()) {
        to.bound[word.placeholder] = given;
        asValue.push_back(std::move(to));
      }
    };
    for (const Position& position : positions) {
      const std::vector<Word>& pathWords = position.path->words;
      if (position.inRepeat) take(position, pathWords[position.next - 1], position.next);
      if (position.next < pathWords.size()) {
        take(position, pathWords[position.next], position.next + 1);
      }
    }
    positions = asKeyword.empty() ? std::move(asValue) : std::move(asKeyword);
    if (!positions.empty()) continue;
    problem = i == 0 ? unknownCommandMessage(given, commands_)
                     : quoted(given) + " is not expected after " + quoted(joined(words, i));
    return {};
  }
  return positions;
}

CommandGrammar::NameKind CommandGrammar::kindOf(const Path& path,
                                                std::string_view placeholder) const {
  const std::string_view command = forms_[path.form].command;
  if (placeholder == "NAME") {
    if (command == "policy") return NameKind::policy;
    if (command == "match") return NameKind::match;
    if (command == "action") return NameKind::action;
    if (command == "topology") return NameKind::topology;
    return NameKind::none;
  }
  static const std::map<std::string_view, NameKind> kKinds = {
      {"POLICY", NameKind::policy},     {"MATCH", NameKind::match},    {"ACTION", NameKind::action},
      {"TOPOLOGY", NameKind::topology}, {"INTF", NameKind::interface}, {"V", NameKind::vlan},
      {"MODE", NameKind::mode},         {"STATE", NameKind::state},
  };
  if (placeholder == "MAC" && command == "fdb") return NameKind::host;
  const auto found = kKinds.find(placeholder);
  return found == kKinds.end() ? NameKind::none : found->second;
}

CommandGrammar::Listing CommandGrammar::choicesAt(const std::vector<Position>& positions,
                                                  std::string_view prefix,
                                                  const NameLookup& names) const {
  // Each keyword with the paths that offer it and the index of the word after it.
  std::map<std::string, std::vector<std::pair<const Path*, std::size_t>>> keywords;
  std::vector<Choice> placeholders;
  std::string endHelp;
  bool end = false;
  for (const Position& position : positions) {
    const Path& path = *position.path;
    std::vector<std::size_t> offered;
    if (position.inRepeat) offered.push_back(position.next - 1);
    if (position.next < path.words.size()) offered.push_back(position.next);
    if (position.next == path.words.size() && !end) {
      end = true;
      endHelp = forms_[path.form].help;
    }
    for (const std::size_t index : offered) {
      const Word& word = path.words[index];
      for (const std::string& keyword : word.keywords) {
        if (startsWith(keyword, prefix)) keywords[keyword].emplace_back(&path, index + 1);
      }
      if (word.placeholder.empty()) continue;
      std::string help = meaning(word.placeholder, forms_[path.form].command);
      const NameKind kind = kindOf(path, word.placeholder);
      std::vector<std::string> existing;
      if (word.placeholder == "COMMAND") existing = commands_;
      if (kind != NameKind::none && names) existing = names(kind, position.bound);
      std::erase_if(existing,
                    [prefix](const std::string& name) { return !startsWith(name, prefix); });
      if (existing.size() > kListedNames) {
        existing.resize(kListedNames);
        existing.push_back("...");
      }
      if (!existing.empty()) {
        help += ":";
        for (const std::string& name : existing) help += " " + name;
      }
      const bool listed = std::any_of(placeholders.begin(), placeholders.end(),
                                      [&](const Choice& c) { return c.word == word.placeholder; });
      if (!listed) placeholders.push_back({word.placeholder, help});
    }
  }
  Listing listing;
  for (const auto& [keyword, sources] : keywords) {
    // A keyword that only leads on to sub-commands is described by them ("show"); any other by
    // the first form it begins or continues.
    std::vector<std::string> then;
    bool subCommands = true;
    for (const auto& [path, after] : sources) {
      if (after == path->words.size() || !path->words[after].placeholder.empty()) {
        subCommands = false;
        break;
      }
      for (const std::string& word : path->words[after].keywords) {
        if (std::find(then.begin(), then.end(), word) == then.end()) then.push_back(word);
      }
    }
    const std::string help = subCommands && then.size() > 1
                                 ? "then " + listed(then)
                                 : std::string(forms_[sources.front().first->form].help);
    listing.choices.push_back({keyword, help});
  }
  listing.choices.insert(listing.choices.end(), placeholders.begin(), placeholders.end());
  if (end && prefix.empty()) listing.choices.push_back({std::string(kEnd), endHelp});
  return listing;
}

std::vector<std::string> CommandGrammar::complete(std::string_view line,
                                                  const NameLookup& names) const {
  const auto [words, partial] = splitTyped(line);
  std::string problem;
  const std::vector<Position> positions = follow(words, problem);
  std::set<std::string> candidates;
  for (const Position& position : positions) {
    const Path& path = *position.path;
    std::vector<std::size_t> offered;
    if (position.inRepeat) offered.push_back(position.next - 1);
    if (position.next < path.words.size()) offered.push_back(position.next);
    for (const std::size_t index : offered) {
      const Word& word = path.words[index];
      std::vector<std::string> found = word.keywords;
      if (word.placeholder == "COMMAND") found = commands_;
      const NameKind kind = kindOf(path, word.placeholder);
      if (kind != NameKind::none && names) {
        const std::vector<std::string> existing = names(kind, position.bound);
        found.insert(found.end(), existing.begin(), existing.end());
      }
      for (std::string& candidate : found) {
        if (startsWith(candidate, partial)) candidates.insert(std::move(candidate));
      }
    }
  }
  return {candidates.begin(), candidates.end()};
}

CommandGrammar::Listing CommandGrammar::next(std::string_view line, const NameLookup& names) const {
  const auto [words, partial] = splitTyped(line);
  Listing listing;
  const std::vector<Position> positions = follow(words, listing.problem);
  if (positions.empty()) return listing;
  listing = choicesAt(positions, partial, names);
  if (!listing.choices.empty()) return listing;
  // Nothing starts with the word being typed: report it as a word that does not fit.
  std::vector<std::string> withPartial = words;
  withPartial.push_back(partial);
  follow(withPartial, listing.problem);
  return listing;
}

std::string CommandGrammar::format(const Listing& listing) {
  if (!listing.problem.empty()) return "  " + listing.problem + "\n";
  std::size_t width = 0;
  for (const Choice& choice : listing.choices) width = std::max(width, choice.word.size());
  std::string text;
  for (const Choice& choice : listing.choices) {
    text += "  " + choice.word;
    if (!choice.help.empty()) {
      text += std::string(width - choice.word.size() + 2, ' ') + choice.help;
    }
    text += "\n";
  }
  return text;
}

std::string closestWord(std::string_view word, const std::vector<std::string>& candidates) {
  // Edit distance with adjacent transpositions (optimal string alignment), row by row.
  const auto distance = [](std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
      for (std::size_t j = 1; j <= b.size(); ++j) {
        const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
        d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
        if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
          d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
      }
    }
    return d[a.size()][b.size()];
  };
  std::string best;
  std::size_t bestDistance = 3;
  for (const std::string& candidate : candidates) {
    // Words whose lengths differ by more than two are more than two edits apart.
    if (word.size() > candidate.size() + 2 || candidate.size() > word.size() + 2) continue;
    const std::size_t d = distance(word, candidate);
    if (d < bestDistance && d < word.size()) {
      best = candidate;
      bestDistance = d;
    }
  }
  return best;
}

std::string unknownCommandMessage(std::string_view name, const std::vector<std::string>& commands) {
  const std::string closest = closestWord(name, commands);
  if (closest.empty()) return "unknown command " + quoted(name) + "; 'help' lists the commands";
  return "unknown command " + quoted(name) + "; did you mean " + quoted(closest) + "?";
}

namespace {

template <typename T>
std::string text(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// The names an enumeration prints for its values, which run from 0 up to the first value
// printed as a number.
template <typename Enum>
std::vector<std::string> enumeratorNames() {
  std::vector<std::string> names;
  for (unsigned value = 0; value < 256; ++value) {
    std::string name = text(static_cast<Enum>(value));
    if (name.empty() || (name.front() >= '0' && name.front() <= '9')) break;
    names.push_back(std::move(name));
  }
  return names;
}

// The VLAN id `word` stands for, or 0 when it is not one.
std::uint16_t vlanIdOf(const std::string& word) {
  unsigned value = 0;
  const auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (ec != std::errc() || end != word.data() + word.size() || value < Bridging::VlanId::kMin ||
      value > Bridging::VlanId::kMax) {
    return 0;
  }
  return static_cast<std::uint16_t>(value);
}

std::vector<std::string> interfaceNames(const Agent& agent) {
  std::set<Nexo::IntfId> intfs;
  for (const auto& [intf, sw] : agent.bridgingConfig()->switchIntfConfig()) intfs.insert(intf);
  for (const auto& [vlan, vs] : agent.vlanStatusDir()->vlanStatus()) {
    for (const auto& [intf, member] : vs->vlanPortStatus()) intfs.insert(intf);
  }
  for (const auto& [name, topo] : agent.brTopo()->topoConfig()) {
    for (const auto& [intf, port] : topo->topoPortConfig()) intfs.insert(intf);
  }
  for (const auto& [fid, fdb] : agent.bridgingStatus()->fdbStatus()) {
    for (const auto& [mac, host] : fdb->learnedHost()) intfs.insert(host.intf());
  }
  for (const auto& [intf, ip] : agent.ipStatus()->ipIntfStatus()) intfs.insert(intf);
  for (const auto& [intf, id] : agent.l3IntfTable()->intfL3Index()) intfs.insert(intf);
  for (const auto& [policyName, policy] : agent.natStatus()->natFlow()) {
    for (const auto& [matchName, match] : policy->match()) {
      for (const auto& [actionName, action] : match->action()) {
        for (const auto& [intf, nextHop] : action->intf()) intfs.insert(intf);
      }
    }
  }
  std::vector<std::string> names;
  for (const Nexo::IntfId& intf : intfs) {
    // The empty interface stands for recirculation, which has no name to type.
    if (!intf.empty()) names.push_back(text(intf));
  }
  return names;
}

std::vector<std::string> vlanNames(const Agent& agent) {
  std::set<std::uint16_t> vlans;
  for (const auto& [vlan, vs] : agent.vlanStatusDir()->vlanStatus()) vlans.insert(vlan.value());
  for (const auto& [fid, fdb] : agent.bridgingStatus()->fdbStatus()) vlans.insert(fid.value());
  for (const auto& [vlan, topo] : agent.brTopo()->vidToTopoMap()) vlans.insert(vlan.value());
  std::vector<std::string> names;
  for (const std::uint16_t vlan : vlans) names.push_back(std::to_string(vlan));
  return names;
}

std::vector<std::string> namesIn(const Agent& agent, CommandGrammar::NameKind kind,
                                 const CommandGrammar::Bindings& bound) {
  using Kind = CommandGrammar::NameKind;
  const auto boundTo = [&bound](std::string_view placeholder) {
    const auto found = bound.find(placeholder);
    return found == bound.end() ? std::string() : found->second;
  };
  std::vector<std::string> names;
  switch (kind) {
    case Kind::none:
      break;
    case Kind::policy:
      for (const auto& [name, policy] : agent.natStatus()->natFlow()) names.push_back(text(name));
      break;
    case Kind::match:
      if (const auto policy = agent.natStatus()->natFlow(boundTo("POLICY"))) {
        for (const auto& [name, match] : policy->match()) names.push_back(text(name));
      }
      break;
    case Kind::action: {
      const auto policy = agent.natStatus()->natFlow(boundTo("POLICY"));
      const auto match = policy ? policy->match(boundTo("MATCH")) : nullptr;
      if (match) {
        for (const auto& [name, action] : match->action()) names.push_back(text(name));
      }
      break;
    }
    case Kind::topology:
      for (const auto& [name, topo] : agent.brTopo()->topoConfig()) names.push_back(text(name));
      break;
    case Kind::interface:
      return interfaceNames(agent);
    case Kind::vlan:
      return vlanNames(agent);
    case Kind::host:
      if (const std::uint16_t vlan = vlanIdOf(boundTo("V")); vlan != 0) {
        if (const auto fdb = agent.bridgingStatus()->fdbStatus(Bridging::Fid(vlan))) {
          for (const auto& [mac, host] : fdb->learnedHost()) names.push_back(text(mac));
        }
      }
      break;
    case Kind::mode:
      return enumeratorNames<Bridging::SwitchportMode>();
    case Kind::state:
      return enumeratorNames<Bridging::Topology::PortState>();
  }
  return names;
}

}  // namespace

CommandGrammar::NameLookup existingNames(const Agent& agent) {
  return [&agent](CommandGrammar::NameKind kind, const CommandGrammar::Bindings& bound) {
    return namesIn(agent, kind, bound);
  };
}

}  // namespace Sim
