#include "lib-domain/history/recording.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "lib-domain/api/updater.h"
#include "lib-domain/history/plan.h"

namespace MDOMAIN::HISTORY {

namespace {

const char* StateOf(EntryKind kind) {
  switch (kind) {
    case EntryKind::kRefresh:
      return "refresh";
    case EntryKind::kRepair:
      return "repair";
    case EntryKind::kUndo:
      return "undo";
    default:
      return "done";
  }
}

const char* WhyKept(EntryKind kind) {
  switch (kind) {
    case EntryKind::kRefresh:
      return "a refresh follows the accounts, and would do it again";
    case EntryKind::kRepair:
      return "a repair follows the model, and would do it again";
    case EntryKind::kUndo:
      return "it took something back";
    default:
      return "";
  }
}

}  // namespace

std::string ProcessPerson() {
  struct passwd account {};
  struct passwd* found = nullptr;
  std::array<char, 16384> texts{};
  getpwuid_r(getuid(), &account, texts.data(), texts.size(), &found);
  const std::string name = found == nullptr ? std::to_string(getuid()) : account.pw_name;
  const char* asked = getuid() == 0 ? std::getenv("SUDO_USER") : nullptr;
  return asked == nullptr || *asked == '\0' ? name : std::string(asked) + " (as " + name + ")";
}

Recording::Recording(EntryKind kind, std::string command, size_t most_rows)
    : kind_(kind), changes_(most_rows) {
  entry_.command = std::move(command);
  entry_.state = StateOf(kind);
  entry_.why_kept = WhyKept(kind);
}

void Recording::Begin(const std::string& person) {
  changes_.WatchFiles();
  entry_.person = person;
  entry_.time = time(nullptr);
}

void Recording::BeginNoted(const std::string& person, bool all_or_nothing) {
  changes_.StartAnew();
  Begin(person);
  if (kind_ != EntryKind::kUndo) {  // its own mark tells of it
    open_change_.Begin(entry_, changes_, all_or_nothing);
  }
}

bool Recording::Record() {
  if (is_left_) {
    return true;
  }
  Changes changes;
  const bool is_listed = changes_.List(changes);
  if (is_listed && changes.IsEmpty()) {
    return true;
  }
  Plan plan;
  if (!MakePlan(changes, plan)) {
    return false;
  }
  if (changes.is_whole && plan.entries.empty()) {
    return true;
  }
  Entry entry = entry_;
  entry.time = time(nullptr);
  entry.summary = changes.is_whole ? plan.summary : "more than can be listed";
  if (!is_listed) {
    entry.why_kept = "what it changed could not be read whole";
  }
  return AddEntry(entry, changes, plan);
}

Recording::Back Recording::TakeBack() {
  Changes changes;
  const bool is_listed = changes_.List(changes);
  if (is_listed && changes.IsEmpty()) {
    return Back::kDone;
  }
  if (!is_listed || !HISTORY::TakeBack(changes)) {
    open_change_.Leave();
    is_left_ = true;
    return Back::kFailed;
  }
  return API::Updater().Trigger() ? Back::kDone : Back::kUnpublished;
}

}  // namespace MDOMAIN::HISTORY
