// The table of commands. Every noun has a file of its own and puts itself into the table with a
// Register object; parsing, help, the manual page and docs/reference.md come from the table.
//
// A handler reads its arguments from the Call, calls the API, and prints through the Output. It
// ends early by throwing a Failure.
#ifndef TOOLS_MDOMAIN_COMMAND_H
#define TOOLS_MDOMAIN_COMMAND_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/nodes.h"
#include "tools/mdomain/lock.h"
#include "tools/mdomain/output.h"
#include "tools/mdomain/status.h"

namespace mdomain {

enum class Kind {
  kOne,       // positional, exactly one
  kOptional,  // positional, none or one
  kMany,      // positional, one or more
  kAny,       // positional, any number
  kFlag,      // --name
  kOption,    // --name VALUE
  kRepeated,  // --name VALUE, as often as wanted
  kNumber,    // --name N, not negative
};

struct Argument {
  std::string name;   // "DOMAIN" or "--alias"
  std::string value;  // what an option takes, as help and manual show it
  Kind kind;
  std::string help;
};

inline Argument One(const std::string& name, const std::string& help) {
  return {name, "", Kind::kOne, help};
}
inline Argument Optional(const std::string& name, const std::string& help) {
  return {name, "", Kind::kOptional, help};
}
inline Argument Many(const std::string& name, const std::string& help) {
  return {name, "", Kind::kMany, help};
}
inline Argument Any(const std::string& name, const std::string& help) {
  return {name, "", Kind::kAny, help};
}
inline Argument Flag(const std::string& name, const std::string& help) {
  return {name, "", Kind::kFlag, help};
}
inline Argument Option(const std::string& name, const std::string& value, const std::string& help) {
  return {name, value, Kind::kOption, help};
}
inline Argument Repeated(const std::string& name, const std::string& value,
                         const std::string& help) {
  return {name, value, Kind::kRepeated, help};
}
inline Argument Number(const std::string& name, const std::string& help) {
  return {name, "N", Kind::kNumber, help};
}

// Every command that changes the domains has it; the table adds it to those that always do.
inline Argument DryRunFlag() {
  return Flag("--dry-run", "Show what would change, and change nothing");
}

// What a command does to the host. A changing command runs under the lock, and only on the machine
// that publishes. A destructive one must call Call::Confirm, which asks and then takes the lock.
// kChangesHere writes only files of this machine, made from what was published: it runs under the
// lock on every machine.
enum class Effect { kReads, kChanges, kChangesHere, kDestroys };

class Call;

// For a command that shows by itself what it would do.
inline const char* ShowsItself() {
  return "--dry-run prints, and makes nothing.";
}

struct Command {
  std::string words;   // below the noun: "list", "names add"; empty when the noun is the command
  std::string help;    // one line
  std::string detail;  // what may surprise, for the manual; may be empty
  Effect effect;
  std::vector<Argument> arguments;
  void (*run)(Call&);  // null: a heading for the commands whose words begin with these
  // Why --dry-run does not run it on copies, and the history does not have it: its effect lies
  // elsewhere. A sentence that says what tells it instead, which the help shows; empty for the
  // others. The table gives these DryRunFlag.
  std::string without_trial = "";
};

// Whether --dry-run runs it on copies.
bool HasTrial(const Command& command);

struct Noun {
  std::string name;
  std::string help;
  std::vector<Command> commands;
};

// Puts a noun into the table, or more commands under one that is there.
class Register {
 public:
  explicit Register(const Noun& noun);
};

// All nouns, ascending by name.
const std::map<std::string, Noun>& Nouns();

struct GlobalOptions {
  std::string root;
  bool json = false;
  bool verbose = false;
  bool yes = false;
  bool quiet = false;
  int lock_timeout = 60;  // seconds
};

// One run of one command: what was typed, and where the answer goes.
class Call {
 public:
  Call(const GlobalOptions& options, std::map<std::string, std::vector<std::string>> values);

  bool Has(const std::string& name) const { return values_.count(name) != 0; }
  // The value, or the empty string when it was not given.
  std::string Text(const std::string& name) const;
  std::vector<std::string> List(const std::string& name) const;
  // The value of a number option, `fallback` when it was not given. A text that is not a number
  // from 0 up is wrong usage.
  int Int(const std::string& name, int fallback) const;

  const GlobalOptions& options() const { return options_; }
  // Whether nobody wants to hear that all went well.
  bool IsQuiet() const { return options_.quiet; }
  // With --json only beside it: on the same terminal the two would stand in each other's lines.
  bool ShowsProgress() const;
  // What the command tells of a dry run besides what would change.
  void TellOfTrial(const Json::Value& record, const std::vector<Column>& columns) {
    of_trial_ = record;
    columns_of_trial_ = columns;
  }
  const Json::Value& OfTrial() const { return of_trial_; }
  const std::vector<Column>& ColumnsOfTrial() const { return columns_of_trial_; }
  Output& out() { return out_; }

  // Takes the lock file and holds it until the process ends. Refused where another machine
  // manages the domains: that one has the model, and a change here would be lost or would undo a
  // change there. From then on changes are kept back from a shared key store until EndPublication.
  void Lock();
  // Takes the lock file on every machine.
  void LockHere();
  // Gives it back, for a command that goes on waiting.
  void Unlock();
  // Publishes what was changed since Lock, all at once. Why that failed, or the empty string.
  std::string EndPublication();
  // Gives what a dry run of the same command would change, in a line; for the question.
  void SetForecast(std::function<std::string()> forecast) { forecast_ = std::move(forecast); }
  // What is to happen once the answer is written; it may throw a Failure.
  void AfterTelling(std::function<void()> last) { last_ = std::move(last); }
  void EndTelling() const {
    if (last_) {
      last_();
    }
  }
  // Asks on the terminal unless --yes was given, then takes the lock. Declined: a failure. No
  // terminal and no --yes: wrong usage.
  void Confirm(const std::string& question);
  // Only asks.
  void Ask(const std::string& question) const;

 private:
  const GlobalOptions& options_;
  std::map<std::string, std::vector<std::string>> values_;
  Output out_;
  std::function<std::string()> forecast_;
  std::function<void()> last_;
  Json::Value of_trial_;
  std::vector<Column> columns_of_trial_;
  std::unique_ptr<ChangeLock> lock_;
  std::unique_ptr<korvmailserver::PublicationScope> publication_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_COMMAND_H
