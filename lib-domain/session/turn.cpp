#include "lib-domain/session/turn.h"

#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include <ctime>

#include "lib-domain/api/updater.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/user.h"
#include "lib-domain/history/history.h"
#include "lib-domain/history/open_change.h"
#include "lib-domain/history/plan.h"
#include "lib-domain/sync/change_lock.h"
#include "lib-domain/sync/model_in_force.h"
#include "platform/include/maillog.h"
#include "platform/include/nodes.h"

namespace mdomain {

namespace session {

using korvmailserver::NodeRole;
using MDOMAIN::HISTORY::Changes;

namespace {

// Never destroyed: sessions may be used while static objects are.
std::recursive_mutex*& MutexPlace() {
  static auto* mutex = new std::recursive_mutex;
  return mutex;
}

// How many changing turns the thread that holds the mutex is in.
int& Depth() {
  static int depth = 0;
  return depth;
}

// A fork waits for the calls of other threads. The child begins anew: a mutex that another thread
// identity has locked cannot be unlocked.
void LockForFork() {
  MutexPlace()->lock();
}
void UnlockInParent() {
  MutexPlace()->unlock();
}
void BeginInChild() {
  MutexPlace() = new std::recursive_mutex;
  Depth() = 0;
}

std::recursive_mutex& Mutex() {
  static const int is_prepared = pthread_atfork(LockForFork, UnlockInParent, BeginInChild);
  (void)is_prepared;
  return *MutexPlace();
}

}  // namespace

struct GatheredLog {
  std::vector<std::string> lines;
  korvmailserver::MailLogSink before;
};

void Refuse(Reason reason, const std::string& text, const std::string& advice) {
  Error error;
  error.reason = reason;
  error.text = text;
  error.advice = advice;
  throw Stop(std::move(error));
}

void Fail(const std::string& text) {
  Refuse(Reason::kFailed, text);
}

Error ErrorOf(const korvmailserver::LogException& exception) {
  Error error;
  error.number = MDOMAIN::BASE::ToApiError(exception.code);
  error.reason = exception.code == korvmailserver::ERR_DUPLICATE_DOMAIN_NAME ? Reason::kTaken
                 : exception.code == korvmailserver::ERR_INVALID_DOMAIN_NAME ? Reason::kInvalid
                                                                             : Reason::kFailed;
  error.text = exception.what();
  return error;
}

Turn::Turn(const Session& session)
    : state_(SessionAccess::StateOf(session)),
      lock_(Mutex()),
      log_(std::make_shared<GatheredLog>()) {
  // The sink outlives the turn where another thread is logging through it.
  log_->before = korvmailserver::SetMailLogSink(
      [log = log_, thread = pthread_self()](int level, const std::string& line) {
        if (level != korvmailserver::kLogNotice && pthread_equal(thread, pthread_self()) != 0) {
          log->lines.push_back(line);
        }
        return log->before && log->before(level, line);
      });
}

Turn::~Turn() {
  korvmailserver::SetMailLogSink(log_->before);
}

std::vector<std::string> Turn::TakeLog() {
  return std::exchange(log_->lines, {});
}

namespace {

std::string PersonOf(const SessionState& state) {
  if (!state.options.person.empty()) {
    return state.options.person;
  }
  if (state.administrator) {
    MDOMAIN::DB::UserDBFilter filter;
    filter.SetUIDs({*state.administrator});
    std::vector<MDOMAIN::RECORD::User> users;
    const bool is_read = MDOMAIN::CONTROL::User().List(filter, users);
    return is_read && !users.empty() ? users.front().GetUserName()
                                     : std::to_string(*state.administrator);
  }
  const struct passwd* account = getpwuid(getuid());
  return account == nullptr ? std::to_string(getuid()) : account->pw_name;
}

void Take(MDOMAIN::UTILS::ChangeLock& lock, int timeout) {
  using Result = MDOMAIN::UTILS::ChangeLock::Result;
  std::string error;
  const Result result = lock.Take(
      timeout, [](const std::string&) {}, error);
  if (result == Result::kBusy) {
    Refuse(Reason::kBusy,
           "another program" + error + " is still changing the domains after " +
               std::to_string(timeout) + " seconds",
           "try again");
  }
  if (result != Result::kHeld) {
    Fail(error);
  }
}

void RequireManager() {
  korvmailserver::NodeStanding standing;
  if (!korvmailserver::ReadNodeStanding(standing)) {
    Fail("what this machine is among those that share the key store could not be read");
  }
  const std::string manager = standing.manager.empty() ? "another machine" : standing.manager;
  switch (standing.role) {
    case NodeRole::kMember:
      Refuse(Reason::kRefused, "the domains are managed on " + manager, "change them there");
    case NodeRole::kReplaced:
      Refuse(Reason::kRefused, "another machine took the domains over, " + manager,
             "change them there, or manage them here again (mdomain node take-over)");
    case NodeRole::kUndecided:
      Refuse(Reason::kRefused, "nobody has said which machine manages the domains",
             "mdomain node manage if it is this one, mdomain node join if it is another");
    default:
      break;
  }
  korvmailserver::StoreStanding store;
  if (standing.role == NodeRole::kManager && korvmailserver::ReadStoreStanding(store) &&
      !store.is_empty && !store.is_own) {
    Refuse(Reason::kRefused, "another machine took the domains over, " + store.manager,
           "change them there, or manage them here again (mdomain node take-over)");
  }
}

void RequireOwnModel() {
  MDOMAIN::UTILS::ModelStanding standing;
  if (!MDOMAIN::UTILS::ReadModelStanding(standing)) {
    Fail("the domains could not be read");
  }
  if (standing.IsLost()) {
    Refuse(Reason::kRefused, standing.Reason(), "restore that file");
  }
  std::vector<std::string> outside;
  if (standing.IsOther() && (!MDOMAIN::UTILS::ListOutsideSettings(outside) || !outside.empty())) {
    Refuse(Reason::kRefused,
           "settings under domain indexes belong to the domains of " + standing.published_file,
           "set the account source back, or have them removed with mdomain publish --force");
  }
  // A new rule for a namesake of somebody who left would go with theirs.
  if (!MDOMAIN::CONTROL::INTERNAL::FinishDepartures()) {
    Fail("the settings of accounts that left could not be removed");
  }
}

}  // namespace

struct ChangingTurn::Work {
  MDOMAIN::UTILS::ChangeLock lock;
  std::unique_ptr<korvmailserver::PublicationScope> publication;
  std::unique_ptr<MDOMAIN::HISTORY::ModelChanges> changes;
  MDOMAIN::HISTORY::Entry entry;
  ChangeKind kind = ChangeKind::kChange;
  bool is_finished = false;

