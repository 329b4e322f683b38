// The users of a domain one after the other: their number, the uids of a page by an index, and
// whole listings.
#include <algorithm>
#include <iterator>
#include <map>
#include <string_view>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

// Of the users with an alias whose flag is not 0, those whose highest flag is not 0, in the order
// of their flags: first (1) before all others, then (0) behind them.
constexpr const char* kSelectFlagOrder =
    "SELECT uid, coalesce(max(is_duplicated) > 0, 0) FROM domain_user_alias_table WHERE domain_idx "
    "= %d AND uid IN (SELECT uid FROM domain_user_alias_table WHERE domain_idx = %d AND "
    "(is_duplicated <> 0 OR is_duplicated IS NULL)) GROUP BY uid HAVING max(is_duplicated) IS NOT "
    "0 ORDER BY max(is_duplicated) DESC, uid";
constexpr size_t kUsersPerRead = 1000;
constexpr const char* kSelectNames = "SELECT uid, user_name FROM user_table";
// Those of one user in the order in which the listing of all domains has them.
constexpr const char* kSelectRowsOfUsers =
    "SELECT domain_idx, uid, user_name, account_alias, role, is_duplicated, role IS NOT NULL FROM "
    "domain_user_view WHERE uid IN (%s) AND +domain_idx IN (SELECT domain_idx FROM domain_table) "
    "ORDER BY is_duplicated DESC, domain_idx, uid";
// The users of one domain who have a role, as domain_user_with_role_view has them. Who has one is
// gathered once: fewer look-ups than to ask for each.
constexpr const char* kCountWithRole =
    "SELECT count(*) FROM (SELECT DISTINCT uid FROM domain_user_alias_table WHERE domain_idx = ?1) "
    "AS alias CROSS JOIN user_table ON user_table.uid = alias.uid WHERE alias.uid IN (SELECT uid "
    "FROM domain_user_role_table WHERE domain_idx = ?1 AND role IS NOT NULL UNION ALL SELECT "
    "member.uid FROM domain_group_role_table AS granted CROSS JOIN group_to_user_table AS member "
    "ON member.gid = granted.gid WHERE granted.domain_idx = ?1 AND granted.role IS NOT NULL AND "
    "NOT EXISTS (SELECT 1 FROM domain_group_removed_user_table AS removal WHERE removal.domain_idx "
    "= ?1 AND removal.gid = member.gid AND removal.uid = member.uid) AND NOT EXISTS (SELECT 1 FROM "
    "domain_user_role_table AS own WHERE own.domain_idx = ?1 AND own.uid = member.uid))";
// Where ComposeUIDWalkCmd puts a row.
constexpr int kBetween = 0;
constexpr int kBehind = 2;

// Cuts a page out of what is put into it.
class Page {
 public:
  Page(const DomainDBFilter& filter, std::vector<unsigned int>& uids)
      : skipped_(filter.GetOffset()), left_(filter.GetLimit()), uids_(uids) {}

  void Add(unsigned int uid) {
    if (skipped_ > 0) {
      --skipped_;
    } else if (left_ != 0) {
      uids_.push_back(uid);
      --left_;
    }
  }
  bool IsFull() const { return left_ == 0; }  // never without a limit, which is negative

 private:
  int skipped_;
  long long left_;
  std::vector<unsigned int>& uids_;
};

// The users by the bytes of their names, which stand in one text: a million strings would take
// three times as much.
class UsersByName {
 public:
  void Add(unsigned int uid, const std::string& name) {
    users_.push_back({names_.size(), static_cast<unsigned int>(name.size()), uid});
    names_ += name;
  }
  // The uids, and for each whether it has the name of the one before it. Ends the use.
  void Take(std::vector<unsigned int>& uids, std::vector<bool>& are_same) {
    std::sort(users_.begin(), users_.end(), [this](const Named& one, const Named& other) {
      return std::pair(_NameOf(one), one.uid) < std::pair(_NameOf(other), other.uid);
    });
    uids.reserve(users_.size());
    are_same.reserve(users_.size());
    for (size_t i = 0; i < users_.size(); ++i) {
      uids.push_back(users_[i].uid);
      are_same.push_back(i > 0 && _NameOf(users_[i]) == _NameOf(users_[i - 1]));
    }
  }

 private:
  struct Named {
    size_t begin;
    unsigned int length;
    unsigned int uid;
  };
  std::string_view _NameOf(const Named& user) const {
    return std::string_view(names_).substr(user.begin, user.length);
  }

  std::string names_;
  std::vector<Named> users_;
};

}  // namespace

bool DomainUser::GetDomainUsersCount(DomainDBFilter& filter, int& count) {
  const bool has_own_views = handler_ != nullptr && handler_->HasOwnViews();
  if (has_own_views && filter.IsForWholeDomain()) {
    return _DomainDb().Query<Columns<Int>>(Sql(kCountWithRole, filter.GetDomainIdxs().front()),
                                           [&count](int users) { count = users; });
  }
  return _DomainDb().GetCount(filter, has_own_views ? kUserWithRoleView : kUserView,
                              "count(distinct uid)", count);
}

