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

// The ids are the first parameter of every statement.
#define LEAVING "(SELECT uid FROM user_table WHERE uid IN (SELECT value FROM json_each(?1)))"

// Where the leaving users are: in the given domain, or wherever rows say so.
constexpr const char* kInDomain =
    "SELECT %d AS domain_idx, uid FROM user_table WHERE uid IN " LEAVING;
constexpr const char* kAnywhere =
    "SELECT domain_idx, uid FROM domain_user_alias_table WHERE uid IN " LEAVING
    " UNION SELECT domain_idx, uid FROM domain_user_role_table WHERE uid IN " LEAVING
    " UNION SELECT domain_idx, uid FROM domain_group_role_table INNER JOIN group_to_user_table ON "
    "domain_group_role_table.gid = group_to_user_table.gid WHERE uid IN " LEAVING;
// Whether somebody who stays has the name, or the alias, in the domain. Where there are indexes for
// it each is looked up; else those of all who stay are gathered once.
struct Stayers {
  const char* have_name;
  const char* have_alias;
};
constexpr Stayers kLookedUp = {
    "EXISTS (SELECT 1 FROM user_table AS other CROSS JOIN domain_user_alias_table AS held ON "
    "held.domain_idx = place.domain_idx AND held.uid = other.uid WHERE other.user_name = "
    "leaver.user_name COLLATE NOCASE AND other.uid NOT IN " LEAVING ")",
    // An alias that is NULL is nobody else's, but counts only where nobody has another one.
    "EXISTS (SELECT 1 FROM domain_user_alias_table AS held WHERE held.account_alias = "
    "own.account_alias COLLATE NOCASE AND held.domain_idx = own.domain_idx AND held.uid NOT "
    "IN " LEAVING
    ") OR own.account_alias IS NULL AND EXISTS (SELECT 1 FROM domain_user_alias_table AS "
    "held WHERE held.domain_idx = own.domain_idx AND held.account_alias IS NOT NULL AND held.uid "
    "NOT IN " LEAVING ")"};
constexpr Stayers kGathered = {
    "(place.domain_idx, lower(leaver.user_name)) IN (SELECT domain_idx, lower(user_name) FROM "
    "domain_user_alias_table INNER JOIN user_table ON domain_user_alias_table.uid = "
    "user_table.uid WHERE user_table.uid NOT IN " LEAVING ")",
    "(own.domain_idx, lower(own.account_alias)) IN (SELECT domain_idx, lower(account_alias) FROM "
    "domain_user_alias_table WHERE account_alias IS NOT NULL AND uid NOT IN " LEAVING ")"};
// Whether somebody who stays has the name; the places.
constexpr const char* kInsertUsers =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT place.domain_idx, 'user', leaver.uid, "
    "CASE WHEN %s THEN '' ELSE coalesce(leaver.user_name, '') END FROM (%s) AS place INNER JOIN "
    "user_table AS "
    "leaver ON leaver.uid = place.uid";
// The condition on the domain; whether somebody who stays has the alias.
constexpr const char* kInsertAliases =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT domain_idx, 'alias', uid, "
    "coalesce(account_alias, '') FROM domain_user_alias_table AS own WHERE %s AND uid IN " LEAVING
    " AND NOT (%s)";
constexpr const char* kInsertRemovals =
    "INSERT OR IGNORE INTO mdomain_departure_table SELECT %d, 'removal', uid, '' FROM user_table "
    "WHERE uid IN " LEAVING;
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

// The condition on the domain, the ids.
constexpr const char* kDeleteUsers =
    "DELETE FROM mdomain_departure_table WHERE %s AND kind IN ('user', 'alias', 'removal') AND id "
    "IN (%q)";
constexpr const char* kDeleteRemovals =
    "DELETE FROM mdomain_departure_table WHERE domain_idx = %d AND kind = 'removal' AND id IN (%q)";
constexpr const char* kDeleteGroups =
    "DELETE FROM mdomain_departure_table WHERE %s AND kind = 'group' AND id IN (%q)";
constexpr const char* kDeleteDomains =
    "DELETE FROM mdomain_departure_table WHERE domain_idx IN (%q)";

// Of one domain: the ids of users, then those of groups.
#define FINISHED                                                                                \
  " mdomain_departure_table WHERE (domain_idx = %d AND (kind IN ('user', 'alias', 'removal') "  \
  "AND id IN (SELECT value FROM json_each(?1)) OR kind = 'group' AND id IN (SELECT value FROM " \
  "json_each(?2))))"
constexpr const char* kDeleteFinished = "DELETE FROM" FINISHED;
constexpr const char* kHasUnfinished = "SELECT EXISTS (SELECT 1 FROM" FINISHED " IS NOT TRUE)";
#undef FINISHED
constexpr const char* kDeleteAll = "DELETE FROM mdomain_departure_table";

constexpr const char* kInsertFailure = "fail to insert mdomain_departure_table";
constexpr const char* kDeleteFailure = "fail to delete mdomain_departure_table";

std::string DomainCondition(int domain_idx) {
  return domain_idx == Departure::kEveryDomain ? "1"
                                               : FormatStatement("domain_idx = %d", domain_idx);
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
  const std::string condition = DomainCondition(domain_idx);
  const std::string places =
      domain_idx == kEveryDomain ? kAnywhere : FormatStatement(kInDomain, domain_idx);
  StatementBatch batch;
  batch.Add(kCreateTable);
  const std::string ids = JsonList(uids);
  const bool has_indexes = handler_ != nullptr && handler_->HasOwnViews();
  const Stayers& stayers = has_indexes ? kLookedUp : kGathered;
  batch.AddBound(FormatStatement(kInsertUsers, stayers.have_name, places.c_str()), {ids});
  batch.AddBound(FormatStatement(kInsertAliases, condition.c_str(), stayers.have_alias), {ids});
  if (has_rows) {
    batch.AddBound(FormatStatement(kInsertRemovals, domain_idx), {ids});
  }
  return _DomainDb().Run(batch, kInsertFailure);
}

bool Departure::AddGroups(int domain_idx, const std::vector<unsigned int>& gids) {
  if (gids.empty()) {
    return true;
  }
  StatementBatch batch;
  batch.Add(kCreateTable);
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
  batch.Add(kCreateTable);
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
  if (!uids.empty()) {
    batch.AddWithIds(kDeleteUsers, uids, DomainCondition(domain_idx).c_str());
  }
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteGroups(int domain_idx, const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  if (!gids.empty()) {
    batch.AddWithIds(kDeleteGroups, gids, DomainCondition(domain_idx).c_str());
  }
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteFinished(int domain_idx, const std::vector<unsigned int>& uids,
                               const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  const std::vector<std::string> ids = {JsonList(uids), JsonList(gids)};
  // All rows at once go without a look at each.
  batch.AddEither(FormatStatement(kHasUnfinished, domain_idx),
                  FormatStatement(kDeleteFinished, domain_idx), kDeleteAll, ids);
  return _DomainDb().Run(batch, kDeleteFailure);
}

bool Departure::DeleteDomains(const std::vector<int>& domain_idxs) {
  bool exists = false;
  StatementBatch batch;
  batch.AddWithIds(kDeleteDomains, domain_idxs);
  return _DomainDb().GetExists(kHasTable, exists) &&
         (!exists || _DomainDb().Run(batch, kDeleteFailure));
}

bool Departure::List(std::map<int, DomainDepartures>& departures) {
  bool exists = false;
  if (!_DomainDb().GetExists(kHasTable, exists)) {
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
