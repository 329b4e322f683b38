// The databases have no transaction in common. All of them are written first, so that an obstacle
// in one leaves every one as it is; then they commit one after the other. A run that is interrupted
// between two commits is gone on with: a row that is as before the change is left alone.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/history/history.h"
#include "lib-domain/history/history_file.h"
#include "lib-domain/history/kept_changes.h"
#include "lib-domain/history/names.h"
#include "platform/include/files.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::Connection;
using korvmailserver::RowSide;
using korvmailserver::Statement;
using korvmailserver::TableChange;

constexpr int kBusyMilliseconds = 10000;
constexpr size_t kObstaclesShown = 10;
constexpr char kSelectLast[] =
    "SELECT id, time, person, command, summary, state, why_kept, changes FROM entry_table"
    " WHERE state IN ('done', 'undoing') ORDER BY id DESC LIMIT 1";
constexpr char kSetState[] = "UPDATE entry_table SET state = ?2 WHERE id = ?1";

bool ReadLast(HistoryFile& file, Entry& entry, std::string& bytes) {
  Statement select(file.Get(), kSelectLast);
  return select.ForEachRow([&](const Statement& row) {
    entry.id = row.Int64(0);
    entry.time = row.Int64(1);
    entry.person = row.Text(2);
    entry.command = row.Text(3);
    entry.summary = row.Text(4);
    entry.state = row.Text(5);
    entry.why_kept = row.Text(6);
    bytes = row.Text(7);
  }) || file.Fail();
}

bool SetState(HistoryFile& file, long long id, const char* state) {
  Statement update(file.Get(), kSetState);
  return (update.Bind(1, id) && update.Bind(2, std::string_view(state)) && update.Run()) ||
         file.Fail();
}

// One database, open with a transaction that holds the rows of before.
class Restoring {
 public:
  explicit Restoring(const std::string& path) : path_(path) {}

  bool Begin() {
    return connection_.Open(path_, Connection::Mode::kWrite, kBusyMilliseconds) == SQLITE_OK &&
           // Nothing is deleted that was not recorded; what would hang in the air is an obstacle.
           connection_.Run("PRAGMA foreign_keys = OFF; BEGIN IMMEDIATE") == SQLITE_OK;
  }
  bool Apply(const std::vector<TableChange>& changes, std::vector<std::string>& obstacles) {
    return korvmailserver::ApplyChanges(connection_.Get(), changes, RowSide::kBefore, obstacles) ==
               SQLITE_OK &&
           (!obstacles.empty() || _ListDangling(obstacles));
  }
  bool Commit() { return connection_.Run("COMMIT") == SQLITE_OK; }
  bool Fail() const {
    LOG_ERROR("Cannot put back [%s]: %s", path_.c_str(), sqlite3_errmsg(connection_.Get()));
    return false;
  }

 private:
  bool _ListDangling(std::vector<std::string>& obstacles) {
    Statement check(connection_.Get(), "PRAGMA foreign_key_check");
    return check.ForEachRow([&](const Statement& row) {
      obstacles.push_back(
          row.Text(0) + ": something was added that belongs to what would go from " + row.Text(2));
    });
  }

  std::string path_;
  Connection connection_;  // closed without Commit: rolled back
};

bool RestoreRows(const Changes& changes, std::vector<std::string>& obstacles) {
  std::map<std::string, std::vector<TableChange>> by_path;
  for (const TableChange& table : changes.tables) {
    by_path[table.path].push_back(table);
  }
  std::vector<std::unique_ptr<Restoring>> databases;
  for (const auto& [path, tables] : by_path) {
    databases.push_back(std::make_unique<Restoring>(path));
    if (!databases.back()->Begin() || !databases.back()->Apply(tables, obstacles)) {
      return databases.back()->Fail();
    }
  }
  for (const auto& database : databases) {
    if (obstacles.empty() && !database->Commit()) {
      return database->Fail();
    }
  }
  return true;
}

std::string BytesOf(const std::string& path) {
  std::string bytes;
  return korvmailserver::ReadFile(path, bytes) < 0 ? "" : bytes;
}

