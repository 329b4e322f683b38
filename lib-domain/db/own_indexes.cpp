#include "lib-domain/db/own_indexes.h"

#include <iterator>
#include <string>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

struct Index {
  const char* name;
  const char* rows;
};

// None starts with the domain and the user: the order in which a user's aliases are stored shows
// in what is read, and the schema's index of these two gives it.
constexpr Index kIndexes[] = {
    // The child columns of foreign keys. Without them each user or group that is deleted costs a
    // look at every row of these tables.
    {"mdomain_member_uid", "group_to_user_table(uid, gid)"},
    {"mdomain_role_uid", "domain_user_role_table(uid)"},
    {"mdomain_alias_uid", "domain_user_alias_table(uid)"},
    {"mdomain_group_role_gid", "domain_group_role_table(gid)"},
    {"mdomain_removal_uid", "domain_group_removed_user_table(uid)"},
    {"mdomain_removal_gid", "domain_group_removed_user_table(gid)"},
    // Names and aliases are compared without letter case.
    {"mdomain_user_name", "user_table(user_name COLLATE NOCASE)"},
    {"mdomain_group_name", "group_table(group_name COLLATE NOCASE)"},
    // The short names of accounts of a Windows domain.
    {"mdomain_user_behind_domain",
     "user_table(substr(user_name, instr(user_name, '\\') + 1) COLLATE NOCASE) WHERE "
     "instr(user_name, '\\') > 0"},
    {"mdomain_group_behind_domain",
     "group_table(substr(group_name, instr(group_name, '\\') + 1) COLLATE NOCASE) WHERE "
     "instr(group_name, '\\') > 0"},
    // Whether any name has a domain behind it.
    {"mdomain_user_before_domain", "user_table(uid) WHERE instr(user_name, '@') > 0"},
    {"mdomain_group_before_domain", "group_table(gid) WHERE instr(group_name, '@') > 0"},
    {"mdomain_alias", "domain_user_alias_table(account_alias COLLATE NOCASE, domain_idx)"},
    // The few that are not plain.
    {"mdomain_administrator",
     "domain_user_role_table(domain_idx, uid) WHERE role = 'domain_admin'"},
    {"mdomain_administrators",
     "domain_group_role_table(domain_idx, gid) WHERE role = 'domain_admin'"},
    {"mdomain_alias_not_ascii",
     "domain_user_alias_table(domain_idx) WHERE account_alias GLOB '*[^ -~]*'"},
    {"mdomain_flagged_alias",
     "domain_user_alias_table(domain_idx, is_duplicated) WHERE is_duplicated > 0"},
};

// Whom the roles of groups reach: members who were not taken out and have no own role. A row of an
// own role hides those of groups even when it names no role.
#define GROUP_ROLES(UID)                                                                         \
  " FROM main.group_to_user_table AS member CROSS JOIN main.domain_group_role_table AS granted " \
  "ON granted.gid = member.gid WHERE member.uid = " UID                                          \
  " AND granted.domain_idx = "                                                                   \
  "alias.domain_idx AND NOT EXISTS (SELECT 1 FROM main.domain_group_removed_user_table AS "      \
  "removal WHERE removal.domain_idx = alias.domain_idx AND removal.gid = member.gid AND "        \
  "removal.uid = member.uid)"
#define HAS_ROLE(UID)                                                            \
  "CASE (SELECT role IS NOT NULL FROM main.domain_user_role_table AS own WHERE " \
  "own.domain_idx = alias.domain_idx AND own.uid = " UID                         \
  ") WHEN 1 THEN 1 WHEN 0 THEN 0 "                                               \
  "ELSE EXISTS (SELECT 1" GROUP_ROLES(UID) " AND granted.role IS NOT NULL) END"

// CROSS JOIN keeps the order of the aliases, in which rows that a statement does not order are
// given.
constexpr const char* kViews =
    "CREATE TEMP VIEW domain_user_view AS SELECT alias.domain_idx, alias.uid, "
    "user_table.user_name, alias.account_alias, CASE WHEN own.uid IS NULL THEN (SELECT "
    "MIN(granted.role)" GROUP_ROLES("alias.uid")
    ") ELSE own.role END AS 'role', alias.is_duplicated FROM main.domain_user_alias_table AS alias "
    "CROSS JOIN main.user_table ON alias.uid = user_table.uid LEFT JOIN "
    "main.domain_user_role_table AS own ON alias.domain_idx = own.domain_idx AND alias.uid = "
    "own.uid ORDER BY role ASC;"
    // Nobody has to find the smallest of the roles to know that there is one. By the uid of the
    // user, so that a search, which is cheaper, comes before the roles.
    "CREATE TEMP VIEW domain_user_with_role_view AS SELECT alias.domain_idx, alias.uid, "
    "user_table.user_name, alias.account_alias, 1 AS 'role', alias.is_duplicated, alias.rowid AS "
    "alias_row FROM main.domain_user_alias_table AS alias CROSS JOIN main.user_table ON alias.uid "
    "= user_table.uid WHERE " HAS_ROLE("user_table.uid")
    ";"
    "CREATE TEMP VIEW domain_user_without_role_view AS SELECT alias.domain_idx, alias.uid FROM "
    "main.domain_user_alias_table AS alias CROSS JOIN main.user_table ON alias.uid = "
    "user_table.uid WHERE alias.domain_idx IS NOT NULL AND NOT " HAS_ROLE("alias.uid")
    ";"
    // The flag is the highest of the aliases of mirrored users with a role, 0 without any.
    "CREATE TEMP VIEW domain_view AS SELECT domain_table.domain_idx, domain_table.domain_name, "
    "domain_table.domain_desc, domain_table.domain_default_alias_pattern, "
    "domain_table.is_automatically_adding_users, coalesce((SELECT alias.is_duplicated FROM "
    "main.domain_user_alias_table AS alias WHERE alias.domain_idx = domain_table.domain_idx AND "
    "alias.is_duplicated > 0 AND EXISTS (SELECT 1 FROM main.user_table WHERE user_table.uid = "
    "alias.uid) AND " HAS_ROLE("alias.uid")
    " ORDER BY alias.is_duplicated DESC LIMIT 1), 0) AS 'is_duplicated_alias_exist', CASE WHEN "
    "(primary_domain_table.domain_idx IS NULL) THEN (0) ELSE (1)END AS 'is_primary' FROM "
    "main.domain_table LEFT JOIN main.primary_domain_table ON domain_table.domain_idx = "
    "primary_domain_table.domain_idx";
#undef HAS_ROLE
#undef GROUP_ROLES

}  // namespace

bool HasOwnIndexes(sqlite3* db) {
  std::string names;
  for (const Index& index : kIndexes) {
    names += std::string(names.empty() ? "'" : ", '") + index.name + "'";
  }
  korvmailserver::Statement count(
      db,
      "SELECT count(*) FROM main.sqlite_master WHERE type = 'index' AND name IN (" + names + ")");
  return count.Step() == SQLITE_ROW && count.Int64(0) == static_cast<int>(std::size(kIndexes));
}

SQLCmd OwnIndexStatements() {
  SQLCmd statements;
  for (const Index& index : kIndexes) {
    statements.push_back(std::string("CREATE INDEX IF NOT EXISTS ") + index.name + " ON " +
                         index.rows);
  }
  return statements;
}

bool DefineOwnViews(sqlite3* db) {
  if (sqlite3_exec(db, kViews, nullptr, nullptr, nullptr) != SQLITE_OK) {
    LOG_WARNING("Cannot define the views of this connection: %s", sqlite3_errmsg(db));
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
