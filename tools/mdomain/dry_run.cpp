#include "tools/mdomain/dry_run.h"

#include <json/reader.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <sstream>

#include "lib-domain/history/plan.h"
#include "lib-domain/history/trial.h"
#include "platform/include/process.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr size_t kMostRows = 20000000;  // a first refresh of a million users touches fewer
constexpr char kSummary[] = "would change: ";
constexpr char kFlag[] = "--dry-run";

// The lock keeps the copies of one moment. Who may not take it, but may read everything, gets a
// plan all the same.
void LockIfPossible(Call& call) {
  try {
    call.Lock();
  } catch (const CannotLock&) {
    RequireManager();
  }
}

void Copy(const Parsed& parsed, MDOMAIN::HISTORY::Trial& trial) {
  Call call(parsed.options, parsed.values);
  LockIfPossible(call);
  std::string error;
  if (!trial.Copy(error)) {
    throw Failure(kFailed, "nothing could be tried: " + error);
  }
}

int StatusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw Failure(kFailed, std::string("the dry run was lost: ") + std::strerror(errno));
    }
  }
  if (WIFSIGNALED(status)) {
    throw Failure(kFailed, std::string("the dry run ended: ") + strsignal(WTERMSIG(status)));
  }
  return WEXITSTATUS(status);
}

}  // namespace

bool IsDryRun(const Parsed& parsed) {
  return parsed.command->has_trial && parsed.values.count(kFlag) != 0;
}

int DryRun(const Parsed& parsed, int (*run)(const Parsed& parsed)) {
  MDOMAIN::HISTORY::Trial trial;
  Copy(parsed, trial);
  std::cout.flush();
  const pid_t child = fork();
  if (child < 0) {
    throw Failure(kFailed, std::string("the dry run cannot begin: ") + std::strerror(errno));
  }
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    trial.Enter();
    const int status = run(parsed);
    std::cout.flush();
    _exit(status);
  }
  // An interrupt from the terminal reaches both: the copies go when the command has ended.
  const auto before = std::signal(SIGINT, SIG_IGN);
  const int status = StatusOf(child);
  (void)std::signal(SIGINT, before);
  return status;
}

namespace {

korvmailserver::ProgramEnd TryAlone(std::vector<std::string> typed, const std::string& input = "") {
  korvmailserver::ProgramCall self;
  self.path = "/proc/self/exe";
  for (char** variable = environ; *variable != nullptr; ++variable) {
    self.environment.emplace_back(*variable);
  }
  self.arguments = std::move(typed);
  self.arguments.insert(self.arguments.begin(), "--yes");
  self.arguments.emplace_back(kFlag);
  self.is_split = true;
  self.input = input;
  return korvmailserver::RunProgram(self);
}

// What stands behind kSummary in its line; empty without it.
std::string SummaryOf(const std::string& output) {
  const size_t begin = output.rfind(kSummary);
  const std::string summary =
      begin == std::string::npos ? "" : output.substr(begin + sizeof(kSummary) - 1);
  return summary.substr(0, summary.find('\n'));
}

}  // namespace

std::string Forecast(const Parsed& parsed) {
  if (parsed.command->effect != Effect::kDestroys || !parsed.command->has_trial) {
    return "";
  }
  const korvmailserver::ProgramEnd end = TryAlone(parsed.typed);
  return end.status == kDone ? SummaryOf(end.output) : "";
}

Trial Try(const std::vector<std::string>& typed, const std::string& input) {
  const korvmailserver::ProgramEnd end = TryAlone(typed, input);
  Trial trial;
  trial.status = end.status;
  trial.errors = end.errors;
  std::istringstream stream(end.output);
  std::string error;
  if (end.status == kDone &&
      (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &trial.plan, &error) ||
       !trial.plan.isArray())) {
    trial.status = kFailed;
  }
  return trial;
}

AccountsForecast ForecastRefresh() {
  const korvmailserver::ProgramEnd end = TryAlone({"refresh", "--json"});
  Json::Value record;
  std::istringstream stream(end.output);
  std::string error;
  if ((end.status != kDone && end.status != kSpared) ||
      !Json::parseFromStream(Json::CharReaderBuilder(), stream, &record, &error)) {
    return {false, end.errors.substr(0, end.errors.find('\n'))};
  }
  std::vector<std::string> sentences;
  for (const Json::Value& entry : record["plan"]) {
    const std::string what = entry["what"].asString();
    if (what == "account" || what == "group" || what == "member") {
      sentences.push_back(entry["text"].asString());
    }
  }
  return {true, FirstOf(sentences, "; ")};
}

PlanPrinter::PlanPrinter() : changes_(kMostRows) {}

void PlanPrinter::Print(Call& call) {
  MDOMAIN::HISTORY::Changes changes;
  MDOMAIN::HISTORY::Plan plan;
  if (!changes_.List(changes) || !MDOMAIN::HISTORY::MakePlan(changes, plan)) {
    throw Failure(kFailed, "what the command would change could not be read");
  }
  Output& out = call.out();
  out.Clear();
  if (out.json() && call.OfTrial().isNull()) {
    out.List(plan.entries, {});
    return;
  }
  if (!call.OfTrial().isNull()) {
    Json::Value record = call.OfTrial();
    record["plan"] = plan.entries;
    out.Record(record, call.ColumnsOfTrial());
  }
  if (out.json()) {
    return;
  }
  std::vector<std::string> lines;
  for (const Json::Value& entry : plan.entries) {
    lines.push_back(entry["text"].asString());
  }
  lines.push_back(lines.empty() ? "nothing would change" : kSummary + plan.summary);
  out.Texts(lines);
}

}  // namespace mdomain
