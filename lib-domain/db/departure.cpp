// The statements of the table of departures. A row is (domain index, kind, id, name); an alias has
// the uid of the user whose alias it was.
//
// The ids of those who leave are one value, however many they are.
#include "lib-domain/db/departure.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS mdomain_departure_table(domain_idx INTEGER, kind TEXT, id INTEGER, "
    "name TEXT, PRIMARY KEY(domain_idx, kind, id, name)) WITHOUT ROWID;";
constexpr const char* kHasTable =
    "SELECT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = "
    "'mdomain_departure_table')";
constexpr const char* kList =
    "SELECT domain_idx, kind, id, name FROM mdomain_departure_table ORDER BY domain_idx, kind, id, "
    "name";

// The ids are the first parameter of every statement, the domain, where there is one, the second.
#define LEAVING "(SELECT value FROM json_each(?1))"

// The leaving users, and where they are: in the given domain, or wherever rows say so.
#define IN_DOMAIN "json_each(?1) CROSS JOIN user_table AS leaver ON leaver.uid = json_each.value"
#define ANYWHERE                                                                                  \
  "(SELECT domain_idx, uid FROM domain_user_alias_table WHERE uid IN " LEAVING                    \
  " UNION SELECT domain_idx, uid FROM domain_user_role_table WHERE uid IN " LEAVING               \
  " UNION SELECT domain_idx, uid FROM domain_group_role_table INNER JOIN group_to_user_table ON " \
  "domain_group_role_table.gid = group_to_user_table.gid WHERE uid IN " LEAVING                   \
  ") AS place INNER JOIN user_table AS leaver ON leaver.uid = place.uid"
#define OWN_IN_DOMAIN                                                                             \
  "json_each(?1) CROSS JOIN domain_user_alias_table AS own ON own.domain_idx = ?2 AND own.uid = " \
  "json_each.value"
#define OWN_ANYWHERE \
  "json_each(?1) CROSS JOIN domain_user_alias_table AS own ON own.uid = json_each.value"
// Whether somebody who stays has the name, or the alias, in the domain. Where there are indexes for
// it each is looked up; else those of all who stay are gathered once. The index of what is looked
// up tells most rows that are the leaver's own from others, without a look at the ids.
#define HAS_NAME(DOMAIN)                                                                     \
  "EXISTS (SELECT 1 FROM user_table AS other CROSS JOIN domain_user_alias_table AS held ON " \
  "held.domain_idx = " DOMAIN                                                                \
  " AND held.uid = other.uid WHERE other.user_name = leaver.user_name COLLATE NOCASE AND "   \
  "other.uid <> leaver.uid AND other.uid NOT IN " LEAVING ")"
// An alias that is NULL is nobody else's, but counts only where nobody has another one.
#define HAS_ALIAS                                                                                \
  "EXISTS (SELECT 1 FROM domain_user_alias_table AS held WHERE held.account_alias = "            \
  "own.account_alias COLLATE NOCASE AND held.domain_idx = own.domain_idx AND held.rowid <> "     \
  "own.rowid AND held.uid NOT IN " LEAVING                                                       \
  ") OR own.account_alias IS NULL AND EXISTS (SELECT 1 FROM domain_user_alias_table AS "         \
  "held WHERE held.domain_idx = own.domain_idx AND held.account_alias IS NOT NULL AND held.uid " \
  "NOT IN " LEAVING ")"
#define IS_AMONG_NAMES(DOMAIN)                                                      \
  "(" DOMAIN                                                                        \
  ", lower(leaver.user_name)) IN (SELECT domain_idx, lower(user_name) FROM "        \
  "domain_user_alias_table INNER JOIN user_table ON domain_user_alias_table.uid = " \
  "user_table.uid WHERE user_table.uid NOT IN " LEAVING ")"
#define IS_AMONG_ALIASES                                                                         \
  "(own.domain_idx, lower(own.account_alias)) IN (SELECT domain_idx, lower(account_alias) FROM " \
  "domain_user_alias_table WHERE account_alias IS NOT NULL AND uid NOT IN " LEAVING ")"
#define INSERT_USERS(DOMAIN, LEAVERS, HAVE_NAME)                 \
  "INSERT OR IGNORE INTO mdomain_departure_table SELECT " DOMAIN \
  ", 'user', leaver.uid, CASE WHEN " HAVE_NAME(                  \
      DOMAIN) " THEN '' ELSE coalesce(leaver.user_name, '') END FROM " LEAVERS
