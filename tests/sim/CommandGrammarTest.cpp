#include "sim/CommandGrammar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Interpreter.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

// The grammar of the interpreter's own command table, on a simulation built by scenario lines.
class CommandGrammarTest : public testing::Test {
 protected:
  void SetUp() override {
    const Strings script = {
        "policy video",
        "match video news flow src 10.1.0.0/16:0 dst 239.1.1.1/32:5000",
        "match video sport",
        "action video news a1 dst 239.9.9.9:5000 version 1",
        "nexthop video news a1 Ethernet3 vlan 10 mac 01:00:5e:09:09:09",
        "policy voice",
        "match voice calls",
        "intf Ethernet1 mode trunk",
        "vlan 10 member Ethernet2",
        "topology T1 port Ethernet4 state forwarding",
        "fdb 20 host 02:00:00:00:00:01 intf Ethernet5",
    };
    std::size_t line = 0;
    for (const std::string& text : script) {
      ASSERT_EQ(sim.runLine(text, "t.scn", ++line), Sim::Interpreter::Outcome::ok) << err.str();
    }
  }

  Strings complete(const std::string& line) const { return grammar.complete(line, names); }
  Strings nextWords(const std::string& line) const {
    Strings words;
    for (const auto& choice : grammar.next(line, names).choices) words.push_back(choice.word);
    return words;
  }
  std::string helpOf(const std::string& line, const std::string& word) const {
    for (const auto& choice : grammar.next(line, names).choices) {
      if (choice.word == word) return choice.help;
    }
    return "(not listed)";
  }

  std::ostringstream out;
  std::ostringstream err;
  Sim::Interpreter sim{out, err, /*echo=*/false};
  Sim::CommandGrammar grammar{Sim::Interpreter::commandForms()};
  Sim::CommandGrammar::NameLookup names = Sim::existingNames(sim.agent());
};

TEST_F(CommandGrammarTest, CompletesCommandsAndKeywordsOfPartialLines) {
  EXPECT_THAT(complete("sh"), ElementsAre("show"));
  EXPECT_THAT(complete("st"), ElementsAre("start", "stop"));
  EXPECT_THAT(complete("show c"), ElementsAre("calls", "chip", "counters"));
  EXPECT_THAT(complete("show calls "), ElementsAre("all", "json"));
  EXPECT_THAT(complete("chip fail "), ElementsAre("multicast", "unicast"));
  EXPECT_THAT(complete("chip fail unicast o"), ElementsAre("off", "on"));
  EXPECT_THAT(complete("chip groups "), ElementsAre("unlimited"));
  EXPECT_THAT(complete("help sh"), ElementsAre("show"));
  // A keyword where one may come is never a value: 'off' ends the trace command.
  EXPECT_THAT(complete("trace off "), IsEmpty());
  EXPECT_THAT(complete("shwo "), IsEmpty());
}

TEST_F(CommandGrammarTest, OptionalFieldsComeInAnyOrderEachOnce) {
  EXPECT_THAT(complete("action video news a1 "), ElementsAre("delete", "dst", "src", "version"));
  EXPECT_THAT(complete("action video news a1 dst 239.9.9.9 "), ElementsAre("src", "version"));
  EXPECT_THAT(complete("action video news a1 version 2 src 10.0.0.1 "), ElementsAre("dst"));
  EXPECT_THAT(complete("intf Ethernet1 native 10 "), ElementsAre("mode"));
  EXPECT_THAT(complete("intf Ethernet1 mode "),
              ElementsAre("access", "monitorDestination", "monitorSource", "routed", "trunk",
                          "tunnel", "voice"));
}

TEST_F(CommandGrammarTest, CompletesTheNamesThatExistWhereTheyMayCome) {
  EXPECT_THAT(complete("match "), ElementsAre("video", "voice"));
  EXPECT_THAT(complete("policy v"), ElementsAre("video", "voice"));
  // The matches and actions of the policy and match given before them.
  EXPECT_THAT(complete("action video "), ElementsAre("news", "sport"));
  EXPECT_THAT(complete("action voice "), ElementsAre("calls"));
  EXPECT_THAT(complete("nexthop video news "), ElementsAre("a1"));
  EXPECT_THAT(complete("nexthop video nope "), IsEmpty());
  EXPECT_THAT(complete("vlan-topology 10 "), ElementsAre("T1", "delete"));
  EXPECT_THAT(complete("send Ether"),
              ElementsAre("Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5"));
  EXPECT_THAT(complete("fdb "), ElementsAre("10", "20"));
  EXPECT_THAT(complete("fdb 20 host "), ElementsAre("02:00:00:00:00:01"));
  EXPECT_THAT(complete("fdb 10 host "), IsEmpty());
  EXPECT_THAT(complete("topology T1 port Ethernet4 state f"), ElementsAre("forwarding"));
}

