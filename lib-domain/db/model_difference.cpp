// One statement over both files, each attached to a database in memory: SQLite compares the rows.
#include "lib-domain/db/model_difference.h"

#include <sys/stat.h>

#include "lib-domain/base/log_line.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

using korvmailserver::Connection;
using korvmailserver::FormatSql;
using korvmailserver::Statement;

constexpr int kBusyMilliseconds = 10000;

// Who has which address in the file that is attached by this name.
constexpr char kAddresses[] =
    "SELECT uid, domain_name, names, account_alias, role, is_duplicated "
    "FROM \"%w\".domain_user_view JOIN \"%w\".domain_table USING (domain_idx) LEFT JOIN "
    "(SELECT domain_idx, group_concat(additional_domain) AS names FROM "
    "(SELECT * FROM \"%w\".domain_to_additional_domain_table "
    "ORDER BY domain_idx, additional_domain) GROUP BY domain_idx) USING (domain_idx) "
    "WHERE role IS NOT NULL";
constexpr char kNobody[] = "SELECT 0 AS uid, '', '', '', '', 0 WHERE 0";
constexpr char kDifference[] =
    "WITH before AS (%s), after AS (%s) SELECT uid FROM (SELECT * FROM before EXCEPT SELECT * FROM "
    "after) UNION SELECT uid FROM (SELECT * FROM after EXCEPT SELECT * FROM before)";

bool HasContent(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size > 0;
}

// Attaches a file under the name; a query for its addresses, or for none where there is nothing.
// False when it cannot be attached.
bool Attach(Connection& connection, const std::string& path, const char* name, std::string& query) {
  if (!HasContent(path)) {
    query = kNobody;
    return true;
  }
  query = FormatSql(kAddresses, name, name, name);
  return connection.Run(FormatSql("ATTACH %Q AS \"%w\"", path.c_str(), name).c_str()) == SQLITE_OK;
}

}  // namespace

bool ListChangedAddresses(const std::string& before, const std::string& after,
                          std::set<unsigned int>& uids) {
  Connection connection;
  std::string addresses_before;
  std::string addresses_after;
  // What is attached may be written no more than the database in memory.
  bool is_read = connection.Open(":memory:", Connection::Mode::kRead, kBusyMilliseconds) == 0 &&
                 Attach(connection, before, "old", addresses_before) &&
                 Attach(connection, after, "new", addresses_after);
  std::string error = connection.Error();
  std::set<unsigned int> found;
  if (is_read) {
    Statement rows(connection.Get(),
                   FormatSql(kDifference, addresses_before.c_str(), addresses_after.c_str()));
    is_read = rows.ForEachRow(
        [&found](const auto& row) { found.insert(static_cast<unsigned int>(row.Int64(0))); });
    error = rows.Error();
  }
  if (!is_read) {
    LOG_ERROR("Failed to compare the addresses of [%s] and [%s]: %s", before.c_str(), after.c_str(),
              error.c_str());
    return false;
  }
  uids.merge(found);
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
