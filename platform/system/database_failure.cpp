// What the final message of a program needs and SQLite's texts leave out: which file it was.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/include/files.h"
#include "platform/include/sqlite.h"

namespace korvmailserver {

namespace {

// Results that are about the file, not about a statement.
constexpr int kFileFailures[] = {SQLITE_PERM, SQLITE_BUSY,    SQLITE_READONLY, SQLITE_IOERR,
                                 SQLITE_FULL, SQLITE_CORRUPT, SQLITE_CANTOPEN, SQLITE_NOTADB};

bool IsFileFailure(int kind) {
  return std::find(std::begin(kFileFailures), std::end(kFileFailures), kind) !=
         std::end(kFileFailures);
}

// The statements are those of this project, so it is the file that is another one's.
bool LacksTableOrColumn(sqlite3* db) {
  const std::string text = sqlite3_errmsg(db);
  return text.rfind("no such table", 0) == 0 || text.rfind("no such column", 0) == 0;
}

std::string& Kept() {
  static auto& kept = *new std::string();
  return kept;
}

}  // namespace

void NoteDatabaseFailure(sqlite3* db, int result, const std::string& path) {
  const int kind = result & 0xFF;
  const bool lacks_something = kind == SQLITE_ERROR && db != nullptr && LacksTableOrColumn(db);
  if (db == nullptr || (!lacks_something && !IsFileFailure(kind))) {
    return;
  }
  const char* name = sqlite3_db_filename(db, "main");
  const std::string own = !path.empty() || name == nullptr ? path : name;
  if (own.empty()) {
    return;  // of a file that cannot be opened SQLite does not know the name, but the caller does
  }
  const bool from_system = kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN;
  const int error = from_system ? sqlite3_system_errno(db) : 0;
  std::string reason = error == 0 ? "" : std::string(": ") + std::strerror(error);
  if (kind == SQLITE_CANTOPEN && error == ENOENT) {
    if (!KLIBCFileExist(own.c_str())) {  // callers ask this way whether there is one
      return;
    }
    // SQLite looks for an old journal when it cannot make a new one, and that is what it keeps.
    reason = ": its journal cannot be made";
  }
  Kept() = "database " + own + ": " +
           (lacks_something ? sqlite3_errmsg(db) : sqlite3_errstr(kind)) + reason;
}

const std::string& LastDatabaseFailure() {
  return Kept();
}

UnkeptDatabaseFailures::UnkeptDatabaseFailures() : before_(Kept()) {}

UnkeptDatabaseFailures::~UnkeptDatabaseFailures() {
  Kept() = before_;
}

}  // namespace korvmailserver
