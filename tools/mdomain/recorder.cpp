#include "tools/mdomain/recorder.h"

#include "lib-domain/history/history.h"
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

Recorder::Recorder(const Parsed& parsed) : is_whole_(parsed.words == "apply") {
  if (!HasTrial(*parsed.command) || parsed.words == "publish") {
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

void Recorder::Begin() const {
  if (recording_) {
    recording_->WatchFiles();
  }
}

bool Recorder::TakeBack() const {
  if (!recording_ || !is_whole_) {
    return !is_whole_;
  }
  const Recording::Back back = recording_->TakeBack();
  if (back == Recording::Back::kUnpublished) {
    Note(
        "warning: everything is stored as before, and could not be published: run mdomain publish");
  }
  return back != Recording::Back::kFailed;
}

void Recorder::Record() const {
  if (recording_ && !recording_->Record(MDOMAIN::HISTORY::ProcessPerson())) {
    Note("warning: the history does not have this change");
  }
}

}  // namespace mdomain
