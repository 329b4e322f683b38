// A change from its beginning to its entry in the history, or until it is taken back.
#ifndef LIB_DOMAIN_HISTORY_RECORDING_H
#define LIB_DOMAIN_HISTORY_RECORDING_H

#include <cstddef>
#include <string>

#include "lib-domain/history/model_changes.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

// What is done: a refresh and an undo are in the history and never taken back themselves.
enum class EntryKind { kChange, kRefresh, kUndo };

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
  void WatchFiles() { changes_.WatchFiles(); }
  // Adds an entry by `person`; where nothing was changed, or only stored again, there is none and
  // it is true. False with one log line: the change is made, and the history does not have it.
  bool Record(const std::string& person) const;

  enum class Back {
    kDone,         // all is as it was before
    kUnpublished,  // it is, and what is published is not
    kFailed,       // what was done is still there, in whole or in part; one log line
  };
  Back TakeBack() const;

 private:
  EntryKind kind_;
  std::string command_;
  ModelChanges changes_;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_RECORDING_H
