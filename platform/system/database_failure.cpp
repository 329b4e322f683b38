// What the final message of a program needs and SQLite's texts leave out: which file it was.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/include/sqlite.h"

namespace korvmailserver {

namespace {

// Results that are about the file, not about a statement.
constexpr int kFileFailures[] = {SQLITE_PERM, SQLITE_BUSY,    SQLITE_READONLY, SQLITE_IOERR,
                                 SQLITE_FULL, SQLITE_CORRUPT, SQLITE_CANTOPEN, SQLITE_NOTADB};

std::string& Kept() {
  static std::string kept;
  return kept;
}

}  // namespace

void NoteDatabaseFailure(sqlite3* db, int result) {
  const int kind = result & 0xFF;
  if (db == nullptr || std::find(std::begin(kFileFailures), std::end(kFileFailures), kind) ==
                           std::end(kFileFailures)) {
    return;
  }
  const char* path = sqlite3_db_filename(db, "main");
  const bool from_system = kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN;
  const int error = from_system ? sqlite3_system_errno(db) : 0;
  // Callers ask this way whether there is one; and of a file that cannot be opened SQLite does not
  // know the name, but the caller does.
  if ((kind == SQLITE_CANTOPEN && error == ENOENT) || path == nullptr || *path == '\0') {
    return;
  }
  Kept() = std::string("database ") + path + ": " + sqlite3_errstr(kind) +
           (error == 0 ? "" : std::string(": ") + std::strerror(error));
}

const std::string& LastDatabaseFailure() {
  return Kept();
}

}  // namespace korvmailserver
