// The statements of accounts that are still to join domains.
#include "lib-domain/db/joining.h"

#include <algorithm>
#include <vector>

#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

constexpr const char* kFailure = "fail to write joining_user_table, joining_group_table";

// The domain of a user's row becomes NULL when it is deleted: the first domain of an installation
// is, when creating it failed, and its users are still to join the one that is created next.
constexpr const char* kTables =
    "CREATE TABLE IF NOT EXISTS joining_user_table(domain_idx INTEGER REFERENCES "
    "domain_table(domain_idx) ON DELETE SET NULL ON UPDATE CASCADE, uid INTEGER REFERENCES "
    "user_table(uid) ON DELETE CASCADE ON UPDATE CASCADE, PRIMARY KEY(domain_idx, uid));"
    "CREATE TABLE IF NOT EXISTS joining_group_table(domain_idx INTEGER REFERENCES "
    "domain_table(domain_idx) ON DELETE CASCADE ON UPDATE CASCADE, gid INTEGER REFERENCES "
    "group_table(gid) ON DELETE CASCADE ON UPDATE CASCADE, PRIMARY KEY(domain_idx, gid));";
constexpr const char* kHasTables =
    "SELECT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = "
    "'joining_group_table')";
constexpr const char* kSelectUsers =
    "SELECT DISTINCT coalesce(domain_idx, 0), uid FROM joining_user_table";
constexpr const char* kSelectGroups = "SELECT domain_idx, gid FROM joining_group_table";
constexpr const char* kDropTables = "DROP TABLE joining_user_table;DROP TABLE joining_group_table";

// From the mirror, so that no row names what is not there. The domain 0 gives NULL.
constexpr const char* kInsertUsers =
    "INSERT OR IGNORE INTO joining_user_table SELECT nullif(%d, 0), uid FROM user_table WHERE uid "
    "IN (%q)";
constexpr const char* kInsertGroups =
    "INSERT OR IGNORE INTO joining_group_table SELECT %d, gid FROM group_table WHERE "
    "gid IN (%q)";

bool IsEmpty(const IdsByDomain& ids_by_domain) {
  return std::all_of(ids_by_domain.begin(), ids_by_domain.end(),
                     [](const auto& domain) { return domain.second.empty(); });
}

void AddInserts(const char* format, const IdsByDomain& ids_by_domain, StatementBatch& batch) {
  for (const auto& [domain_idx, ids] : ids_by_domain) {
    batch.AddWithIds(format, std::vector<unsigned int>(ids.begin(), ids.end()), domain_idx);
  }
}

// No table is made for nothing.
void AddRows(const IdsByDomain& uids, const IdsByDomain& gids, StatementBatch& batch) {
  if (IsEmpty(uids) && IsEmpty(gids)) {
    return;
  }
  batch.Add(kTables);
  AddInserts(kInsertUsers, uids, batch);
  AddInserts(kInsertGroups, gids, batch);
}

}  // namespace

Joining::Joining()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database Joining::_DomainDb() const {
  return {handler_, status_};
}

bool Joining::_HasTables(bool& has_tables) {
  return _DomainDb().GetExistsInSchema(kHasTables, has_tables);
}

bool Joining::List(IdsByDomain& uids, IdsByDomain& gids) {
  bool has_tables = false;
  if (!_HasTables(has_tables)) {
    return false;
  }
  if (!has_tables) {
    return true;
  }
  const auto keep_in = [](IdsByDomain& ids) {
    return [&ids](int domain_idx, unsigned int id) { ids[domain_idx].insert(id); };
  };
  return _DomainDb().Query<Columns<Int, Uid>>(kSelectUsers, keep_in(uids)) &&
         _DomainDb().Query<Columns<Int, Gid>>(kSelectGroups, keep_in(gids));
}

bool Joining::Add(const IdsByDomain& uids, const IdsByDomain& gids) {
  StatementBatch batch;
  AddRows(uids, gids, batch);
  return _DomainDb().Run(batch, kFailure);
}

bool Joining::Set(const IdsByDomain& uids, const IdsByDomain& gids) {
  bool has_tables = false;
  if (!_HasTables(has_tables)) {
    return false;
  }
  StatementBatch batch;
  if (has_tables) {
    batch.Add(kDropTables);
  }
  AddRows(uids, gids, batch);
  return _DomainDb().Run(batch, kFailure);
}

}  // namespace MDOMAIN::DB
