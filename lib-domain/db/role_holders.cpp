#include "lib-domain/db/role_holders.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "lib-domain/db/read_scope.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

using Uids = std::vector<sqlite3_int64>;

// A uid that is no number is no user's.
constexpr const char* kSelectOwnRoles =
    "SELECT uid, role IS NOT NULL FROM domain_user_role_table WHERE domain_idx = ?1";
constexpr const char* kSelectMembers =
    "SELECT member.gid, member.uid FROM domain_group_role_table AS granted CROSS JOIN "
    "group_to_user_table AS member ON member.gid = granted.gid WHERE granted.domain_idx = ?1 AND "
    "granted.role IS NOT NULL";
constexpr const char* kSelectRemovals =
    "SELECT gid, uid FROM domain_group_removed_user_table WHERE domain_idx = ?1";
constexpr const char* kSelectUsers =
    "SELECT alias.uid FROM domain_user_alias_table AS alias CROSS JOIN user_table ON "
    "user_table.uid = alias.uid WHERE alias.domain_idx = ?1 ORDER BY alias.uid";

void SortOnce(Uids& uids) {
  if (!std::is_sorted(uids.begin(), uids.end())) {
    std::sort(uids.begin(), uids.end());
  }
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
}

}  // namespace

bool RoleHolders::Read(const Database& db, int domain_idx) {
  uids_.clear();
  next_ = 0;
  if (!_ReadMembers(db, domain_idx)) {
    return false;
  }
  SortOnce(uids_);
  const Uids members = std::move(uids_);
  uids_.clear();
  // An own role hides those of groups, also one that is none.
  Uids without;
  if (!_ReadOwn(db, domain_idx, without)) {
    return false;
  }
  SortOnce(uids_);
  SortOnce(without);
  Uids reached;
  std::set_difference(members.begin(), members.end(), without.begin(), without.end(),
                      std::back_inserter(reached));
  const Uids own = std::move(uids_);
  uids_.clear();
  std::set_union(own.begin(), own.end(), reached.begin(), reached.end(), std::back_inserter(uids_));
  return true;
}

bool RoleHolders::_ReadOwn(const Database& db, int domain_idx, Uids& without) {
  return db.TryForEachRow(Sql(kSelectOwnRoles, domain_idx), [&](const Cells& row) {
    if (row.IsInteger(0)) {
      (row.Int(1) == 1 ? uids_ : without).push_back(row.Int64(0));
    }
  });
}

bool RoleHolders::_ReadMembers(const Database& db, int domain_idx) {
  using Membership = std::pair<sqlite3_int64, sqlite3_int64>;
  std::vector<Membership> removals;
  if (!db.TryForEachRow(Sql(kSelectRemovals, domain_idx), [&removals](const Cells& row) {
        removals.emplace_back(row.Int64(0), row.Int64(1));
      })) {
    return false;
  }
  std::sort(removals.begin(), removals.end());
  return db.TryForEachRow(Sql(kSelectMembers, domain_idx), [&](const Cells& row) {
    const Membership membership(row.Int64(0), row.Int64(1));
    if (row.IsInteger(1) &&
        (removals.empty() || !std::binary_search(removals.begin(), removals.end(), membership))) {
      uids_.push_back(membership.second);
    }
  });
}

bool RoleHolders::Has(sqlite3_int64 uid) {
  while (next_ < uids_.size() && uids_[next_] < uid) {
    ++next_;
  }
  return next_ < uids_.size() && uids_[next_] == uid;
}

namespace {

bool CountNow(DomainDBHandler* handler, int domain_idx, int& count) {
  const ReadScope of_one_moment(handler);
  const Database db(handler, 0);
  RoleHolders holders;
  int counted = 0;
  bool is_first = true;
  sqlite3_int64 last = 0;
  const auto add = [&](const Cells& row) {
    const sqlite3_int64 uid = row.Int64(0);
    if (is_first || uid != last) {
      counted += holders.Has(uid) ? 1 : 0;
    }
    is_first = false;
    last = uid;
  };
  if (!holders.Read(db, domain_idx) || !db.TryForEachRow(Sql(kSelectUsers, domain_idx), add)) {
    return false;
  }
  count = counted;
  return true;
}

}  // namespace

bool CountWithRole(DomainDBHandler* handler, int domain_idx, int& count) {
  return Database(handler, 0)
      .RememberCount(
          std::to_string(domain_idx),
          [&](int& counted) { return CountNow(handler, domain_idx, counted); }, count);
}

}  // namespace MDOMAIN::DB::INTERNAL