#define INSERT_ALIASES(OWN, HAVE_ALIAS)                                                     \
  "INSERT OR IGNORE INTO mdomain_departure_table SELECT own.domain_idx, 'alias', own.uid, " \
  "coalesce(own.account_alias, '') FROM " OWN " WHERE NOT (" HAVE_ALIAS ")"
struct Insertion {
  const char* users;
  const char* aliases;
};
// In a domain or in all, without and with indexes.
constexpr Insertion kInDomain[] = {
    {INSERT_USERS("?2", IN_DOMAIN, IS_AMONG_NAMES),
     INSERT_ALIASES(OWN_IN_DOMAIN, IS_AMONG_ALIASES)},
    {INSERT_USERS("?2", IN_DOMAIN, HAS_NAME), INSERT_ALIASES(OWN_IN_DOMAIN, HAS_ALIAS)}};
constexpr Insertion kAnywhere[] = {{INSERT_USERS("place.domain_idx", ANYWHERE, IS_AMONG_NAMES),
                                    INSERT_ALIASES(OWN_ANYWHERE, IS_AMONG_ALIASES)},
                                   {INSERT_USERS("place.domain_idx", ANYWHERE, HAS_NAME),
                                    INSERT_ALIASES(OWN_ANYWHERE, HAS_ALIAS)}};
constexpr const char* kInsertRemovals =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT ?2, 'removal', leaver.uid, '' "
    "FROM " IN_DOMAIN;
#undef INSERT_ALIASES
#undef INSERT_USERS
#undef IS_AMONG_ALIASES
#undef IS_AMONG_NAMES
#undef HAS_ALIAS
#undef HAS_NAME
#undef OWN_ANYWHERE
#undef OWN_IN_DOMAIN
#undef ANYWHERE
#undef IN_DOMAIN
#undef LEAVING

constexpr const char* kInsertGroups =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT %d, 'group', gid, coalesce(group_name, "
    "'') FROM group_table WHERE gid IN (%q)";
constexpr const char* kInsertGroupsAnywhere =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT leaver.domain_idx, 'group', leaver.gid, "
    "CASE WHEN EXISTS (SELECT 1 FROM domain_group_view AS other WHERE other.domain_idx = "
    "leaver.domain_idx AND other.gid <> leaver.gid AND other.group_name = leaver.group_name "
    "COLLATE NOCASE) THEN '' ELSE coalesce(leaver.group_name, '') END FROM domain_group_view AS "
    "leaver WHERE "
    "leaver.gid IN (%q)";
constexpr const char* kInsertDomains =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT domain_idx, 'domain', 0, "
    "coalesce(domain_name, '') FROM domain_table WHERE domain_idx IN (%q)";

constexpr const char* kDeleteUsers =
    "DELETE FROM mdomain_departure_table WHERE domain_idx = %d AND kind IN ('user', 'alias', "
    "'removal') AND id IN (%q)";
constexpr const char* kDeleteUsersAnywhere =
    "DELETE FROM mdomain_departure_table WHERE kind IN ('user', 'alias', 'removal') AND id IN (%q)";
constexpr const char* kDeleteRemovals =
    "DELETE FROM mdomain_departure_table WHERE domain_idx = %d AND kind = 'removal' AND id IN (%q)";
constexpr const char* kDeleteGroups =
    "DELETE FROM mdomain_departure_table WHERE domain_idx = %d AND kind = 'group' AND id IN (%q)";
constexpr const char* kDeleteGroupsAnywhere =
    "DELETE FROM mdomain_departure_table WHERE kind = 'group' AND id IN (%q)";
constexpr const char* kDeleteDomains =
    "DELETE FROM mdomain_departure_table WHERE domain_idx IN (%q)";

// Of one domain: the ids of users, then those of groups.
constexpr const char* kDeleteFinished =
    "DELETE FROM mdomain_departure_table WHERE domain_idx = ?1 AND (kind IN ('user', 'alias', "
    "'removal') AND id IN (SELECT value FROM json_each(?2)) OR kind = 'group' AND id IN (SELECT "
    "value FROM json_each(?3)))";
constexpr const char* kDeleteAll = "DELETE FROM mdomain_departure_table";

constexpr const char* kInsertFailure = "fail to insert mdomain_departure_table";
constexpr const char* kDeleteFailure = "fail to delete mdomain_departure_table";

// One of the statements, which name a domain or do not.
void AddDeletion(StatementBatch& batch, const char* in_domain, const char* anywhere, int domain_idx,
                 const std::vector<unsigned int>& ids) {
  if (ids.empty()) {
    return;
  }
  if (domain_idx == Departure::kEveryDomain) {
    batch.AddWithIds(anywhere, ids);
  } else {
    batch.AddWithIds(in_domain, ids, domain_idx);
  }
}

}  // namespace

