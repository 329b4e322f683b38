// What was changed when, by whom and how, and taking the last change back.
//
// One database beside the others, "history.db", which its owner alone reads: it holds names, rules
// and texts of people. Nothing depends on it; it may be removed at any time.
#ifndef LIB_DOMAIN_HISTORY_HISTORY_H
#define LIB_DOMAIN_HISTORY_HISTORY_H

#include <json/value.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib-domain/history/model_changes.h"
#include "lib-domain/history/plan.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

struct Entry {
  long long id = 0;    // ascending with time
  long long time = 0;  // seconds since 1970
  std::string person;  // account that ran the command, with sudo the one who asked for it
  std::string command;
  std::string summary;
  // "done", "interrupted" (its process was killed; what it had changed until then, open_change.h),
  // "undoing" (an undo of it has not ended), "half undone" (nor can it, as things stand),
  // "undone"; "refresh", "repair" and "undo", which are not taken back themselves.
  std::string state;
  std::string why_kept;  // why it cannot be taken back; empty where it may be tried
};

// A change that may be taken back touched at most so many rows; the rest of it is told, not kept.
constexpr size_t kMostRowsKept = 20000;
constexpr int kEntriesKept = 1000;  // older ones go

// Adds an entry with the plan, at most its first thousand sentences, and what takes it back. False
// with one log line.
MDOMAIN_EXPORT bool AddEntry(const Entry& entry, const Changes& changes, const Plan& plan);

// The newest entries, newest first. A missing history has none. False with one log line.
MDOMAIN_EXPORT bool ListEntries(int limit, std::vector<Entry>& entries);

// Which entries. A domain that was created or deleted begins a history of its own under its index;
// which domains an entry is about is not known of those that version 1.0 made.
struct EntryFilter {
  int domain_idx = 0;                         // those about this domain; 0: any
  std::optional<std::set<int>> only_domains;  // those about nothing but these
  int offset = 0;
  int limit = 100;
};
// Adds them, newest first; `total` is the number without offset and limit. False with one log line.
MDOMAIN_EXPORT bool ListEntries(const EntryFilter& filter, std::vector<Entry>& entries,
                                size_t& total);
// Whether there is an entry of this id that the filter lets through. False with one log line.
MDOMAIN_EXPORT bool HasEntry(long long id, const EntryFilter& filter, bool& has);
// An entry's plan; `found` is false where there is none.
MDOMAIN_EXPORT bool ReadEntry(long long id, bool& found, Entry& entry, Json::Value& plan);

// Why a change cannot be taken back now; empty when it was.
struct UndoResult {
  bool is_done = false;
  Entry entry;
  // Where not done: one sentence, and what stands against it.
  std::string reason;
  std::vector<std::string> obstacles;
};
// The change that an undo would take back: one that is "undoing" before all others, else the latest
// that is not "undone"; `id` is 0 without one. False with one log line.
MDOMAIN_EXPORT bool FindLast(Entry& entry);
// Takes that change back, if it is `id`: rows and texts are put back as they were where each is as
// the change left it, flags of collisions are set anew, and whose addresses changed is announced.
// It is "undoing" from then on; the entry in `result` has the state of before. The caller
// publishes, tells, and calls EndUndo. Until then, and when something failed (false with one log
// line), the same call does again what is missing and nothing else.
MDOMAIN_EXPORT bool UndoLast(long long id, UndoResult& result);
// The change is "undone", and no later undo takes it up again. False with one log line.
MDOMAIN_EXPORT bool EndUndo(long long id);

// Takes back a change that this process has made itself and has not recorded, in the same way.
// False with one log line when something failed, or when somebody else has changed the same rows
// since.
MDOMAIN_EXPORT bool TakeBack(const Changes& changes);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_HISTORY_H
