// The database of the history.
#ifndef LIB_DOMAIN_HISTORY_HISTORY_FILE_H
#define LIB_DOMAIN_HISTORY_HISTORY_FILE_H

#include <string>

#include "lib-domain/history/history.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::HISTORY {

// Of the model file in force, without its folder; empty where it cannot be told.
std::string ModelName();

// What EntryOf reads, the first columns of a query.
#define HISTORY_ENTRY_COLUMNS "id, time, person, command, summary, state, why_kept"
Entry EntryOf(const korvmailserver::Statement& row);

class HistoryFile {
 public:
  // Makes a missing file, for its owner alone. False with one log line.
  bool OpenForWriting();
  // A missing file is success, and Get gives null.
  bool OpenForReading();
  sqlite3* Get() const { return connection_.Get(); }
  // Logs what SQLite said. Always false.
  bool Fail() const;

 private:
  bool _Open(korvmailserver::Connection::Mode mode);
  bool _Make();

  std::string path_;
  korvmailserver::Connection connection_;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_HISTORY_FILE_H
