#include "lib-domain/history/history_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/reader.h"
#include "platform/include/files.h"
#include "platform/include/new_file.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::Connection;

constexpr int kBusyMilliseconds = 10000;
// Which domains an entry is about, 0 for the host.
constexpr const char* kDomainSchema =
    "CREATE TABLE IF NOT EXISTS entry_domain_table(domain_idx INTEGER NOT NULL, id INTEGER NOT "
    "NULL,"
    " PRIMARY KEY(domain_idx, id)) WITHOUT ROWID";
constexpr const char* kSchema =
    "CREATE TABLE entry_table(id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL,"
    " person TEXT NOT NULL, command TEXT NOT NULL, summary TEXT NOT NULL, state TEXT NOT NULL,"
    " why_kept TEXT NOT NULL, plan TEXT NOT NULL, changes BLOB NOT NULL)";

}  // namespace

bool HistoryFile::OpenForWriting() {
  path_ = PATHS::HistoryDb();
  return (postara::sdk::Exist(path_) || _Make()) && _Open(Connection::Mode::kWrite) &&
         (connection_.Run(kDomainSchema) == SQLITE_OK || Fail());
}

bool HistoryFile::OpenForReading() {
  path_ = PATHS::HistoryDb();
  if (!postara::sdk::Exist(path_)) {
    return true;
  }
  DB::INTERNAL::RollBackKilledWriter(path_);
  return _Open(Connection::Mode::kRead);
}

bool HistoryFile::Fail() const {
  LOG_ERROR("The history [%s] failed: %s", path_.c_str(), sqlite3_errmsg(connection_.Get()));
  return false;
}

bool HistoryFile::_Open(Connection::Mode mode) {
  if (connection_.Open(path_, mode, kBusyMilliseconds) != SQLITE_OK) {
    LOG_ERROR("Cannot open the history [%s]: %s", path_.c_str(), connection_.Error().c_str());
    return false;
  }
  return true;
}

bool HistoryFile::_Make() {
  uid_t uid = 0;
  gid_t gid = 0;
  korvmailserver::NewFile file(path_);
  Connection fill;
  const bool is_made =
      mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) >= 0 && file.Open() &&
      fill.Open(file.Beside(), Connection::Mode::kWrite, kBusyMilliseconds) == SQLITE_OK &&
      fill.Run(kSchema) == SQLITE_OK;
  fill.Close();
  // Whoever may not give files away keeps it. Another process may have made it meanwhile.
  (void)(is_made && file.SetOwner(uid, gid));
  if (is_made && (file.Create(S_IRUSR | S_IWUSR) || errno == EEXIST)) {
    return true;
  }
  LOG_ERROR("Cannot make the history [%s]: %s", path_.c_str(), std::strerror(errno));
  return false;
}

}  // namespace MDOMAIN::HISTORY
