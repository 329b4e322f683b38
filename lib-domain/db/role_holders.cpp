#include "lib-domain/db/role_holders.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "lib-domain/db/read_scope.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// A uid that is no number is no user's.
constexpr const char* kSelectOwnRoles =
    "SELECT uid, role FROM domain_user_role_table WHERE domain_idx = ?1";
constexpr const char* kSelectMembers =
    "SELECT member.gid, member.uid, granted.role FROM domain_group_role_table AS granted CROSS "
    "JOIN group_to_user_table AS member ON member.gid = granted.gid WHERE granted.domain_idx = ?1 "
    "AND granted.role IS NOT NULL";
constexpr const char* kSelectRemovals =
    "SELECT gid, uid FROM domain_group_removed_user_table WHERE domain_idx = ?1";
constexpr const char* kSelectUsers =
    "SELECT alias.uid FROM domain_user_alias_table AS alias CROSS JOIN user_table ON "
    "user_table.uid = alias.uid WHERE alias.domain_idx = ?1 ORDER BY alias.uid";

}  // namespace

bool RoleHolders::Read(const Database& db, int domain_idx) {
  holders_.clear();
  next_ = 0;
  numbers_.clear();
  are_texts_ = true;
  Holders members;
  Holders own;
  if (!_ReadMembers(db, domain_idx, members) || !_ReadOwn(db, domain_idx, own)) {
    return false;
  }
  _PutInOrder(members);
  _PutInOrder(own);
  // An own role hides those of groups, also one that is none.
  std::set_union(own.begin(), own.end(), members.begin(), members.end(),
                 std::back_inserter(holders_),
                 [](const auto& one, const auto& other) { return one.first < other.first; });
  holders_.erase(std::remove_if(holders_.begin(), holders_.end(),
                                [](const auto& holder) { return holder.second == kNone; }),
                 holders_.end());
  return true;
}

unsigned int RoleHolders::_NumberOf(const Cells& row, int column) {
  if (row.IsNull(column)) {
    return kNone;
  }
  are_texts_ = are_texts_ && row.IsText(column);
  const std::string_view role = row.View(column);
  auto known = numbers_.find(role);
  if (known == numbers_.end()) {
    known = numbers_.emplace(role, static_cast<unsigned int>(numbers_.size())).first;
  }
  return known->second;
}

bool RoleHolders::_ReadOwn(const Database& db, int domain_idx, Holders& own) {
  return db.TryForEachRow(Sql(kSelectOwnRoles, domain_idx), [&](const Cells& row) {
    if (row.IsInteger(0)) {
      own.emplace_back(row.Int64(0), _NumberOf(row, 1));
    }
  });
}

bool RoleHolders::_ReadMembers(const Database& db, int domain_idx, Holders& members) {
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
      members.emplace_back(membership.second, _NumberOf(row, 2));
    }
  });
}

// By uid, each once with the first of its roles, whose numbers become their places.
void RoleHolders::_PutInOrder(Holders& holders) const {
  std::vector<unsigned int> places(numbers_.size());
  unsigned int place = 0;
  for (const auto& [role, number] : numbers_) {
    places[number] = place++;
  }
  for (auto& [uid, role] : holders) {
    role = role == kNone ? kNone : places[role];
  }
  if (!std::is_sorted(holders.begin(), holders.end())) {
    std::sort(holders.begin(), holders.end());
  }
  holders.erase(
      std::unique(holders.begin(), holders.end(),
                  [](const auto& one, const auto& other) { return one.first == other.first; }),
      holders.end());
}

bool RoleHolders::Has(sqlite3_int64 uid) {
  while (next_ < holders_.size() && holders_[next_].first < uid) {
    ++next_;
  }
  return next_ < holders_.size() && holders_[next_].first == uid;
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
