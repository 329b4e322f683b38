// mdomain history, undo: what was changed, and taking the last change back.
#include "lib-domain/history/history.h"

#include <algorithm>
#include <ctime>

#include "lib-domain/api/updater.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/dry_run.h"
#include "tools/mdomain/recorder.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/time_text.h"

namespace mdomain {
namespace {

using MDOMAIN::HISTORY::Entry;

Json::Value EntryJson(const Entry& entry) {
  Json::Value record;
  record["id"] = Json::Int64(entry.id);
  record["time"] = TimeText(entry.time, Zone::kLocal);
  record["person"] = entry.person;
  record["command"] = entry.command;
  record["summary"] = entry.summary;
  record["state"] = entry.state;
  record["why_not_undone"] = entry.why_kept;
  return record;
}

const std::vector<Column> kColumns = {{"id", "ID"},           {"time", "TIME"},
                                      {"person", "BY"},       {"command", "COMMAND"},
                                      {"summary", "CHANGED"}, {"state", "STATE"}};

// Also where it is only read: whoever looks what a killed command did finds it.
void AddInterrupted() {
  TellInterrupted(MDOMAIN::HISTORY::SettleInterrupted(false));
}

void List(Call& call) {
  constexpr int kUsual = 20;
  AddInterrupted();
  std::vector<Entry> entries;
  if (!MDOMAIN::HISTORY::ListEntries(call.Int("--limit", kUsual), entries)) {
    throw Failure(kFailed, "the history could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const Entry& entry : entries) {
    records.append(EntryJson(entry));
  }
  call.out().List(records, kColumns);
}

void Show(Call& call) {
  Entry entry;
  Json::Value plan;
  bool found = false;
  AddInterrupted();
  if (!MDOMAIN::HISTORY::ReadEntry(call.Int("ID", 0), found, entry, plan)) {
    throw Failure(kFailed, "the history could not be read");
  }
  if (!found) {
    throw Failure(kNotFound, "the history has no entry " + call.Text("ID"));
  }
  Json::Value record = EntryJson(entry);
  record["changes"] = plan;
  if (call.out().json()) {
    call.out().Record(record, {});
    return;
  }
  call.out().Record(record, kColumns);
  for (const Json::Value& change : plan) {
    call.out().Line(change["text"].asString(), ColourOfChange(change));
  }
}

std::string Question(const Entry& last) {
  const std::string what = "mdomain " + last.command + " (" + last.summary + ")?";
  return last.id == 0           ? "Take back the last change?"
         : last.state == "done" ? "Take back " + what
         : last.state == "interrupted"
             ? "Take back as far as it got, before it was interrupted, " + what
             : "An undo was interrupted. Finish taking back " + what;
}

// The change is marked as taken back when that has been told, and not before: whoever runs an undo
// that told nothing once more finishes it, and never takes back the change before.
void EndTold(Call& call, const Entry& entry) {
  const bool was_interrupted = entry.state != "done" && entry.state != "interrupted";
  Json::Value record = EntryJson(entry);
  record["state"] = "undone";
  record["was_interrupted"] = was_interrupted;
  call.out().Done(record,
                  (was_interrupted ? "an undo was interrupted; now it is taken back: mdomain "
                                   : "taken back: mdomain ") +
                      entry.command);
  call.AfterTelling([id = entry.id] {
    if (!MDOMAIN::HISTORY::EndUndo(id)) {
      throw Failure(kFailed,
                    "the change was taken back, but the history could not be told: run the "
                    "same command again");
    }
  });
}

// Such a change goes with the next one anyway; an undo that takes back the one before, too, would
// surprise.
bool TakesBackInterrupted(Call& call) {
  if (!MDOMAIN::HISTORY::HasOpenWhole()) {
    return false;
  }
  call.Ask("Take back the command that was interrupted?");
  if (SettleInterruptedWhole(call) != MDOMAIN::HISTORY::Interrupted::kTakenBack) {
    return false;
  }
  std::vector<Entry> entries;
  if (!MDOMAIN::HISTORY::ListEntries(1, entries) || entries.empty()) {
    throw Failure(kFailed, "the history could not be read");
  }
  call.out().Done(EntryJson(entries.front()), "taken back: mdomain " + entries.front().command);
  return true;
}

void Undo(Call& call) {
  Entry last;
  if (TakesBackInterrupted(call)) {
    return;
  }
  AddInterrupted();
  if (!MDOMAIN::HISTORY::FindLast(last)) {
    throw Failure(kFailed, "the history could not be read");
  }
  call.Confirm(Question(last));
  MDOMAIN::HISTORY::UndoResult result;
  if (!MDOMAIN::HISTORY::UndoLast(last.id, result)) {
    throw Failure(kFailed, "the change could not be taken back: run the same command again");
  }
  if (!result.is_done) {
    const std::string what = result.entry.id == 0 ? "" : "mdomain " + result.entry.command + ": ";
    throw Failure(kRefused,
                  what + result.reason +
                      (result.obstacles.empty() ? "" : ": " + FirstOf(result.obstacles, "; ")));
  }
  if (!MDOMAIN::API::Updater().Trigger()) {
    throw Failure(kFailed,
                  "the change was taken back, but not published: run the same command again");
  }
  EndTold(call, result.entry);
}

const Register kHistory({
    "history",
    "What was changed when, and by whom",
    {
        {"list",
         "List the latest changes, the newest first",
         "Of the commands that change the domains. State interrupted: it was killed, and this is "
         "what it had changed until then; undone: it was taken back; undoing: an "
         "undo of it was interrupted; half undone: and something stands against its end; undo and "
         "refresh are not taken back themselves. The last "
         "thousand are kept.",
         Effect::kReads,
         {Number("--limit", "At most N of them (20)")},
         List},
        {"show",
         "Show one change with everything that it changed",
         "",
         Effect::kReads,
         {One("ID", "Its number, as list shows it")},
         Show},
    },
});

const Register kUndo({
    "undo",
    "Take the last change back",
    {{"",
      "Take the last change back",
      "Everything that it changed becomes as it was, and is published; run again it takes back the "
      "change before. After an undo that was interrupted the next one finishes it first, and says "
      "so. A refresh is passed over: it follows the accounts. Refused where something of the "
      "change was changed since, where it changed more than 20,000 rows, or DKIM keys.",
      Effect::kDestroys,
      {},
      Undo}},
});

}  // namespace
}  // namespace mdomain
