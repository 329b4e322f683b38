// mdomain node pull: what is published comes to this machine, once or again and again.
#include <algorithm>
#include <utility>

#include "platform/include/maillog.h"
#include "tools/mdomain/bcc_maps.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/node.h"
#include "tools/mdomain/node_content.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::NodeRole;
using korvmailserver::NodeStanding;
using korvmailserver::PulledFile;
using korvmailserver::PullReport;
using korvmailserver::PullResult;

constexpr int kWatchInterval = 5;  // seconds
constexpr const char* kIncomplete =
    "not everything could be pulled; what is missing stays as it was";

const char* ResultText(PullResult result) {
  switch (result) {
    case PullResult::kUnchanged:
      return "unchanged";
    case PullResult::kReplaced:
      return "replaced";
    case PullResult::kRemoved:
      return "removed";
    default:
      return "failed";
  }
}

Json::Value Row(const char* result, const std::string& key, const std::string& path) {
  Json::Value row;
  row["key"] = key;
  row["path"] = path;
  row["result"] = result;
  return row;
}

void PrintRows(Call& call, const Json::Value& rows) {
  call.out().List(rows, {{"result", "RESULT"}, {"key", "KEY"}, {"path", "PATH"}});
}

std::string OlderText(const PullReport& report) {
  NodeStanding standing;
  const bool is_known = korvmailserver::ReadNodeStanding(standing);
  return "the key store has publication " + std::to_string(report.version) +
         ", which is older than what this machine has" +
         (is_known ? " (" + std::to_string(standing.version) + ")" : "") +
         " and was not taken; --accept-older takes it";
}

void MakeMaps(Pulled& pulled) {
  const auto& files = pulled.report.files;
  const bool is_replaced = std::any_of(files.begin(), files.end(), [](const PulledFile& file) {
    return file.result == PullResult::kReplaced && MapsFollowFrom(file.key);
  });
  try {
    if (HasMapCompiler() && (is_replaced || AreMapsOld())) {
      CompileMaps();
    }
  } catch (const Failure& failure) {
    pulled.failures.push_back(std::string("the maps of blind copies: ") + failure.what());
    maillog(korvmailserver::kLogError, "%s", pulled.failures.back().c_str());
  }
}

// An undecided machine without domains joins with its first pull.
void RequirePulling() {
  const NodeStanding standing = SharedStanding();
  switch (standing.role) {
    case NodeRole::kMember:
      return;
    case NodeRole::kManager:
      throw Failure(kRefused,
                    "this machine manages the domains and pulls from nobody; where another one "
                    "does now, mdomain node join lets this one pull");
    case NodeRole::kReplaced:
      throw Failure(kRefused,
                    "this machine managed the domains until another one took over, and its files "
                    "are as they were: mdomain node join keeps them aside and pulls");
    default:
      break;
  }
  if (!OwnDomains().empty()) {
    throw Failure(kRefused,
                  "this machine has domains: mdomain node join puts what is published in their "
                  "place, mdomain node manage publishes them");
  }
  const std::string kept = BecomePulling(standing, false);
  Note("this machine pulls from now on; what it had lies in " + kept);
}

void PullOnce(Call& call, bool accept_older) {
  call.LockHere();
  RequirePulling();
  const Pulled pulled = PullAndFollow(accept_older);
  RequireNotOlder(pulled.report);
  PrintRows(call, PulledRows(pulled.report, false));
  call.out().Flush();  // before the message, and whole although the command fails
  RequirePulled(pulled);
}

// What a watching machine said last: the same trouble is not said again with each look.
class Trouble {
 public:
  // `what` keeps the machine from pulling; empty when nothing does.
  void Tell(const HeldLog& log, const std::string& what) {
    std::vector<std::string> lines = log.Lines();
    if (lines != lines_) {
      log.Show(what);
    }
    if (what != what_) {
      Note(what.empty() ? "pulling again" : what);
    }
    lines_ = std::move(lines);
    what_ = what;
  }

 private:
  std::vector<std::string> lines_;
  std::string what_;
};

// One look of a watching machine; gives what kept it from pulling. Ends the command where this
// machine no longer pulls. What failed after a pull is in the log.
std::string LookOnce(Call& call, bool accept_older) {
  try {
    call.LockHere();
    RequirePulling();
    const Pulled pulled = PullAndFollow(accept_older);
    call.Unlock();
    const Json::Value rows = PulledRows(pulled.report, true);
    if (!rows.empty()) {
      PrintRows(call, rows);
      call.out().Flush();
    }
    if (pulled.report.is_older) {
      return OlderText(pulled.report);
    }
    return pulled.is_complete ? "" : kIncomplete;
  } catch (const Failure& failure) {
    call.Unlock();
    if (failure.status == kRefused) {
      throw;
    }
    return failure.what();
  }
}

[[noreturn]] void Watch(Call& call, int interval, bool accept_older) {
  Trouble trouble;
  for (;; korvmailserver::WaitForPublication(interval)) {
    const HeldLog log;
    trouble.Tell(log, LookOnce(call, accept_older));
    accept_older = false;  // of the first look alone
  }
}

}  // namespace

Pulled PullAndFollow(bool accept_older) {
  MDOMAIN::UTILS::PullStart start;
  start.is_unfinished = MDOMAIN::UTILS::IsPullUnfinished();
  Pulled pulled;
  // A second name for the model alters the file's times: only a pull that brings something makes
  // one. Without it everybody counts as changed.
  pulled.is_complete = korvmailserver::PullPublication(accept_older, pulled.report,
                                                       [&] { MDOMAIN::UTILS::BeforePull(start); });
  MakeMaps(pulled);
  std::vector<std::string> failures;
  MDOMAIN::UTILS::FollowPull(start, pulled.report, failures);
  pulled.failures.insert(pulled.failures.end(), failures.begin(), failures.end());
  return pulled;
}

void RequireNotOlder(const PullReport& report) {
  if (report.is_older) {
    throw Failure(kRefused, OlderText(report));
  }
}

void RequirePulled(const Pulled& pulled) {
  if (!pulled.is_complete) {
    throw Failure(kFailed, kIncomplete);
  }
  if (!pulled.failures.empty()) {
    throw Failure(kFailed, "pulled, but afterwards failed: " + FirstOf(pulled.failures, "; "));
  }
}

Json::Value PulledRows(const PullReport& report, bool only_changed) {
  Json::Value rows(Json::arrayValue);
  for (const PulledFile& file : report.files) {
    if (!only_changed || file.result != PullResult::kUnchanged) {
      rows.append(Row(ResultText(file.result), file.key, file.path));
    }
  }
  for (const std::string& key : report.keys) {
    rows.append(Row("changed", key, ""));
  }
  return rows;
}

void PullHere(Call& call) {
  const int interval = call.Int("--interval", kWatchInterval);
  const bool accept_older = call.Has("--accept-older");
  if (interval == 0 || (call.Has("--interval") && !call.Has("--watch"))) {
    throw Failure(kUsage, "--interval is a number of seconds above 0, and wants --watch");
  }
  if (call.Has("--watch")) {
    ShowErrorsAtOnce();
    Watch(call, interval, accept_older);
  }
  PullOnce(call, accept_older);
}

}  // namespace mdomain
