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
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/db/model_state.h"
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
constexpr char kSelectLast[] = "SELECT " HISTORY_ENTRY_COLUMNS
                               ", changes FROM entry_table"
                               " WHERE state IN ('done', 'undoing') ORDER BY id DESC LIMIT 1";
constexpr char kSetState[] = "UPDATE entry_table SET state = ?2 WHERE id = ?1";

bool ReadLast(HistoryFile& file, Entry& entry, std::string& bytes) {
  Statement select(file.Get(), kSelectLast);
  return select.ForEachRow([&](const Statement& row) {
    entry = EntryOf(row);
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
    const int result =
        korvmailserver::ApplyChanges(connection_.Get(), changes, RowSide::kBefore, obstacles);
    if (result == SQLITE_CONSTRAINT) {
      obstacles.push_back(path_ + ": " + sqlite3_errmsg(connection_.Get()));
      return true;
    }
    return result == SQLITE_OK && (!obstacles.empty() || _ListDangling(obstacles));
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

bool ReadText(const std::string& path, std::string& bytes) {
  return korvmailserver::ReadFile(PATHS::EtcDir() + path, bytes) >= 0;
}

void ListFileObstacles(const Changes& changes, std::vector<std::string>& obstacles) {
  for (const FileChange& file : changes.files) {
    std::string now;
    const bool is_there = ReadText(file.path, now);
    const bool is_before = is_there == file.was_there && now == file.before;
    const bool is_after = is_there == file.is_there && now == file.after;
    if (!is_before && !is_after) {
      obstacles.push_back(file.path + " was changed since");
    }
  }
}

bool RestoreFile(const FileChange& file) {
  constexpr mode_t kMode = 0640;
  const std::string path = PATHS::EtcDir() + file.path;
  std::string now;
  const bool is_there = ReadText(file.path, now);
  if (is_there == file.was_there && now == file.before) {
    return true;
  }
  const bool is_restored =
      file.was_there
          ? korvmailserver::ReplaceFile(path, file.before, kMode) == 0 &&
                mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount, kMode) >= 0
          : postara::sdk::Unlink(path) == 0;
  if (!is_restored) {
    LOG_ERROR("Cannot put back [%s]: %s", path.c_str(), std::strerror(errno));
  }
  return is_restored;
}

// The values of a column in changed rows of the tables.
std::set<int> ValuesOf(const Changes& changes, const std::set<std::string>& tables,
                       const char* column) {
  std::set<int> values;
  for (const TableChange& table : changes.tables) {
    if (tables.count(table.table) != 0) {
      for (const auto& row : table.rows) {
        const std::string text = TextOf(table, row.before.empty() ? row.after : row.before, column);
        values.insert(static_cast<int>(std::strtol(text.c_str(), nullptr, 10)));
      }
    }
  }
  return values;
}

// What the model remembers besides its rows: that it is empty on purpose.
bool SettleContent(const Changes& changes) {
  if (ValuesOf(changes, {"domain_table"}, "domain_idx").empty()) {
    return true;
  }
  DB::INTERNAL::Content content = DB::INTERNAL::Content::kNothing;
  return DB::INTERNAL::GetContent(content) &&
         (content == DB::INTERNAL::Content::kDomains ? DB::INTERNAL::ClearEmptied()
                                                     : DB::INTERNAL::SetEmptiedIfEmpty());
}

// Who owns an alias may be another question than it was then: others have come meanwhile.
bool SetFlags(const Changes& changes) {
  const std::set<int> domains = ValuesOf(
      changes, {"domain_user_alias_table", "domain_user_role_table", "domain_group_role_table"},
      "domain_idx");
  return domains.empty() ||
         CONTROL::DomainUser().UpdateDuplicateAlias({domains.begin(), domains.end()});
}

// Users with an alias or role that changed.
std::vector<unsigned int> ChangedUsers(const Changes& changes) {
  const std::set<int> uids =
      ValuesOf(changes, {"domain_user_alias_table", "domain_user_role_table"}, "uid");
  return {uids.begin(), uids.end()};
}

// Behind the rows: the files, what follows from the rows, and whose addresses changed is announced.
bool RestoreFiles(const Changes& changes) {
  for (const FileChange& changed : changes.files) {
    if (!RestoreFile(changed)) {
      return false;
    }
  }
  return SettleContent(changes) && SetFlags(changes) &&
         CONTROL::INTERNAL::Announce(ChangedUsers(changes));
}

// Why it is not tried; empty when nothing speaks against it.
std::string Refusal(const Entry& entry, const std::string& bytes, Changes& changes) {
  if (entry.id == 0) {
    return "there is nothing to take back";
  }
  if (!entry.why_kept.empty()) {
    return entry.why_kept;
  }
  std::string model;
  if (!FromBytes(bytes, PATHS::EtcDir(), changes, model)) {
    return "the history does not hold it whole";
  }
  if (model != ModelName()) {
    return "the model file in force was another one then: " + model;
  }
  std::vector<CONTROL::INTERNAL::PendingDeparture> pending;
  if (!CONTROL::INTERNAL::ListPendingDepartures(pending) || !pending.empty()) {
    return "a removal has not ended: mdomain publish ends it";
  }
  return "";
}

}  // namespace

bool FindLast(Entry& entry) {
  HistoryFile file;
  std::string bytes;
  return file.OpenForReading() && (file.Get() == nullptr || ReadLast(file, entry, bytes));
}

bool UndoLast(long long id, UndoResult& result) {
  HistoryFile file;
  std::string bytes;
  if (!file.OpenForWriting() || !ReadLast(file, result.entry, bytes)) {
    return false;
  }
  Changes changes;
  result.reason = result.entry.id == id ? Refusal(result.entry, bytes, changes)
                                        : "another change was made meanwhile";
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
