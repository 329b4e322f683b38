#include "lib-domain/utils/refresh_preview.h"

#include <sqlite3.h>

#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/utils/account_source.h"
#include "lib-domain/utils/mirror_difference.h"
#include "platform/include/account.h"
#include "platform/include/files.h"

namespace MDOMAIN::UTILS {
namespace {

constexpr int kBusyTimeout = 10000;  // milliseconds, as the handler waits before a query
constexpr const char* kUids = "SELECT uid FROM user_table ORDER BY uid";
constexpr const char* kGids = "SELECT gid FROM group_table ORDER BY gid";

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

// The ids of one mirror table, ascending; none when there is no database yet.
bool ReadIds(sqlite3* db, const char* sql, std::vector<unsigned int>& ids) {
  if (db == nullptr) {
    return true;
  }
  sqlite3_stmt* raw = nullptr;
  int result = sqlite3_prepare_v2(db, sql, -1, &raw, nullptr);
  const Statement statement(raw, sqlite3_finalize);
  while (result == SQLITE_OK || result == SQLITE_ROW) {
    result = sqlite3_step(raw);
    if (result == SQLITE_ROW) {
      ids.push_back(static_cast<unsigned int>(sqlite3_column_int64(raw, 0)));
    }
  }
  if (result != SQLITE_DONE) {
    LOG_ERROR("Failed to read the mirror, %s", sqlite3_errmsg(db));
    return false;
  }
  return true;
}

bool OpenForReading(Connection& connection) {
  std::string path;
  if (!GetUserGroupDomainConfigPath(path)) {
    return false;
  }
  if (!postara::sdk::Exist(path)) {
    return true;
  }
  sqlite3* db = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  connection.reset(db);
  if (result != SQLITE_OK) {
    LOG_ERROR("Failed to open %s, %s", path.c_str(), sqlite3_errmsg(db));
    return false;
  }
  sqlite3_busy_timeout(db, kBusyTimeout);
  return true;
}

// Accounts without a mirror row are new; rows without an account go, unless the answer was cut
// short.
template <typename Record>
void Compare(const std::vector<Record>& accounts, const std::vector<unsigned int>& mirrored,
             bool complete, std::vector<std::string>& new_names,
             std::vector<unsigned int>& deleted_ids) {
  const auto difference = INTERNAL::CompareWithMirror(accounts, mirrored);
  new_names = INTERNAL::NamesOf(difference.created);
  if (complete) {
    deleted_ids = difference.deleted_ids;
  }
}

}  // namespace

bool PreviewRefresh(RefreshSummary& summary) {
  summary = RefreshSummary();
  const korvmailserver::AccountSnapshot snapshot;
  std::vector<RECORD::User> users;
  std::vector<RECORD::Group> groups;
  if (!TryToGetAllZelmUsers(users, summary.users_complete) ||
      !TryToGetAllZelmGroups(groups, summary.groups_complete)) {
    return false;
  }
  Connection connection(nullptr, sqlite3_close);
  std::vector<unsigned int> uids;
  std::vector<unsigned int> gids;
  if (!OpenForReading(connection) || !ReadIds(connection.get(), kUids, uids) ||
      !ReadIds(connection.get(), kGids, gids)) {
    return false;
  }
  summary.users = users.size();
  summary.groups = groups.size();
  Compare(users, uids, summary.users_complete, summary.new_users, summary.deleted_uids);
  Compare(groups, gids, summary.groups_complete, summary.new_groups, summary.deleted_gids);
  return true;
}

}  // namespace MDOMAIN::UTILS
