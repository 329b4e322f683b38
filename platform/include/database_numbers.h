// Whether a database was changed since it was read, without a lock.
//
// For the sources of this project only; it is not installed.
#ifndef PLATFORM_DATABASE_NUMBERS_H
#define PLATFORM_DATABASE_NUMBERS_H

#include <cstdint>

#include "platform/include/export.h"

struct sqlite3;

namespace korvmailserver {

// What SQLite counts in the header of a file. A number that was read within a transaction is that
// of what the transaction read; where one that is read later, without a lock, is still the same,
// so is what was read. A commit that is under way has not happened yet, and one that was killed
// leaves the old number, or one that no committed state has had.
struct DatabaseNumbers {
  uint32_t changes = 0;  // another one after each commit
  uint32_t schema = 0;   // another one after each commit that changed tables, indexes, triggers

  bool operator==(const DatabaseNumbers& other) const {
    return changes == other.changes && schema == other.schema;
  }
};

// Reads them from the file of the connection, without what the connection has not committed itself.
// False, with nothing logged, where they cannot be read or do not tell: no file, write-ahead log.
MDOMAIN_EXPORT bool ReadDatabaseNumbers(sqlite3* db, DatabaseNumbers& numbers);

}  // namespace korvmailserver

#endif  // PLATFORM_DATABASE_NUMBERS_H