void ListFileObstacles(const Changes& changes, std::vector<std::string>& obstacles) {
  for (const FileChange& file : changes.files) {
    const std::string now = BytesOf(PATHS::EtcDir() + file.path);
    if (now != file.before && now != file.after) {
      obstacles.push_back(file.path + " was changed since");
    }
  }
}

bool RestoreFile(const FileChange& file) {
  constexpr mode_t kTextMode = 0640;
  const bool is_secret = file.path.find("private") != std::string::npos;
  const std::string path = PATHS::EtcDir() + file.path;
  if (BytesOf(path) == file.before) {
    return true;
  }
  const int result = file.before.empty()
                         ? postara::sdk::Unlink(path)
                         : korvmailserver::ReplaceFile(path, file.before,
                                                       is_secret ? S_IRUSR | S_IWUSR : kTextMode);
  if (result < 0 || (!file.before.empty() &&
                     mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount,
                                          is_secret ? S_IRUSR | S_IWUSR : kTextMode) < 0)) {
    LOG_ERROR("Cannot put back [%s]: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

// Users with an alias or role that changed.
std::vector<unsigned int> ChangedUsers(const Changes& changes) {
  std::set<unsigned int> uids;
  for (const TableChange& table : changes.tables) {
    if (table.table == "domain_user_alias_table" || table.table == "domain_user_role_table") {
      for (const auto& row : table.rows) {
        const std::string uid = TextOf(table, row.before.empty() ? row.after : row.before, "uid");
        uids.insert(static_cast<unsigned int>(std::strtoul(uid.c_str(), nullptr, 10)));
      }
    }
  }
  return {uids.begin(), uids.end()};
}

// Behind the rows: the files, and whose addresses changed is announced.
bool RestoreFiles(const Changes& changes) {
  for (const FileChange& changed : changes.files) {
    if (!RestoreFile(changed)) {
      return false;
    }
  }
  return CONTROL::INTERNAL::Announce(ChangedUsers(changes));
}

// Why it is not tried; empty when nothing speaks against it.
std::string Refusal(const Entry& entry, const std::string& bytes, Changes& changes) {
  if (entry.id == 0) {
    return "there is nothing to take back";
  }
  if (!entry.why_kept.empty()) {
    return entry.why_kept;
  }
  if (!FromBytes(bytes, PATHS::EtcDir(), changes)) {
    return "the history does not hold it whole";
  }
  std::vector<CONTROL::INTERNAL::PendingDeparture> pending;
  if (!CONTROL::INTERNAL::ListPendingDepartures(pending) || !pending.empty()) {
    return "a removal has not ended: mdomain publish ends it";
  }
  return "";
}

}  // namespace

bool UndoLast(UndoResult& result) {
  HistoryFile file;
  std::string bytes;
  if (!file.OpenForWriting() || !ReadLast(file, result.entry, bytes)) {
    return false;
  }
  Changes changes;
  result.reason = Refusal(result.entry, bytes, changes);
  if (!result.reason.empty()) {
    return true;
  }
  ListFileObstacles(changes, result.obstacles);
  if (result.obstacles.empty() && !SetState(file, result.entry.id, "undoing")) {
    return false;
  }
  if (result.obstacles.empty() && !RestoreRows(changes, result.obstacles)) {
    return false;
  }
  if (!result.obstacles.empty()) {
    result.reason = "something was changed since";
    result.obstacles.resize(std::min(result.obstacles.size(), kObstaclesShown));
    return SetState(file, result.entry.id, "done");
  }
  result.is_done = RestoreFiles(changes) && SetState(file, result.entry.id, "undone");
  return result.is_done;
}

bool TakeBack(const Changes& changes) {
  std::vector<std::string> obstacles;
  if (!changes.is_whole || !RestoreRows(changes, obstacles)) {
    return false;
  }
  if (!obstacles.empty()) {
    LOG_ERROR("Cannot put back, changed since: %s", obstacles.front().c_str());
    return false;
  }
  return RestoreFiles(changes);
}

}  // namespace MDOMAIN::HISTORY
