// A change from its beginning to its entry in the history, or until it is taken back.
#ifndef LIB_DOMAIN_HISTORY_RECORDING_H
#define LIB_DOMAIN_HISTORY_RECORDING_H

#include <cstddef>
#include <string>

#include "lib-domain/history/history.h"
#include "lib-domain/history/model_changes.h"
#include "lib-domain/history/open_change.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

// What is done: a refresh, a repair and an undo are in the history and never taken back themselves.
enum class EntryKind { kChange, kRefresh, kRepair, kUndo };

// The account of this process; of root with sudo the account that asked for it, "anna (as root)".
MDOMAIN_EXPORT std::string ProcessPerson();

class MDOMAIN_EXPORT Recording {
 public:
  // Before any database is opened. `command` is what the history calls it; more than `most_rows`
  // changed rows are told and not kept.
  Recording(EntryKind kind, std::string command, size_t most_rows);
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  // Once nobody else may change anything: what others did before is not this change's.
  void Begin(const std::string& person);
  // The same, and what is changed is noted on its way, so that a process that is killed leaves an
  // entry all the same (open_change.h). For that the change begins here, whatever was seen before.
  void BeginNoted(const std::string& person, bool all_or_nothing);
  // Adds an entry; where nothing was changed, or only stored again, there is none and it is true;
  // so it is after a failed TakeBack. False with one log line: the change is made, and the history
  // does not have it.
  bool Record();

  enum class Back {
    kDone,         // all is as it was before
    kUnpublished,  // it is, and what is published is not
    // What was done is still there, in whole or in part; one log line. Of a change that is noted
    // and all or nothing the next change tries again.
    kFailed,
  };
  Back TakeBack();

 private:
  EntryKind kind_;
  ModelChanges changes_;
  Entry entry_;
  OpenChange open_change_;
  bool is_left_ = false;  // to the next change
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_RECORDING_H
