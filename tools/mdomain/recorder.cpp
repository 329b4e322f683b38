#include "tools/mdomain/recorder.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "lib-domain/api/updater.h"
#include "lib-domain/history/history.h"
#include "lib-domain/history/open_change.h"
#include "lib-domain/history/plan.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/notes.h"

namespace mdomain {
namespace {

using MDOMAIN::HISTORY::Changes;
using MDOMAIN::HISTORY::Entry;
using MDOMAIN::HISTORY::Plan;

std::string Person() {
  const struct passwd* account = getpwuid(getuid());
  const std::string name = account == nullptr ? std::to_string(getuid()) : account->pw_name;
  const char* asked = getuid() == 0 ? std::getenv("SUDO_USER") : nullptr;
  return asked == nullptr || *asked == '\0' ? name : std::string(asked) + " (as " + name + ")";
}

// The command as a shell would take it again.
std::string Quoted(const std::string& word) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789@%+=:,./-_";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace

void TellInterrupted(MDOMAIN::HISTORY::Interrupted interrupted) {
  if (interrupted == MDOMAIN::HISTORY::Interrupted::kTakenBack) {
    Note("a command that is all or nothing was interrupted: it is taken back (mdomain history)");
  } else if (interrupted == MDOMAIN::HISTORY::Interrupted::kFailed) {
    Note("warning: the history does not have what a command changed that was interrupted");
  }
}

MDOMAIN::HISTORY::Interrupted SettleInterruptedWhole(const Call& call) {
  using MDOMAIN::HISTORY::Interrupted;
  if (!MDOMAIN::HISTORY::HasOpenWhole()) {
    return Interrupted::kNothing;
  }
  const ChangeLock lock(call.options().lock_timeout, call.IsQuiet() || call.options().json);
  const Interrupted interrupted = MDOMAIN::HISTORY::SettleInterrupted(true);
  TellInterrupted(interrupted);
  return interrupted;
}

Recorder::Recorder(const Parsed& parsed)
    : is_refresh_(parsed.words == "refresh"),
      is_undo_(parsed.words == "undo"),
      is_whole_(parsed.words == "apply") {
  if (HasTrial(*parsed.command) && parsed.words != "publish") {
    changes_ = std::make_unique<MDOMAIN::HISTORY::ModelChanges>(
        is_whole_ ? MDOMAIN::HISTORY::kEveryRow : MDOMAIN::HISTORY::kMostRowsKept);
    for (const std::string& word : parsed.typed) {
      begun_.command += (begun_.command.empty() ? "" : " ") + Quoted(word);
    }
    begun_.person = Person();
    begun_.state = is_refresh_ ? "refresh" : is_undo_ ? "undo" : "done";
    begun_.why_kept = is_refresh_ ? "a refresh follows the accounts, and would do it again"
                      : is_undo_  ? "it took something back"
                                  : "";
  }
}

void Recorder::Begin() {
  if (!changes_ || begun_.time != 0) {
    return;
  }
  // Of a command that was killed, before this one's changes would count as its own.
  TellInterrupted(MDOMAIN::HISTORY::SettleInterrupted(true));
  changes_->StartAnew();
  changes_->WatchFiles();
  begun_.time = time(nullptr);
  if (!is_undo_) {  // its own mark tells of it
    open_change_.Begin(begun_, *changes_, is_whole_);
  }
}

bool Recorder::TakeBack() {
  Changes changes;
  if (!changes_ || !is_whole_) {
    return true;
  }
  if (!changes_->List(changes) || (!changes.IsEmpty() && !MDOMAIN::HISTORY::TakeBack(changes))) {
    open_change_.Leave();
    is_left_ = true;
    return false;
  }
  if (!changes.IsEmpty() && !MDOMAIN::API::Updater().Trigger()) {
    Note(
        "warning: everything is stored as before, and could not be published: run mdomain publish");
  }
  return true;
}

void Recorder::Record() const {
  if (!changes_ || is_left_) {
    return;
  }
  Changes changes;
  Plan plan;
  const bool is_listed = changes_->List(changes);
  if (is_listed && changes.IsEmpty()) {
    return;
  }
  Entry entry = begun_;
  entry.time = time(nullptr);
  if (!is_listed) {
    entry.why_kept = "what it changed could not be read whole";
  }
  const bool is_told = MDOMAIN::HISTORY::MakePlan(changes, plan);
  entry.summary = changes.is_whole ? plan.summary : "more than can be listed";
  const bool is_nothing = is_told && changes.is_whole && plan.entries.empty();  // stored again
  if (!is_nothing && (!is_told || !MDOMAIN::HISTORY::AddEntry(entry, changes, plan))) {
    Note("warning: the history does not have this change");
  }
}

}  // namespace mdomain