Departure::Departure()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database Departure::_DomainDb() const {
  return {handler_, status_};
}

bool Departure::AddUsers(int domain_idx, const std::vector<unsigned int>& uids) {
  return _AddUsers(domain_idx, uids, false);
}

bool Departure::BeginRemovals(int domain_idx, const std::vector<unsigned int>& uids) {
  return _AddUsers(domain_idx, uids, true);
}

bool Departure::_AddUsers(int domain_idx, const std::vector<unsigned int>& uids, bool has_rows) {
  if (uids.empty()) {
    return true;
  }
  StatementBatch batch;
  batch.AddKept(kCreateTable);
  const std::string ids = JsonList(uids);
  const bool has_indexes = handler_ != nullptr && handler_->HasOwnViews();
  if (domain_idx == kEveryDomain) {
    const Insertion& insertion = kAnywhere[has_indexes ? 1 : 0];
    batch.AddKept(Sql(insertion.users, ids));
    batch.AddKept(Sql(insertion.aliases, ids));
  } else {
    const Insertion& insertion = kInDomain[has_indexes ? 1 : 0];
    batch.AddKept(Sql(insertion.users, ids, domain_idx));
    batch.AddKept(Sql(insertion.aliases, ids, domain_idx));
  }
  if (has_rows) {
    batch.AddKept(Sql(kInsertRemovals, ids, domain_idx));
  }
  return _DomainDb().Run(batch, kInsertFailure);
}

bool Departure::AddGroups(int domain_idx, const std::vector<unsigned int>& gids) {
  if (gids.empty()) {
    return true;
  }
  StatementBatch batch;
  batch.AddKept(kCreateTable);
  if (domain_idx == kEveryDomain) {
    batch.AddWithIds(kInsertGroupsAnywhere, gids);
  } else {
    batch.AddWithIds(kInsertGroups, gids, domain_idx);
  }
  return _DomainDb().Run(batch, kInsertFailure);
}

bool Departure::AddDomains(const std::vector<int>& domain_idxs) {
  if (domain_idxs.empty()) {
    return true;
  }
  StatementBatch batch;
  batch.AddKept(kCreateTable);
  batch.AddWithIds(kInsertDomains, domain_idxs);
  return _DomainDb().Run(batch, kInsertFailure);
}

bool Departure::EndRemovals(int domain_idx, const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  if (!uids.empty()) {
    batch.AddWithIds(kDeleteRemovals, uids, domain_idx);
  }
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteUsers(int domain_idx, const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  AddDeletion(batch, kDeleteUsers, kDeleteUsersAnywhere, domain_idx, uids);
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteGroups(int domain_idx, const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  AddDeletion(batch, kDeleteGroups, kDeleteGroupsAnywhere, domain_idx, gids);
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteFinished(int domain_idx, const std::vector<unsigned int>& uids,
                               const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  batch.AddKept(Sql(kDeleteFinished, domain_idx, JsonList(uids), JsonList(gids)));
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteAll() {
  StatementBatch batch;
  batch.AddKept(kDeleteAll);
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteDomains(const std::vector<int>& domain_idxs) {
  bool exists = false;
  StatementBatch batch;
  batch.AddWithIds(kDeleteDomains, domain_idxs);
  return _DomainDb().GetExistsInSchema(kHasTable, exists) &&
         (!exists || _DomainDb().Run(batch, kDeleteFailure));
}

bool Departure::List(std::map<int, DomainDepartures>& departures) {
  bool exists = false;
  if (!_DomainDb().GetExistsInSchema(kHasTable, exists)) {
    return false;
  }
  const auto keep = [&departures](int domain_idx, const std::string& kind, unsigned int id,
                                  std::string&& name) {
    DomainDepartures& domain = departures[domain_idx];
    if (kind == "domain") {
      domain.is_domain_deleted = true;
      domain.domain_name = std::move(name);
    } else if (kind == "alias") {
      domain.aliases.push_back(std::move(name));
    } else if (kind == "removal") {
      domain.removals.push_back(id);
    } else {
      (kind == "user" ? domain.users : domain.groups).emplace_back(id, std::move(name));
    }
  };
  return !exists || _DomainDb().Query<Columns<Int, Text, Uid, Text>>(kList, keep);
}

}  // namespace MDOMAIN::DB
