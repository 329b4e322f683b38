// --dry-run: the command itself, on copies that go afterwards, and what it changed there.
#ifndef TOOLS_MDOMAIN_DRY_RUN_H
#define TOOLS_MDOMAIN_DRY_RUN_H

#include "lib-domain/history/model_changes.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/parser.h"

namespace mdomain {

// Whether --dry-run was typed for a command that has it.
bool IsDryRun(const Parsed& parsed);

// Ends a process that was started for a dry run alone and would do more.
void RequireDryRunIfAsked(const Parsed& parsed);

// Copies under the lock, runs the command in a process of its own, which prints the plan, and
// removes the copies. That process's exit status. A refused command is refused as without it.
int DryRun(const Parsed& parsed, int (*run)(const Parsed& parsed));

// What a dry run of the command would change, in a line; empty where it cannot be told. Another
// process does it: this one has its databases open already.
std::string Forecast(const Parsed& parsed);

// A dry run of a command by another process: what it would change, or how it is refused.
struct Trial {
  int status = kFailed;
  Json::Value plan;      // its list
  std::string warnings;  // lines
  std::string message;   // why it was refused
  std::string next;      // and what to do
};
// With what it reads on its standard input, and the seconds that it waits for the lock.
Trial Try(const std::vector<std::string>& typed, const std::string& input, int lock_timeout);

// Which accounts, groups, members and owners of addresses a refresh would change.
struct AccountsForecast {
  bool is_told = false;
  std::string text;  // sentences, empty for none; where it is not told, why
};
AccountsForecast ForecastRefresh();

// Green for what somebody gets, red for what somebody loses.
Colour ColourOfChange(const Json::Value& entry);

// In the process of a dry run: watches what the command changes, and prints it in the place of what
// the command would have printed.
class PlanPrinter {
 public:
  explicit PlanPrinter(const Parsed& parsed);
  void Print(Call& call);

 private:
  MDOMAIN::HISTORY::ModelChanges changes_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DRY_RUN_H
