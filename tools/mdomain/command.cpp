// The table itself, and what a handler can ask its call. Nouns register before main() begins; the
// first of them makes the table.
#include "tools/mdomain/command.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "lib-domain/base/text.h"
#include "tools/mdomain/leftovers.h"
#include "tools/mdomain/lock_watch.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

std::map<std::string, Noun>& Table() {
  static std::map<std::string, Noun> table;
  return table;
}

}  // namespace

std::function<void()>& WhenLocked() {
  static std::function<void()> use;
  return use;
}

bool HasTrial(const Command& command) {
  return command.without_trial.empty() &&
         std::any_of(command.arguments.begin(), command.arguments.end(),
                     [](const Argument& argument) { return argument.name == DryRunFlag().name; });
}

Register::Register(const Noun& noun) {
  Noun& entry = Table()[noun.name];
  entry.name = noun.name;
  if (!noun.help.empty()) {
    entry.help = noun.help;
  }
  for (const Command& command : noun.commands) {
    entry.commands.push_back(command);
    const bool changes = command.effect == Effect::kChanges || command.effect == Effect::kDestroys;
    if (!command.without_trial.empty()) {
      std::string& detail = entry.commands.back().detail;
      detail += (detail.empty() ? "" : " ") + command.without_trial;
    } else if (changes) {
      entry.commands.back().arguments.push_back(DryRunFlag());
    }
  }
}

const std::map<std::string, Noun>& Nouns() {
  return Table();
}

Call::Call(const GlobalOptions& options, std::map<std::string, std::vector<std::string>> values)
    : options_(options), values_(std::move(values)), out_(options.json, options.quiet) {}

std::string Call::Text(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() || found->second.empty() ? "" : found->second.back();
}

std::vector<std::string> Call::List(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::vector<std::string>() : found->second;
}

int Call::Int(const std::string& name, int fallback) const {
  if (!Has(name)) {
    return fallback;
  }
  int number = 0;
  if (!MDOMAIN::BASE::ConvertToInt(Text(name), number) || number < 0) {
    throw Failure(kUsage, name + ": \"" + Text(name) + "\" is not a number from 0 to 2147483647");
  }
  return number;
}

bool Call::ShowsProgress() const {
  return !IsQuiet() && (!options_.json || isatty(STDOUT_FILENO) == 0);
}

void Call::LockHere() {
  if (!lock_) {
    lock_ = std::make_unique<ChangeLock>(options_.lock_timeout, IsQuiet() || options_.json);
    RemoveAllLeftovers();
    if (WhenLocked()) {
      WhenLocked()();
    }
  }
}

void Call::Lock() {
  LockHere();
  RequireManager();
  publication_ = std::make_unique<korvmailserver::PublicationScope>();
}

void Call::Unlock() {
  lock_.reset();
}

std::string Call::EndPublication() {
  if (!publication_) {
    return "";
  }
  const HeldLog log;
  publication_.reset();
  std::string why = korvmailserver::WhyUnpublished();
  log.Show(why);
  return why;
}

void Call::Confirm(const std::string& question) {
  Ask(question);
  Lock();
}

void Call::Ask(const std::string& question) const {
  if (!options_.yes) {
    if (isatty(STDIN_FILENO) == 0) {
      throw Failure(kUsage, question + " Nobody can answer here", "give --yes to do it");
    }
    const std::string forecast = forecast_ ? forecast_() : "";
    if (!forecast.empty()) {
      std::cerr << Printable("would change: " + forecast) << "\n";
    }
    std::cerr << Printable(question) << " [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "yes") {
      throw Failure(kFailed, "nothing was changed");
    }
  }
}

}  // namespace mdomain
