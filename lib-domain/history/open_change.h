// A change on its way. What it has changed so far lies beside the history, so that a process that
// is killed leaves an entry all the same, and a change that is all or nothing is taken back.
//
// The file is written before each commit, and not synced: it outlives the process, and after a loss
// of power there may be no entry.
#ifndef LIB_DOMAIN_HISTORY_OPEN_CHANGE_H
#define LIB_DOMAIN_HISTORY_OPEN_CHANGE_H

#include <string>
#include <vector>

#include "lib-domain/history/history.h"
#include "lib-domain/history/model_changes.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

class MDOMAIN_EXPORT OpenChange {
 public:
  OpenChange() = default;
  // Removes what was kept: what there was to record is recorded by now. Where the file cannot be
  // removed it is emptied, and the next change removes it.
  ~OpenChange();
  OpenChange(const OpenChange&) = delete;
  OpenChange& operator=(const OpenChange&) = delete;

  // Under the lock of changes, when `changes` watches the files. The entry has time, person,
  // command and state; both outlive this. With `all_or_nothing` the files of the domains are kept,
  // too. Where nothing can be written nothing is noted.
  void Begin(const Entry& entry, ModelChanges& changes, bool all_or_nothing);
  // Ends it as a killed process does: the next change settles it.
  void Leave();

 private:
  void _Note(const std::vector<korvmailserver::TableChange>& kept, bool is_whole);
  bool _Open();

  const Entry* entry_ = nullptr;
  size_t files_ = 0;
  int file_ = -1;
  bool is_given_up_ = false;
  bool all_or_nothing_ = false;
};

// Whether a process was killed within a change that is all or nothing, or still makes it.
MDOMAIN_EXPORT bool HasOpenWhole();

enum class Interrupted {
  kNothing,    // there is none, or it may not be read
  kRecorded,   // "interrupted", with what it had changed and what was changed since in those rows
  kTakenBack,  // all or nothing: everything is as before it, and published
  kFailed,     // with log lines
};
// Looks after a change whose process was killed, and waits for it where it runs. One that is all or
// nothing is left alone unless the caller holds the lock of changes. An entry that changed texts or
// keys, ended within a removal or was kept in part only cannot be taken back.
MDOMAIN_EXPORT Interrupted SettleInterrupted(bool has_lock);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_OPEN_CHANGE_H
