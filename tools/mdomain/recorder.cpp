#include "tools/mdomain/recorder.h"

#include "tools/mdomain/command.h"
#include "tools/mdomain/notes.h"

namespace mdomain {
namespace {

using MDOMAIN::HISTORY::EntryKind;
using MDOMAIN::HISTORY::Recording;

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
    : is_whole_(parsed.words == "apply" || parsed.words == "edit") {
  // An edit shows by itself what it would change, and changes it as apply does.
  if ((!HasTrial(*parsed.command) && !is_whole_) || parsed.words == "publish") {
    return;
  }
  std::string command;
  for (const std::string& word : parsed.typed) {
    command += (command.empty() ? "" : " ") + Quoted(word);
  }
  recording_ = std::make_unique<Recording>(
      parsed.words == "refresh" ? EntryKind::kRefresh
      : parsed.words == "undo"  ? EntryKind::kUndo
                                : EntryKind::kChange,
      command, is_whole_ ? MDOMAIN::HISTORY::kEveryRow : MDOMAIN::HISTORY::kMostRowsKept);
}

void Recorder::Begin() {
  if (!recording_ || has_begun_) {
    return;
  }
  has_begun_ = true;
  // Of a command that was killed, before this one's changes would count as its own.
  TellInterrupted(MDOMAIN::HISTORY::SettleInterrupted(true));
  recording_->BeginNoted(MDOMAIN::HISTORY::ProcessPerson(), is_whole_);
}

bool Recorder::TakeBack() {
  if (!recording_ || !is_whole_) {
    return true;
  }
  const Recording::Back back = recording_->TakeBack();
  if (back == Recording::Back::kUnpublished) {
    Note(
        "warning: everything is stored as before, and could not be published: run mdomain publish");
  }
  return back != Recording::Back::kFailed;
}

void Recorder::Record() const {
  if (recording_ && !recording_->Record()) {
    Note("warning: the history does not have this change");
  }
}

}  // namespace mdomain