// In the order of the index, in which a page is full early. The few that do not stand there in that
// order are found by an index of their own.
bool DomainUser::_WalkUIDs(const DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  const ReadScope of_one_moment(handler_);
  Page page(filter, uids);
  const auto add = [&page](unsigned int uid) {
    page.Add(uid);
    return !page.IsFull();
  };
  if (!_DomainDb().QueryUntil<Columns<Uid>>(filter.ComposeUIDsInFrontCmd(), add)) {
    return false;
  }
  bool has_any_behind = false;
  bool is_first = true;
  unsigned int last = 0;
  const auto add_between = [&](unsigned int uid, int place) {
    if (is_first || uid != last) {
      if (place == kBetween) {
        page.Add(uid);
      }
      has_any_behind = has_any_behind || place == kBehind;
      is_first = false;
      last = uid;
    }
    return !page.IsFull();
  };
  if (page.IsFull()) {
    return true;
  }
  if (!_DomainDb().QueryUntil<Columns<Uid, Int>>(filter.ComposeUIDWalkCmd(), add_between)) {
    return false;
  }
  return !has_any_behind || page.IsFull() ||
         _DomainDb().QueryUntil<Columns<Uid>>(filter.ComposeUIDsBehindCmd(), add);
}

bool DomainUser::ForEachDomainUser(DomainDBFilter& filter, const UserVisitor& use) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  if (!handler_->HasOwnViews() || !filter.IsForOneDomainUnsorted()) {
    std::vector<RECORD::DomainUser> users;
    if (!ListDomainUsers(filter, users, true)) {
      return false;
    }
    std::for_each(users.begin(), users.end(), use);
    return true;
  }
  const ReadScope of_one_moment(handler_);
  DomainDBFilter own = filter;
  own.SetTableName("domain_user_view");
  std::vector<unsigned int> uids;
  if (!GetDistinctUIDs(own, uids)) {
    LOG_ERROR("Failed to _GetDistinctUIDs");
    return false;
  }
  if (!_OrderByFlags(own.GetDomainIdxs().front(), uids)) {
    return false;
  }
  for (size_t begin = 0; begin < uids.size(); begin += kUsersPerRead) {
    const size_t end = std::min(begin + kUsersPerRead, uids.size());
    std::vector<RECORD::DomainUser> users;
    if (!_AppendUsers(own, {&uids[begin], &uids[begin] + (end - begin)}, true, users)) {
      return false;
    }
    std::for_each(users.begin(), users.end(), use);
  }
  return true;
}

bool DomainUser::ForEachName(const NameVisitor& use) {
  const ReadScope of_one_moment(handler_);
  std::vector<unsigned int> uids;
  std::vector<bool> are_same;
  {
    UsersByName users;
    if (!_DomainDb().Query<Columns<Uid, Text>>(
            kSelectNames,
            [&users](unsigned int uid, const std::string& name) { users.Add(uid, name); })) {
      return false;
    }
    users.Take(uids, are_same);
  }
  size_t end = 0;
  for (size_t begin = 0; begin < uids.size(); begin = end) {
    end = std::min(begin + kUsersPerRead, uids.size());
    while (end < uids.size() && are_same[end]) {
      ++end;
    }
    std::vector<RECORD::DomainUser> users;
    if (!_AppendNamed({&uids[begin], &uids[begin] + (end - begin)}, users)) {
      return false;
    }
    std::map<std::string, std::vector<RECORD::DomainUser>> by_name;
    for (RECORD::DomainUser& user : users) {
      by_name[user.GetUserName()].push_back(std::move(user));
    }
    for (auto& [name, of_name] : by_name) {
      use(name, of_name);
    }
  }
  return true;
}

// Whoever of them has a role in any domain.
bool DomainUser::_AppendNamed(const std::vector<unsigned int>& uids,
                              std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> rows;
  std::unordered_set<unsigned int> with_role;
  const auto keep = [&](int domain_idx, unsigned int uid, std::string&& name, std::string&& alias,
                        std::string&& role, bool duplicated, bool has_role) {
    rows.emplace_back(domain_idx, uid, std::move(name),
                      std::vector<std::pair<std::string, bool>>{{std::move(alias), duplicated}},
                      std::move(role));
    if (has_role) {
      with_role.insert(uid);
    }
  };
  if (!_DomainDb().Query<Columns<Int, Uid, Text, Text, Text, Flag, Flag>>(
          FormatStatement(kSelectRowsOfUsers, BASE::Join(uids, ",").c_str()), keep)) {
    return false;
  }
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&with_role](const RECORD::DomainUser& row) {
                              return with_role.count(row.GetUID()) == 0;
                            }),
             rows.end());
  _MergeDomainUsers(rows, users);
  return true;
}

// The order in which _AppendUsers gives all of them at once: by their highest flags, then by uid.
bool DomainUser::_OrderByFlags(int domain_idx, std::vector<unsigned int>& uids) {
  std::vector<unsigned int> in_front;
  std::vector<unsigned int> behind;
  if (!_DomainDb().Query<Columns<Uid, Flag>>(Sql(kSelectFlagOrder, domain_idx, domain_idx),
                                             [&](unsigned int uid, bool is_flagged) {
                                               (is_flagged ? in_front : behind).push_back(uid);
                                             })) {
    return false;
  }
  std::sort(uids.begin(), uids.end());
  if (in_front.empty() && behind.empty()) {
    return true;
  }
  std::vector<unsigned int> elsewhere = in_front;
  elsewhere.insert(elsewhere.end(), behind.begin(), behind.end());
  std::sort(elsewhere.begin(), elsewhere.end());
  std::vector<unsigned int> ordered;
  ordered.reserve(uids.size());
  const auto append = [&ordered](const std::vector<unsigned int>& from, bool wanted,
                                 const std::vector<unsigned int>& known) {
    std::copy_if(from.begin(), from.end(), std::back_inserter(ordered), [&](unsigned int uid) {
      return std::binary_search(known.begin(), known.end(), uid) == wanted;
    });
  };
  append(in_front, true, uids);
  append(uids, false, elsewhere);
  append(behind, true, uids);
  uids.swap(ordered);
  return true;
}

}  // namespace MDOMAIN::DB
