// mdomain complete: what may stand next on a command line, for the shells' completion.
#include <algorithm>
#include <iterator>
#include <sstream>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/base/text.h"
#include "lib-domain/history/history.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/parser.h"

namespace mdomain {
namespace {

using Words = std::vector<std::string>;

Words Split(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

bool Begins(const std::string& text, const std::string& begin) {
  return MDOMAIN::BASE::ToLowerAscii(text.substr(0, begin.size())) ==
         MDOMAIN::BASE::ToLowerAscii(begin);
}

const Argument* FindOption(const std::vector<Argument>& arguments, const std::string& name) {
  const auto found = std::find_if(arguments.begin(), arguments.end(), [&](const Argument& one) {
    return one.name == name || (", " + one.name).find(", " + name) == 0;
  });
  return found == arguments.end() ? nullptr : &*found;
}

bool TakesValue(const Argument& argument) {
  return argument.kind == Kind::kOption || argument.kind == Kind::kRepeated ||
         argument.kind == Kind::kNumber;
}

// The words before the current one, taken apart.
struct Typed {
  Words positionals;    // noun, verbs and arguments
  std::string awaited;  // the value that the option before the current word takes
};

// The command whose words the positionals begin with, the longest; null while there is none.
const Command* FindCommand(const Words& positionals, size_t& used) {
  const auto noun = positionals.empty() ? Nouns().end() : Nouns().find(positionals[0]);
  const Command* found = nullptr;
  if (noun == Nouns().end()) {
    return nullptr;
  }
  for (const Command& command : noun->second.commands) {
    const Words words = Split(command.words);
    const bool is_typed = words.size() < positionals.size() &&
                          std::equal(words.begin(), words.end(), positionals.begin() + 1);
    if (is_typed && command.run != nullptr && (found == nullptr || words.size() + 1 > used)) {
      found = &command;
      used = words.size() + 1;
    }
  }
  return found;
}

Typed TakeApart(const Words& before) {
  Typed typed;
  const std::vector<Argument> globals = GlobalArguments();
  for (const std::string& word : before) {
    if (!typed.awaited.empty()) {
      typed.awaited.clear();
      continue;
    }
    if (word.empty() || word[0] != '-') {
      typed.positionals.push_back(word);
      continue;
    }
    size_t used = 0;
    const Command* command = FindCommand(typed.positionals, used);
    const Argument* option = command == nullptr ? nullptr : FindOption(command->arguments, word);
    option = option == nullptr ? FindOption(globals, word) : option;
    typed.awaited = option != nullptr && TakesValue(*option) ? option->value : "";
  }
  return typed;
}

// Names of what an argument stands for: those that begin with `begin`, so that a million users are
// not handed to a shell.
Words NamesOf(const std::string& what, const std::string& begin) {
  Words names;
  const auto add = [&](const std::string& name) {
    if (Begins(name, begin)) {
      names.push_back(name);
    }
  };
  constexpr int kMost = 200;
  if (what == "DOMAIN") {
    const Domains domains;
    for (const KnownDomain& domain : domains.all()) {
      add(domain.name);
    }
  } else if (what == "USER") {
    MDOMAIN::DB::UserDBFilter filter;
    ForEachUser(filter, [&](const MDOMAIN::RECORD::User& user) {
      if (names.size() < kMost) {
        add(user.GetUserName());
      }
    });
  } else if (what == "GROUP") {
    for (const std::string& name : ShortNames(ListGroups(MDOMAIN::DB::GroupDBFilter()))) {
      add(name);
    }
  } else if (what == "KEY") {
    std::map<std::string, std::string> values;
    mailConfList(values);
    for (const auto& [key, value] : values) {
      add(key);
    }
  } else if (what == "ROLE") {
    for (const char* role : {"normal", "domain_admin", "group"}) {
      add(role);
    }
  } else if (what == "TYPE") {
    for (const char* type : {"recipient", "sender", "domain"}) {
      add(type);
    }
  }
  return names;
}

// What there is of the noun under such a name; of the domain that was typed first, where it is in
// one. A domain that there is not ends the command, without candidates.
Words NamesOfNoun(const Words& positionals, size_t used, const std::string& what) {
  Words names;
  const std::string noun = positionals.empty() ? "" : positionals[0];
  if (noun == "history" && what == "ID") {
    constexpr int kMost = 20;
    std::vector<MDOMAIN::HISTORY::Entry> entries;
    MDOMAIN::HISTORY::ListEntries(kMost, entries);
    std::transform(entries.begin(), entries.end(), std::back_inserter(names),
                   [](const auto& entry) { return std::to_string(entry.id); });
  }
  if (what != "NAME" || positionals.size() <= used || positionals[used - 1] == "add" ||
      positionals[used - 1] == "create") {
    return names;
  }
  const Domains domains;
  if (noun == "domain") {
    names = domains.Find(positionals[used]).additional_names;
  } else if (noun == "alias") {
    std::vector<Alias::Entry> entries;
    MDOMAIN::API::AliasEntry().List(domains.Find(positionals[used]).idx, entries);
    std::transform(entries.begin(), entries.end(), std::back_inserter(names),
                   [](const Alias::Entry& entry) { return entry.name; });
  }
  return names;
}

Words NextWords(const Words& positionals) {
  Words next;
  const auto noun = positionals.empty() ? Nouns().end() : Nouns().find(positionals[0]);
  if (positionals.empty()) {
    for (const auto& [name, entry] : Nouns()) {
      if (!entry.help.empty()) {
        next.push_back(name);
      }
    }
    next.push_back("help");
  } else if (noun != Nouns().end()) {
    for (const Command& command : noun->second.commands) {
      const Words words = Split(command.words);
      const size_t typed = positionals.size() - 1;
      if (words.size() > typed &&
          std::equal(positionals.begin() + 1, positionals.end(), words.begin())) {
        next.push_back(words[typed]);
      }
    }
  }
  std::sort(next.begin(), next.end());
  next.erase(std::unique(next.begin(), next.end()), next.end());
  return next;
}

// The name of the positional argument that comes next; empty when there is none.
std::string NextArgument(const Command& command, size_t given) {
  for (const Argument& argument : command.arguments) {
    if (argument.name[0] == '-') {
      continue;
    }
    if (argument.kind == Kind::kMany || argument.kind == Kind::kAny || given == 0) {
      return argument.name;
    }
    --given;
  }
  return "";
}

Words Options(const Command* command) {
  Words names;
  std::vector<Argument> arguments = GlobalArguments();
  if (command != nullptr) {
    arguments.insert(arguments.end(), command->arguments.begin(), command->arguments.end());
  }
  for (const Argument& argument : arguments) {
    if (argument.name[0] == '-') {
      names.push_back(argument.name.substr(argument.name.rfind(' ') + 1));
    }
  }
  return names;
}

void Complete(Call& call) {
  Words words = call.List("WORD");
  const std::string current = words.empty() ? "" : words.back();
  if (!words.empty()) {
    words.pop_back();
  }
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());  // which takes the words of a command
  }
  const Typed typed = TakeApart(words);
  size_t used = 0;
  const Command* command = FindCommand(typed.positionals, used);
  Words candidates;
  if (!typed.awaited.empty()) {
    candidates = NamesOf(typed.awaited, current);
  } else if (!current.empty() && current[0] == '-') {
    candidates = Options(command);
  } else {
    candidates = NextWords(typed.positionals);
    if (command != nullptr) {
      const Words names = NamesOf(NextArgument(*command, typed.positionals.size() - used), current);
      candidates.insert(candidates.end(), names.begin(), names.end());
      const Words own = NamesOfNoun(typed.positionals, used,
                                    NextArgument(*command, typed.positionals.size() - used));
      candidates.insert(candidates.end(), own.begin(), own.end());
    }
  }
  candidates.erase(
      std::remove_if(candidates.begin(), candidates.end(),
                     [&](const std::string& candidate) { return !Begins(candidate, current); }),
      candidates.end());
  call.out().Texts(candidates);
}

const Register kComplete({
    "complete",
    "",
    {{"",
      "Print what may stand next on a command line, for the shells",
      "The last WORD is the one that is being typed, and may be empty.",
      Effect::kReads,
      {Any("WORD", "The words behind mdomain, after --")},
      Complete}},
});

}  // namespace
}  // namespace mdomain
