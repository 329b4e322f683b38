#include "lib-domain/session/turn.h"

#include <pthread.h>

#include <optional>
#include <thread>

#include "lib-domain/api/updater.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/history/open_change.h"
#include "lib-domain/session/access.h"
#include "lib-domain/sync/change_lock.h"
#include "lib-domain/sync/model_in_force.h"
#include "platform/include/maillog.h"
#include "platform/include/nodes.h"
#include "platform/include/root_path.h"

namespace mdomain {

namespace session {

using korvmailserver::NodeRole;
namespace {

// Never destroyed: sessions may be used while static objects are.
std::recursive_mutex*& MutexPlace() {
  static auto* mutex = new std::recursive_mutex;
  return mutex;
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

int& Depth() {
  static int depth = 0;
  return depth;
}

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
  _Gather();
}

// The sink outlives the turn where another thread is logging through it.
void Turn::_Gather() {
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
  std::vector<std::string> lines = std::exchange(log_->lines, {});
  return state_.administrator ? std::vector<std::string>() : lines;
}

void Turn::_LetOthers(std::chrono::milliseconds moment) {
  korvmailserver::SetMailLogSink(log_->before);
  lock_.unlock();
  std::this_thread::sleep_for(moment);
  lock_.lock();
  _Gather();
}

// Nothing is held while others are waited for: readers have their turns, and a child that another
// thread forks has no part in the lock.
void Turn::TakeLock(MDOMAIN::UTILS::ChangeLock& lock) {
  using Result = MDOMAIN::UTILS::ChangeLock::Result;
  using Clock = std::chrono::steady_clock;
  const int timeout = state_.options.lock_timeout;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout);
  std::string error;
  Result result = lock.Take(
      0, [](const std::string&) {}, error);
  while (result == Result::kBusy && Clock::now() < deadline) {
    _LetOthers(std::chrono::milliseconds(50));
    result = lock.Take(
        0, [](const std::string&) {}, error);
  }
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

OneMoment::OneMoment()
    : scope_(std::make_unique<MDOMAIN::DB::ReadScope>(
          MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler())) {}

OneMoment::~OneMoment() = default;

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
  return MDOMAIN::HISTORY::ProcessPerson();
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

struct ChangingTurn::Work {
  MDOMAIN::UTILS::ChangeLock lock;
  std::unique_ptr<korvmailserver::PublicationScope> publication;
  std::optional<MDOMAIN::HISTORY::Recording> recording;
  ChangeKind kind = ChangeKind::kChange;
  bool is_finished = false;

  std::string Publish() {
    publication.reset();
    return korvmailserver::WhyUnpublished();
  }
};

ChangingTurn::ChangingTurn(const Session& session) : Turn(session) {}

void ChangingTurn::Begin(const std::string& command, ChangeKind kind, Needs needs) {
  const int least = korvmailserver::OtherRoot::IsInForce() ? 1 : 0;  // a dry run is one around all
  if (kind == ChangeKind::kUndo && Depth() > least) {
    Refuse(Reason::kRefused, "a change is taken back by a call of its own");
  }
  if (Depth() == least && state_.administrator && !IsAnyDomainOf(*state_.administrator)) {
    Refuse(Reason::kNotFound,
           "no domain is administered by uid " + std::to_string(*state_.administrator));
  }
  std::unique_ptr<Work> work;
  if (Depth() == 0) {
    work = std::make_unique<Work>();
    TakeLock(work->lock);
    RequireManager();
  }
  if (Depth() == least && needs == Needs::kModel) {
    RequireOwnModel();
  }
  if (work) {
    work->publication = std::make_unique<korvmailserver::PublicationScope>();
    work->kind = kind;
    (void)MDOMAIN::HISTORY::SettleInterrupted(true);
    work->recording.emplace(kind, command,
                            kind == ChangeKind::kChange ? MDOMAIN::HISTORY::kEveryRow
                                                        : MDOMAIN::HISTORY::kMostRowsKept);
    work->recording->Begin(PersonOf(state_));
    work_ = std::move(work);
  }
  has_begun_ = true;
  ++Depth();
}

ChangingTurn::~ChangingTurn() {
  ChangingTurn::GiveUp();
  if (has_begun_) {
    --Depth();
  }
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
  using Back = MDOMAIN::HISTORY::Recording::Back;
  Back back = Back::kFailed;
  try {
    back = work_->recording->TakeBack();
    work_->Publish();
  } catch (const std::exception& exception) {
    maillog(korvmailserver::kLogError, "Cannot take a change back: %s", exception.what());
  }
  return back == Back::kDone          ? ""
         : back == Back::kUnpublished ? "; what is published is not as before yet"
                                      : kNotTakenBack;
}

std::string ChangingTurn::Finish() {
  if (!work_) {
    return "";  // the outermost does it
  }
  work_->is_finished = true;
  std::string why = work_->Publish();
  try {
    if (!work_->recording->Record()) {
      maillog(korvmailserver::kLogWarning, "The history does not have this change");
    }
  } catch (const std::exception& exception) {
    // What is done and published is no failure.
    maillog(korvmailserver::kLogWarning, "The history does not have this change: %s",
            exception.what());
  }
  return why;
}

}  // namespace session

Session::Session() : Session(Options()) {}

Session::Session(const Options& options)
    : state_(std::make_shared<const SessionState>(SessionState{options, std::nullopt})) {}

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
