#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Sim {

class Agent;

// One form of a scenario command, as the interpreter's command table states it.
struct CommandForm {
  std::string_view command;  // the first word of the syntax
  std::string_view syntax;   // "match POLICY NAME [flow src A.B.C.D/LEN:PORT dst A.B.C.D/LEN:PORT]"
  std::string_view help;     // what the form does
};

// What the interactive shell knows of the words of a command line: which words may come next,
// what completes a partial word and what each of them means. It is built from the syntax strings
// of the command forms, the same table the interpreter parses and prints with `help`, so a new
// command or form completes as soon as it is in the table.
//
// A syntax is a list of words: a lower-case word is a keyword; a word without lower-case letters
// is a placeholder for a value ("INTF", "IP[:PORT]", "A.B.C.D/LEN"); "a|b" offers alternatives,
// keywords or placeholders ("N|unlimited"); a trailing "..." lets the word repeat; "[...]" makes
// the words inside optional. Optional groups that follow each other may be given in any order,
// each at most once, as the interpreter takes them ("[src IP] [dst IP] [version N]").
//
// Words are matched as the interpreter reads them: a keyword given where the grammar expects
// one is never taken for a value. Values are not checked: the interpreter does that when the line
// runs. Placeholders that stand for things that exist (policies, matches, actions, topologies,
// interfaces, VLANs, learned hosts, switchport modes and port states) get their names from a
// NameLookup, which sees the words bound to the placeholders before them (the policy of a match).
class CommandGrammar {
 public:
  // What a placeholder names, when it names something that may exist.
  enum class NameKind { none, policy, match, action, topology, interface, vlan, host, mode, state };
  // The words given so far for each placeholder of the line's form: {"POLICY": "video"}.
  using Bindings = std::map<std::string, std::string, std::less<>>;
  // The names of `kind` that exist now, in the order to offer them.
  using NameLookup = std::function<std::vector<std::string>(NameKind kind, const Bindings& bound)>;

  // One thing that may come next on a line.
  struct Choice {
    std::string word;  // a keyword, a placeholder ("INTF") or kEnd
    std::string help;  // what it means; for a placeholder, also the names that exist
  };
  // What `?` shows: the choices, or why the line cannot go on.
  struct Listing {
    std::vector<Choice> choices;
    std::string problem;  // empty when the words so far fit a form
  };

  // The word that stands for the end of the line in listings.
  static constexpr std::string_view kEnd = "<cr>";

  explicit CommandGrammar(const std::vector<CommandForm>& forms);

  // The words that may replace the last word of `line`, which is partial ("" after a space): the
  // keywords, command names and existing names that start with it, sorted, each once.
  std::vector<std::string> complete(std::string_view line, const NameLookup& names) const;
  // What may come after the words of `line`: when the line ends in a word, the words that
  // complete that word; after a space, everything that may follow, with kEnd when the line may
  // end there. Keywords first (sorted), then placeholders, then kEnd.
  Listing next(std::string_view line, const NameLookup& names) const;
  // `listing` as `?` prints it: one line per choice, the words aligned, or the problem.
  static std::string format(const Listing& listing);

  // The command names, in table order.
  const std::vector<std::string>& commands() const { return commands_; }

 private:
  struct Word {
    std::vector<std::string> keywords;  // alternatives that are keywords
    std::string placeholder;            // the placeholder alternative, or ""
    bool repeats = false;               // "X...": one or more
  };
  // One way through a form: its optional groups chosen and ordered.
  struct Path {
    std::size_t form;  // index into forms_
    std::vector<Word> words;
  };
  // A path and how far the words of a line got along it.
  struct Position {
    const Path* path;
    std::size_t next;  // the next word of the path to match
    bool inRepeat;     // the word before `next` repeats and may match again
    Bindings bound;    // placeholder -> word given
  };

  // Follows `words` from the start; the positions reached, or `problem` when none is.
  std::vector<Position> follow(const std::vector<std::string>& words, std::string& problem) const;
  // The choices at `positions`, with `prefix` filtering keywords and names.
  Listing choicesAt(const std::vector<Position>& positions, std::string_view prefix,
                    const NameLookup& names) const;
  NameKind kindOf(const Path& path, std::string_view placeholder) const;

  std::vector<CommandForm> forms_;
  std::vector<Path> paths_;
  std::vector<std::string> commands_;
};

// The candidate closest to `word` in edit distance (a transposition counting as one edit), when
// it is close enough to be a slip of the keyboard: at most two edits, and fewer than the word has
// letters. The first in `candidates` wins a tie; "" when none is close.
std::string closestWord(std::string_view word, const std::vector<std::string>& candidates);

// The report of a command name that is not one of `commands`, suggesting the closest one.
std::string unknownCommandMessage(std::string_view name, const std::vector<std::string>& commands);

// The names that exist in the simulation of `agent`, for CommandGrammar; `agent` must outlive the
// lookup.
CommandGrammar::NameLookup existingNames(const Agent& agent);

}  // namespace Sim