  std::string Publish() {
    publication.reset();
    return korvmailserver::WhyUnpublished();
  }
};

ChangingTurn::ChangingTurn(const Session& session, const std::string& command, ChangeKind kind)
    : Turn(session) {
  if (kind == ChangeKind::kUndo && Depth() > 0) {
    Refuse(Reason::kRefused, "a change is taken back by a call of its own");
  }
  if (Depth() == 0) {
    auto work = std::make_unique<Work>();
    Take(work->lock, state_.options.lock_timeout);
    RequireManager();
    RequireOwnModel();
    work->publication = std::make_unique<korvmailserver::PublicationScope>();
    work->kind = kind;
    (void)MDOMAIN::HISTORY::SettleInterrupted(true);
    work->changes = std::make_unique<MDOMAIN::HISTORY::ModelChanges>(
        kind == ChangeKind::kChange ? MDOMAIN::HISTORY::kEveryRow
                                    : MDOMAIN::HISTORY::kMostRowsKept);
    work->changes->WatchFiles();
    work->entry.person = PersonOf(state_);
    work->entry.command = command;
    work->entry.state = kind == ChangeKind::kRefresh ? "refresh"
                        : kind == ChangeKind::kUndo  ? "undo"
                                                     : "done";
    work->entry.why_kept = kind == ChangeKind::kRefresh
                               ? "a refresh follows the accounts, and would do it again"
                           : kind == ChangeKind::kUndo ? "it took something back"
                                                       : "";
    work_ = std::move(work);
  }
  ++Depth();
}

ChangingTurn::~ChangingTurn() {
  ChangingTurn::GiveUp();
  --Depth();
}

std::string ChangingTurn::GiveUp() {
  if (!work_ || work_->is_finished) {
    return "";
  }
  if (work_->kind != ChangeKind::kChange) {
    Finish();
    return "";
  }
  work_->is_finished = true;
  bool is_back = false;
  try {
    Changes changes;
    is_back = work_->changes->List(changes) &&
              (changes.IsEmpty() ||
               (MDOMAIN::HISTORY::TakeBack(changes) && MDOMAIN::API::Updater().Trigger()));
    work_->Publish();
  } catch (const std::exception& exception) {
    maillog(korvmailserver::kLogError, "Cannot take [%s] back: %s", work_->entry.command.c_str(),
            exception.what());
  }
  return is_back ? "" : "; what was done before that is still there";
}

std::string ChangingTurn::Finish() {
  if (!work_) {
    return "";  // the outermost does it
  }
  work_->is_finished = true;
  std::string why = work_->Publish();
  Changes changes;
  MDOMAIN::HISTORY::Plan plan;
  MDOMAIN::HISTORY::Entry& entry = work_->entry;
  entry.time = time(nullptr);
  if (!work_->changes->List(changes) || !MDOMAIN::HISTORY::MakePlan(changes, plan)) {
    entry.why_kept = "what it changed could not be read whole";
  }
  entry.summary = plan.summary;
  if (!changes.IsEmpty() && !MDOMAIN::HISTORY::AddEntry(entry, changes, plan)) {
    maillog(korvmailserver::kLogWarning, "The history does not have this change: %s",
            entry.command.c_str());
  }
  return why;
}

}  // namespace session

Session::Session() : Session(Options()) {}

Session::Session(const Options& options)
    : state_(std::make_shared<const SessionState>(SessionState{options, std::nullopt})) {
  korvmailserver::ChangeRecord::WatchFromNowOn();
}

Session Session::As(std::uint32_t uid) const {
  SessionState state = *state_;
  state.administrator = uid;
  state.options.person.clear();
  return SessionAccess::With(state);
}

Session Session::WithPerson(const std::string& person) const {
  SessionState state = *state_;
  state.options.person = person;
  return SessionAccess::With(state);
}

}  // namespace mdomain
