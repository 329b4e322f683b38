// Composes the list and count queries over the mirrored accounts and groups.
#include "lib-domain/db/account_db_filter.h"

#include "lib-domain/base/text.h"
#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/statement.h"
#include "platform/include/account.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// The two mirror tables differ in names only.
struct Mirror {
  const char* table;
  const char* id_column;
  const char* name_column;
};

constexpr Mirror kUsers = {"user_table", "uid", "user_name"};
constexpr Mirror kGroups = {"group_table", "gid", "group_name"};

// SQLite reads a text between double quotes as a column when there is one of that name: a user
// called user_name would match all users.
bool IsColumn(const std::string& name) {
  for (const char* column :
       {"uid", "user_name", "gid", "group_name", "group_desc", "rowid", "oid", "_rowid_"}) {
    if (BASE::EqualsIgnoreCase(name, column)) {
      return true;
    }
  }
  return false;
}

// A list of names between double quotes. A name's own double quotes are doubled: one alone would
// end its literal and let the rest of the name be read as SQL.
std::string QuoteNames(const std::vector<std::string>& names) {
  std::vector<std::string> literals;
  for (const std::string& name : GetFullNames(names)) {
    const char quote = IsColumn(name) ? '\'' : '"';
    std::string literal(1, quote);
    for (const char c : name) {
      literal.append(c == '"' || c == '\'' ? 2 : 1, c);
    }
    literals.push_back(literal + quote);
  }
  return BASE::Join(literals, ",");
}

std::string Compose(const Mirror& mirror, const std::string& select, const std::string& query,
                    const std::vector<unsigned int>& ids, const std::vector<std::string>& names,
                    int limit, int offset) {
  std::vector<std::string> conditions;
  if (!query.empty()) {
    conditions.push_back(Like(mirror.name_column, query));
  }
  if (!ids.empty()) {
    conditions.push_back(mirror.id_column + (" IN (" + BASE::Join(ids, ",")) + ")");
  }
  if (!names.empty()) {
    conditions.push_back(mirror.name_column + (" COLLATE NOCASE IN (" + QuoteNames(names)) + ")");
  }
  std::string sql = "SELECT " + select + " FROM " + mirror.table;
  if (!conditions.empty()) {
    sql += " WHERE " + BASE::Join(conditions, " AND ");
  }
  if (select.find("count(*)") == std::string::npos) {
    // The order of the table, which an index on the names would not give.
    sql += names.empty() ? "" : std::string(" ORDER BY ") + mirror.id_column;
    sql += " LIMIT " + std::to_string(limit) + " OFFSET " + std::to_string(offset);
  }
  return sql + ";";
}

}  // namespace

std::string ComposeQueryCmd(const UserDBFilter& filter) {
  return Compose(kUsers, filter.GetSelect(), filter.GetQuery(), filter.GetUIDs(),
                 filter.GetUserNames(), filter.GetLimit(), filter.GetOffset());
}

std::string ComposeQueryCmd(const GroupDBFilter& filter) {
  return Compose(kGroups, filter.GetSelect(), filter.GetQuery(), filter.GetGIDs(),
                 filter.GetGroupNames(), filter.GetLimit(), filter.GetOffset());
}

bool HasQueryInput(const UserDBFilter& filter) {
  return !filter.GetQuery().empty() || !filter.GetUIDs().empty() || !filter.GetUserNames().empty();
}

bool HasQueryInput(const GroupDBFilter& filter) {
  return !filter.GetQuery().empty() || !filter.GetGIDs().empty() || !filter.GetGroupNames().empty();
}

}  // namespace MDOMAIN::DB::INTERNAL

namespace MDOMAIN::DB {

void UserDBFilter::SetLiteralQuery(const std::string& text) {
  query_ = INTERNAL::LiteralQuery(text);
}

void GroupDBFilter::SetLiteralQuery(const std::string& text) {
  query_ = INTERNAL::LiteralQuery(text);
}

}  // namespace MDOMAIN::DB
