#include "lib-domain/history/recording.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <utility>

#include "lib-domain/api/updater.h"
#include "lib-domain/history/history.h"
#include "lib-domain/history/plan.h"

namespace MDOMAIN::HISTORY {

namespace {

const char* StateOf(EntryKind kind) {
  return kind == EntryKind::kRefresh ? "refresh" : kind == EntryKind::kUndo ? "undo" : "done";
}

const char* WhyKept(EntryKind kind, bool is_listed) {
  return !is_listed                    ? "what it changed could not be read whole"
         : kind == EntryKind::kRefresh ? "a refresh follows the accounts, and would do it again"
         : kind == EntryKind::kUndo    ? "it took something back"
                                       : "";
}

}  // namespace

std::string ProcessPerson() {
  const struct passwd* account = getpwuid(getuid());
  const std::string name = account == nullptr ? std::to_string(getuid()) : account->pw_name;
  const char* asked = getuid() == 0 ? std::getenv("SUDO_USER") : nullptr;
  return asked == nullptr || *asked == '\0' ? name : std::string(asked) + " (as " + name + ")";
}

Recording::Recording(EntryKind kind, std::string command, size_t most_rows)
    : kind_(kind), command_(std::move(command)), changes_(most_rows) {}

bool Recording::Record(const std::string& person) const {
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
  Entry entry;
  entry.time = time(nullptr);
  entry.person = person;
  entry.command = command_;
  entry.summary = changes.is_whole ? plan.summary : "more than can be listed";
  entry.state = StateOf(kind_);
  entry.why_kept = WhyKept(kind_, is_listed);
  return AddEntry(entry, changes, plan);
}

Recording::Back Recording::TakeBack() const {
  Changes changes;
  if (!changes_.List(changes)) {
    return Back::kFailed;
  }
  if (changes.IsEmpty()) {
    return Back::kDone;
  }
  if (!HISTORY::TakeBack(changes)) {
    return Back::kFailed;
  }
  return API::Updater().Trigger() ? Back::kDone : Back::kUnpublished;
}

}  // namespace MDOMAIN::HISTORY
