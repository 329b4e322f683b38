// What a change would change. It is the very call, on copies: the process-wide handles of the
// thread stand for the copies meanwhile, and the mutex keeps other calls out.
#include "lib-domain/session/trial.h"

#include <pthread.h>

#include <utility>

#include "lib-domain/control/departure.h"
#include "lib-domain/history/domain_part.h"
#include "lib-domain/history/trial.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/turn.h"
#include "lib-domain/sync/change_lock.h"
#include "platform/include/maillog.h"
#include "platform/include/nodes.h"
#include "platform/include/root_path.h"
#include "platform/include/scope_guard.h"

namespace mdomain {

using MDOMAIN::HISTORY::ModelChanges;
using session::Fail;
using session::Refuse;

namespace {

ModelChanges*& Watching() {
  static ModelChanges* changes = nullptr;
  return changes;
}

// The calls of a dry run are parts of one change.
class TrialTurn {
 public:
  TrialTurn() : changes_(MDOMAIN::HISTORY::kEveryRow) {
    changes_.WatchFiles();
    Watching() = &changes_;
    ++session::Depth();
  }
  ~TrialTurn() {
    --session::Depth();
    Watching() = nullptr;
  }
  TrialTurn(const TrialTurn&) = delete;
  TrialTurn& operator=(const TrialTurn&) = delete;

  ChangePlan Plan(const std::optional<std::set<int>>& domains) const {
    MDOMAIN::HISTORY::Changes changes;
    MDOMAIN::HISTORY::Plan plan;
    if (!changes_.List(changes) ||
        !MDOMAIN::HISTORY::MakePlan(domains ? MDOMAIN::HISTORY::PartOf(changes, *domains) : changes,
                                    plan)) {
      Fail("what would change could not be read");
    }
    return session::PlanOf(plan);
  }

 private:
  ModelChanges changes_;
};

// What happens on copies is neither for the machine's log nor for the program's.
class QuietLog {
 public:
  QuietLog() {
    *before_ = korvmailserver::SetMailLogSink(
        [before = before_, thread = pthread_self()](int level, const std::string& line) {
          return pthread_equal(thread, pthread_self()) != 0 || (*before && (*before)(level, line));
        });
  }
  ~QuietLog() { korvmailserver::SetMailLogSink(*before_); }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

 private:
  // Outlives the object where another thread is logging through it.
  std::shared_ptr<korvmailserver::MailLogSink> before_ =
      std::make_shared<korvmailserver::MailLogSink>();
};

// The folder of the copies and what it stands for, while there is one.
std::pair<std::string, std::string>& Places() {
  static auto* places = new std::pair<std::string, std::string>();
  return *places;
}

void Replace(const std::string& what, const std::string& by, std::string& text) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
}

void CopyAll(session::Turn& turn, MDOMAIN::HISTORY::Trial& trial) {
  MDOMAIN::UTILS::ChangeLock lock;
  turn.TakeLock(lock);
  session::RequireManager();
  std::string error;
  if (!trial.Copy(error)) {
    Fail("nothing could be tried: " + error);
  }
}

}  // namespace

Error session::AsShown(Error error) {
  const auto& [folder, root] = Places();
  if (folder.empty()) {
    return error;
  }
  Replace(folder, root, error.text);
  Replace(folder, root, error.advice);
  for (Refused& refused : error.refused) {
    Replace(folder, root, refused.why);
  }
  for (std::string& line : error.log) {
    Replace(folder, root, line);
  }
  return error;
}

ChangePlan session::PlanOf(const MDOMAIN::HISTORY::Plan& plan) {
  ChangePlan result;
  result.summary = plan.summary;
  for (const Json::Value& entry : plan.entries) {
    PlannedChange change;
    change.what = entry["what"].asString();
    change.change = entry["change"].asString();
    change.text = entry["text"].asString();
    change.had = entry["had"].asBool();
    change.has = entry["has"].asBool();
    for (const std::string& name : entry.getMemberNames()) {
      if (entry[name].isString() && name != "what" && name != "change" && name != "text") {
        change.names[name] = entry[name].asString();
      }
    }
    result.changes.push_back(std::move(change));
  }
  return result;
}

void session::TellPublished() {
  if (Watching() != nullptr) {
    Watching()->SetWatch(MDOMAIN::HISTORY::Watch::kPublishedToo);
  }
}

Result<ChangePlan> Session::_TryOut(
    const std::function<std::optional<Error>(Session& trial)>& work) const {
  std::unique_ptr<session::Turn> around;
  return session::Guarded<ChangePlan>(around, [&]() -> Result<ChangePlan> {
    using MDOMAIN::HISTORY::WithinTrial;
    around = std::make_unique<session::Turn>(*this);
    if (session::Depth() > 0 || !WithinTrial::IsPossible()) {
      Refuse(Reason::kRefused, "a dry run is a call of its own");
    }
    MDOMAIN::HISTORY::Trial trial;
    CopyAll(*around, trial);
    const QuietLog quiet;
    Places() = {trial.Folder(), korvmailserver::RootPrefix()};
    const postara::ScopeGuard no_places([] { Places() = {}; });
    try {
      const WithinTrial within(trial);
      const std::optional<std::set<int>> domains = session::OwnDomains(*this);
      // What earlier changes have left is no part of this one; each call says where that fails.
      (void)MDOMAIN::CONTROL::INTERNAL::FinishDepartures();
      const TrialTurn turn;
      Session session = *this;
      const std::optional<Error> refused = work(session);
      return refused ? Result<ChangePlan>(*refused) : turn.Plan(domains);
    } catch (const session::Stop& stop) {
      return session::AsShown(stop.error);
    }
  });
}

}  // namespace mdomain
