#include "tools/mdomain/dry_run.h"

#include <json/reader.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sstream>

#include "lib-domain/history/plan.h"
#include "lib-domain/history/trial.h"
#include "platform/include/process.h"
#include "platform/include/root_path.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr char kOnlyDryRun[] = "MDOMAIN_ONLY_DRY_RUN";
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
  // An interrupt from the terminal reaches the command too: the copies go when it has ended.
  std::for_each(std::begin(kSignals), std::end(kSignals),
                [](int number) { (void)std::signal(number, SIG_IGN); });
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

void RequireDryRunIfAsked(const Parsed& parsed) {
  if (secure_getenv(kOnlyDryRun) != nullptr && !IsDryRun(parsed)) {
    throw Failure(kUsage, "only a dry run was asked for, and this is none");
  }
}

bool IsDryRun(const Parsed& parsed) {
  return HasTrial(*parsed.command) && parsed.values.count(kFlag) != 0;
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
    std::for_each(std::begin(kSignals), std::end(kSignals),
                  [](int number) { (void)std::signal(number, SIG_DFL); });
    const std::string root = korvmailserver::RootPrefix();
    const MDOMAIN::HISTORY::WithinTrial within(trial);
    ShowInPlaceOf(korvmailserver::RootPrefix(), root);
    const int status = run(parsed);
    std::cout.flush();
    _exit(status);
  }
  return StatusOf(child);
}

namespace {

// The program itself, which refuses to do anything but a dry run then.
korvmailserver::ProgramEnd TryAlone(std::vector<std::string> typed, const std::string& input = "",
                                    int lock_timeout = 1) {
  korvmailserver::ProgramCall self;
  self.path = "/proc/self/exe";
  for (char** variable = environ; *variable != nullptr; ++variable) {
    self.environment.emplace_back(*variable);
  }
  self.environment.push_back(std::string(kOnlyDryRun) + "=1");
  typed.insert(std::find(typed.begin(), typed.end(), "--"), kFlag);
  self.arguments = std::move(typed);
  self.arguments.insert(self.arguments.begin(),
                        {"--yes", "--lock-timeout", std::to_string(lock_timeout)});
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

// The last thing that is said with --json is an object, which tells of a refusal; what stands
// before it are warnings. Null without one.
Json::Value RefusalIn(const std::string& errors, std::string& warnings) {
  const size_t last = errors.rfind("\n{\n");
  const size_t begin = errors.rfind("{\n", 0) == 0 ? 0 : last == errors.npos ? last : last + 1;
  warnings = errors.substr(0, begin);
  Json::Value refusal;
  std::istringstream stream(begin == errors.npos ? "" : errors.substr(begin));
  std::string unparsed;
  return Json::parseFromStream(Json::CharReaderBuilder(), stream, &refusal, &unparsed)
             ? refusal
             : Json::Value();
}

}  // namespace

std::string Forecast(const Parsed& parsed) {
  if (parsed.command->effect != Effect::kDestroys || !HasTrial(*parsed.command)) {
    return "";
  }
  const korvmailserver::ProgramEnd end = TryAlone(parsed.typed);
  return end.status == kDone ? SummaryOf(end.output) : "";
}

Trial Try(const std::vector<std::string>& typed, const std::string& input, int lock_timeout) {
  const korvmailserver::ProgramEnd end = TryAlone(typed, input, lock_timeout);
  Trial trial;
  trial.status = end.status;
  const Json::Value refusal = RefusalIn(end.errors, trial.warnings);
  trial.message = refusal["message"].asString();
  trial.next = refusal["next"].asString();
  std::istringstream stream(end.output);
  std::string error;
  if (end.status == kDone &&
      (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &trial.plan, &error) ||
       !trial.plan.isArray())) {
    trial.status = kFailed;
  }
  return trial;
}

namespace {

std::string FirstWarning(const std::string& errors) {
  constexpr const char* kHead = "mdomain: warning: ";
  const std::string line = errors.substr(0, errors.find('\n'));
  return line.rfind(kHead, 0) == 0 ? line.substr(std::string(kHead).size()) : line;
}

}  // namespace

AccountsForecast ForecastRefresh() {
  const korvmailserver::ProgramEnd end = TryAlone({"refresh", "--json"});
  Json::Value record;
  std::istringstream stream(end.output);
  std::string error;
  if ((end.status != kDone && end.status != kSpared) ||
      !Json::parseFromStream(Json::CharReaderBuilder(), stream, &record, &error)) {
    std::string warnings;
    const std::string message = RefusalIn(end.errors, warnings)["message"].asString();
    return {false, message.empty() ? warnings.substr(0, warnings.find('\n')) : message};
  }
  if (!record["complete"].asBool()) {
    return {false, "they come only in part: " + FirstWarning(end.errors)};
  }
  std::vector<std::string> sentences;
  for (const Json::Value& entry : record["plan"]) {
    const std::string what = entry["what"].asString();
    if (what == "account" || what == "group" || what == "member" || what == "alias") {
      sentences.push_back(entry["text"].asString());
    }
  }
  return {true, FirstOf(sentences, "; ")};
}

Colour ColourOfChange(const Json::Value& entry) {
  const bool is_address = entry.isMember("had") && entry["had"] != entry["has"];
  const bool comes = is_address ? entry["has"].asBool() : entry["change"] == "added";
  const bool goes = is_address ? entry["had"].asBool() : entry["change"] == "removed";
  const bool is_exclusion = entry["what"] == "taken_out";
  return is_exclusion ? Colour::kNone
         : comes      ? Colour::kGreen
         : goes       ? Colour::kRed
                      : Colour::kNone;
}

PlanPrinter::PlanPrinter(const Parsed& parsed)
    : changes_(MDOMAIN::HISTORY::kEveryRow, parsed.words == "publish"
                                                ? MDOMAIN::HISTORY::Watch::kPublishedToo
                                                : MDOMAIN::HISTORY::Watch::kStored) {
  changes_.WatchFiles();  // of copies, which nobody else has
}

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
  for (const Json::Value& entry : plan.entries) {
    out.Line(entry["text"].asString(), ColourOfChange(entry));
  }
  out.Line(plan.entries.empty() ? "nothing would change" : kSummary + plan.summary);
}

}  // namespace mdomain
