// Texts of the manual that no single command owns.
#include "tools/mdomain/docs_text.h"

#include <algorithm>

namespace mdomain {
namespace {

std::string Placeholder(const Argument& argument) {
  switch (argument.kind) {
    case Kind::kOne:
      return argument.name;
    case Kind::kOptional:
    case Kind::kFlag:
      return "[" + argument.name + "]";
    case Kind::kMany:
      return argument.name + "...";
    case Kind::kAny:
      return "[" + argument.name + "...]";
    case Kind::kRepeated:
      return "[" + argument.name + " " + argument.value + "]...";
    default:
      return "[" + argument.name + " " + argument.value + "]";
  }
}

bool Changes(const Noun& noun) {
  return std::any_of(noun.commands.begin(), noun.commands.end(), [](const Command& command) {
    return command.effect == Effect::kChanges || command.effect == Effect::kDestroys;
  });
}

}  // namespace

std::vector<std::string> AboutMdomain() {
  return {
      "Manages the mail domains of a host: their names, which users and groups of the account "
      "system belong to them, and under which addresses. The model lives in one database; every "
      "change is published to the key store, from which the mail services read it.",
      "A domain is named by its index or by any of its names, in UTF-8 or in punycode. Users and "
      "groups are named by their name, with or without the directory's part, or by their id.",
      "Every listing has --json: one array or object on standard output and nothing else there, "
      "with the same field names in every version; a failure is an object with code, message and "
      "status on standard error. Log lines, questions and progress go to standard error, too. "
      "Commands that remove something ask first on a terminal and need --yes elsewhere.",
      "While a command changes anything it holds a lock file, so that two runs on one root never "
      "overlap: the second waits, says so, and gives up after --lock-timeout."};
}

std::vector<Meaning> ExitStatuses(const Noun* noun) {
  std::vector<Meaning> statuses = {
      {"0", "Done."},
      {"1", "Failed. The lines on standard error say why."},
      {"2", "Wrong usage: arguments, host settings, or a question that nobody can answer."},
      {"3", "Refused: a duplicate, an invalid value, the primary domain. Nothing was changed."},
      {"4", "Not found: the domain, user, group or key. Nothing was changed."}};
  if (noun == nullptr || noun->name == "refresh") {
    statuses.push_back({"5",
                        "Spared: a refresh did everything but delete, because more accounts are "
                        "gone than its limit allows."});
  }
  if (noun == nullptr || Changes(*noun)) {
    statuses.push_back({"6",
                        "Unpublished: the change was made on this machine, and the key store that "
                        "other machines read has not got it yet. mdomain publish or the next "
                        "change brings it there."});
  }
  return statuses;
}

std::string ArgumentTerm(const Argument& argument) {
  return argument.name + (argument.value.empty() ? "" : " " + argument.value);
}

std::string Synopsis(const Noun& noun, const Command& command) {
  std::string text = "mdomain " + noun.name + (command.words.empty() ? "" : " " + command.words);
  for (const bool is_option : {false, true}) {
    for (const Argument& argument : command.arguments) {
      if ((argument.name[0] == '-') == is_option) {
        text += " " + Placeholder(argument);
      }
    }
  }
  return text;
}

std::string Description(const Command& command) {
  return command.help + "." + (command.detail.empty() ? "" : " " + command.detail);
}

std::vector<DocumentedNoun> DocumentedNouns(const Manual& manual) {
  std::vector<DocumentedNoun> documented;
  for (const auto& [name, noun] : Nouns()) {
    if (noun.help.empty()) {
      continue;
    }
    const auto found = manual.nouns.find(name);
    documented.push_back({&noun, found == manual.nouns.end() ? NounManual() : found->second});
    for (const Command* command : DocumentedCommands(noun)) {
      documented.back().manual.commands[command->words];
    }
  }
  return documented;
}

void RequireWholeManual(const Manual& manual) {
  for (const DocumentedNoun& noun : DocumentedNouns(manual)) {
    for (const auto& [words, command] : noun.manual.commands) {
      if (command.examples.empty() || command.json.empty()) {
        throw Failure(kFailed,
                      "manual.txt has no example or no json of: " + noun.noun->name + " " + words);
      }
    }
    if (noun.manual.commands.size() != DocumentedCommands(*noun.noun).size()) {
      throw Failure(kFailed, "manual.txt explains what there is not, of: " + noun.noun->name);
    }
  }
  if (DocumentedNouns(manual).size() != manual.nouns.size()) {
    throw Failure(kFailed, "manual.txt has a noun that there is not");
  }
}

std::vector<const Command*> DocumentedCommands(const Noun& noun) {
  std::vector<const Command*> commands;
  for (const Command& command : noun.commands) {
    if (command.run != nullptr) {
      commands.push_back(&command);
    }
  }
  return commands;
}

}  // namespace mdomain
