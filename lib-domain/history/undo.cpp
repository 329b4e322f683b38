// The databases have no transaction in common. All of them are written first, so that an obstacle
// in one leaves every one as it is; then they commit one after the other, and the model, from which
// the rest follows, behind the others and the files. A run that is interrupted on the way is gone
// on with: a row that is as before the change is left alone.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/db/departure.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/history/history.h"
#include "lib-domain/history/history_file.h"
#include "lib-domain/history/kept_changes.h"
#include "lib-domain/history/names.h"
#include "lib-domain/sync/model_in_force.h"
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
                               " WHERE state IN ('done', 'interrupted', 'undoing', 'half undone')"
                               " ORDER BY state = 'undoing' AND length(changes) > 0 DESC, id DESC"
                               " LIMIT 1";
constexpr char kBegun[] = "undoing";
constexpr char kHalf[] = "half undone";
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
    const int result = korvmailserver::ApplyChanges(connection_.Get(), changes, RowSide::kBefore,
                                                    {"is_duplicated"}, obstacles);
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

bool WriteBack(const FileChange& file, const std::string& path) {
  constexpr mode_t kTextMode = 0640;
  if (!file.is_held) {
    errno = EACCES;
    return false;
  }
  if (file.IsKept()) {
    return korvmailserver::ReplaceFile(path, file.before, kTextMode) == 0 &&
           mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount, kTextMode) >= 0;
  }
  return korvmailserver::ReplaceFile(path, file.before, file.mode) == 0 &&
         lchown(path.c_str(), file.uid, file.gid) == 0;
}

bool RestoreFile(const FileChange& file) {
  const std::string path = PATHS::EtcDir() + file.path;
  std::string now;
  const bool is_there = ReadText(file.path, now);
  // A key that was not there is the mail server's, who has made it meanwhile.
  if ((is_there == file.was_there && now == file.before) || (!file.was_there && !file.IsKept())) {
    return true;
  }
  const bool is_restored = file.was_there ? WriteBack(file, path) : postara::sdk::Unlink(path) == 0;
  if (!is_restored) {
    LOG_ERROR("Cannot put back [%s]: %s", path.c_str(), std::strerror(errno));
  }
  return is_restored;
}

using Databases = std::vector<std::unique_ptr<Restoring>>;

bool CommitAll(const Databases& databases) {
  for (const auto& database : databases) {
    if (!database->Commit()) {
      return database->Fail();
    }
  }
  return true;
}

// Rows and files. Nothing is changed where something stands against it.
bool Restore(const Changes& changes, std::vector<std::string>& obstacles) {
  std::map<std::string, std::vector<TableChange>> by_path;
  for (const TableChange& table : changes.tables) {
    by_path[table.path].push_back(table);
  }
  const std::string model = ModelName();
  Databases others;
  Databases models;
  for (const auto& [path, tables] : by_path) {
    Databases& databases = path.substr(path.rfind('/') + 1) == model ? models : others;
    databases.push_back(std::make_unique<Restoring>(path));
    if (!databases.back()->Begin() || !databases.back()->Apply(tables, obstacles)) {
      return databases.back()->Fail();
    }
  }
  return !obstacles.empty() ||
         (CommitAll(others) &&
          std::all_of(changes.files.begin(), changes.files.end(), RestoreFile) &&
          CommitAll(models));
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

bool NamesAccountSource(const Changes& changes) {
  static const std::set<std::string> kKeys = {"account_type", "win_domain_short_name",
                                              "acc_domain_name"};
  return std::any_of(changes.tables.begin(), changes.tables.end(), [](const TableChange& table) {
    return table.table == "key_table" &&
           std::any_of(table.rows.begin(), table.rows.end(), [&](const auto& row) {
             return kKeys.count(
                        TextOf(table, row.before.empty() ? row.after : row.before, "name")) != 0;
           });
  });
}

// What follows from the rows; whose addresses changed is announced.
bool Follow(const Changes& changes) {
  if (NamesAccountSource(changes)) {
    UTILS::TakeAccountSource();
  }
  return SettleContent(changes) && SetFlags(changes) &&
         CONTROL::INTERNAL::Announce(ChangedUsers(changes));
}

bool IsRecorded(const Changes& changes, const std::string& part) {
  return std::any_of(changes.tables.begin(), changes.tables.end(),
                     [&](const TableChange& table) { return table.table == part; }) ||
         std::any_of(changes.files.begin(), changes.files.end(),
                     [&](const FileChange& file) { return file.path.rfind(part + "/", 0) == 0; });
}

// What others have made under the index of a domain that would go, and would go with it. False with
// a log line when it cannot be told.
bool ListAdded(const Changes& changes, std::vector<std::string>& obstacles) {
  static const std::map<std::string, std::string> kParts = {{"aliases", "alias_table"},
                                                            {"BCC rules", "bcc_table"},
                                                            {"disclaimers", "disclaimer_content"},
                                                            {"DKIM keys", "dkim.key"}};
  std::set<int> created;
  for (const TableChange& table : changes.tables) {
    for (const auto& row : table.rows) {
      if (table.table == "domain_table" && row.before.empty()) {
        created.insert(static_cast<int>(row.rowid));
      }
    }
  }
  for (const auto& setting : CONTROL::INTERNAL::OutsideSettings()) {
    const auto part = kParts.find(setting.name);
    std::set<int> found;
    if (created.empty() || part == kParts.end() || IsRecorded(changes, part->second)) {
      continue;
    }
    if (!setting.list([&](int idx) { return created.count(idx) != 0; }, found)) {
      return false;
    }
    if (!found.empty()) {
      obstacles.push_back(std::string(setting.name) + " of the new domain, in " + setting.place());
    }
  }
  return true;
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
  if (!ListAdded(changes, result.obstacles)) {
    return false;
  }
  if (result.obstacles.empty() && !SetState(file, result.entry.id, kBegun)) {
    return false;
  }
  if (result.obstacles.empty() && !Restore(changes, result.obstacles)) {
    return false;
  }
  if (!result.obstacles.empty()) {
    const bool is_half = result.entry.state == kBegun || result.entry.state == kHalf;
    result.reason = is_half ? "an undo of it was interrupted, and something was changed since"
                            : "something was changed since";
    result.obstacles.resize(std::min(result.obstacles.size(), kObstaclesShown));
    return SetState(file, result.entry.id, is_half ? kHalf : result.entry.state.c_str());
  }
  result.is_done = Follow(changes);
  return result.is_done;
}

bool EndUndo(long long id) {
  HistoryFile file;
  return file.OpenForWriting() && SetState(file, id, "undone");
}

bool TakeBack(const Changes& changes) {
  std::vector<std::string> obstacles;
  if (!changes.is_whole || !Restore(changes, obstacles)) {
    return false;
  }
  if (!obstacles.empty()) {
    LOG_ERROR("Cannot put back, changed since: %s", obstacles.front().c_str());
    return false;
  }
  // Whoever was on the way out stays, and so does what is theirs.
  std::vector<CONTROL::INTERNAL::PendingDeparture> pending;
  return CONTROL::INTERNAL::ListPendingDepartures(pending) &&
         (pending.empty() || DB::Departure().DeleteAll()) && Follow(changes);
}

}  // namespace MDOMAIN::HISTORY