TEST_F(CommandGrammarTest, ListsWhatMayComeNextWithItsHelp) {
  EXPECT_THAT(nextWords("show calls "), ElementsAre("all", "json", "<cr>"));
  EXPECT_EQ(helpOf("show calls ", "<cr>"), "print the chip calls made since the last look");
  EXPECT_EQ(helpOf("show calls ", "all"), "print every chip call");
  EXPECT_THAT(nextWords("policy video "), ElementsAre("delete", "<cr>"));
  EXPECT_THAT(nextWords("vlan 10 member Ethernet1 "), ElementsAre("INTF", "<cr>"));
  EXPECT_THAT(nextWords("send Ethernet1 "), ElementsAre("src", "vlan"));
  // A partial word lists what completes it, and a value being typed lists its placeholder.
  EXPECT_THAT(nextWords("show c"), ElementsAre("calls", "chip", "counters"));
  EXPECT_THAT(nextWords("vlan 1"), ElementsAre("V"));
  // A command that only leads on to sub-commands is described by them.
  EXPECT_EQ(helpOf("", "chip"), "then groups, port-sets, translations, fail-groups or fail");
  EXPECT_EQ(helpOf("", "policy"), "add a NAT policy");
  EXPECT_EQ(helpOf("match ", "POLICY"), "a policy name: video voice");
  EXPECT_EQ(helpOf("action video news ", "NAME"), "an action name: a1");
}

TEST_F(CommandGrammarTest, ExplainsWhyALineCannotGoOn) {
  EXPECT_EQ(grammar.next("shwo ", names).problem, "unknown command 'shwo'; did you mean 'show'?");
  EXPECT_EQ(grammar.next("show tabel ", names).problem, "'tabel' is not expected after 'show'");
  EXPECT_EQ(grammar.next("show x", names).problem, "'x' is not expected after 'show'");
  EXPECT_EQ(grammar.next("zzz", names).problem, "unknown command 'zzz'; 'help' lists the commands");
}

// A line of `syntax` with every optional group given, the first alternative of each choice and
// one word for a repeated one; placeholders stay as they are, values the grammar does not check.
std::string instanceOf(std::string_view syntax) {
  std::string line;
  std::istringstream words{std::string(syntax)};
  for (std::string word; words >> word;) {
    if (word.front() == '[') word.erase(0, 1);
    if (std::count(word.begin(), word.end(), ']') > std::count(word.begin(), word.end(), '[')) {
      word.pop_back();
    }
    word = word.substr(0, word.find('|'));
    if (word.ends_with("...")) word.resize(word.size() - 3);
    line += (line.empty() ? "" : " ") + word;
  }
  return line;
}

// Every form of the table is a line the grammar takes to its end, each keyword completing from its
// first letter on the way: a syntax the grammar misreads would leave the shell unable to help.
TEST_F(CommandGrammarTest, TakesEveryFormOfTheCommandTable) {
  for (const Sim::CommandForm& form : Sim::Interpreter::commandForms()) {
    const std::string line = instanceOf(form.syntax);
    SCOPED_TRACE(line);
    const auto listing = grammar.next(line + " ", names);
    EXPECT_EQ(listing.problem, "");
    EXPECT_THAT(nextWords(line + " "), testing::Contains("<cr>"));
    std::string typed;
    std::istringstream words(line);
    for (std::string word; words >> word; typed += word + " ") {
      if (std::islower(static_cast<unsigned char>(word.front())) == 0) continue;
      EXPECT_THAT(complete(typed + word.front()), testing::Contains(word));
    }
  }
}

TEST(CommandGrammar, FormatsOneAlignedLinePerChoice) {
  const Sim::CommandGrammar grammar({{"go", "go [far] N", "move"}, {"go", "go home", "rest"}});
  EXPECT_EQ(Sim::CommandGrammar::format(grammar.next("go ", {})),
            "  far   move\n"
            "  home  rest\n"
            "  N     a decimal number\n");
  EXPECT_EQ(Sim::CommandGrammar::format(grammar.next("og", {})),
            "  unknown command 'og'; did you mean 'go'?\n");
}

TEST(CommandGrammar, SuggestsOnlyACloseCommand) {
  const Strings commands = {"policy", "match", "show", "start", "stop", "quit", "exit"};
  EXPECT_EQ(Sim::closestWord("shwo", commands), "show");  // a transposition is one slip
  EXPECT_EQ(Sim::closestWord("polcy", commands), "policy");
  EXPECT_EQ(Sim::closestWord("stat", commands), "start");
  EXPECT_EQ(Sim::closestWord("sotp", commands), "stop");
  EXPECT_EQ(Sim::closestWord("qx", commands), "");  // two edits of two letters is no slip
  EXPECT_EQ(Sim::closestWord("frobnicate", commands), "");
}

}  // namespace
