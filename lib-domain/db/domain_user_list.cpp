// The users of a domain one after the other: their number, the uids of a page by an index, and
// whole listings.
#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>
#include <tuple>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/role_holders.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

// Of the users with an alias whose flag is not 0, those whose highest flag is not 0, in the order
// of their flags: first (1) before all others, then (0) behind them.
constexpr const char* kSelectFlagOrder =
    "SELECT uid, coalesce(max(is_duplicated) > 0, 0) FROM domain_user_alias_table WHERE domain_idx "
    "= %d AND uid IN (SELECT uid FROM domain_user_alias_table WHERE domain_idx = %d AND "
    "(is_duplicated <> 0 OR is_duplicated IS NULL)) AND +uid IN (SELECT uid FROM user_table) GROUP "
    "BY uid HAVING max(is_duplicated) IS NOT "
    "0 ORDER BY max(is_duplicated) DESC, uid";
constexpr size_t kUsersPerRead = 1000;
constexpr const char* kSelectNames = "SELECT uid, user_name FROM user_table";
// Those of one user in the order in which the listing of all domains has them.
constexpr const char* kSelectRowsOfUsers =
    "SELECT domain_idx, uid, user_name, account_alias, role, is_duplicated, role IS NOT NULL FROM "
    "domain_user_view WHERE uid IN (%s) AND +domain_idx IN (SELECT domain_idx FROM domain_table) "
    "ORDER BY is_duplicated DESC, domain_idx, uid";
// The first row of each counts. A flag or a text that the order of texts and of 0 and 1 does not
// put in its place is odd (2).
#define USER_TEXTS(text)                                                                   \
  "SELECT alias.uid, CASE WHEN typeof(" text                                               \
  ") <> 'text' THEN 2 WHEN is_duplicated = 0 THEN "                                        \
  "0 WHEN is_duplicated = 1 THEN 1 ELSE 2 END, " text                                      \
  " FROM domain_user_alias_table AS "                                                      \
  "alias CROSS JOIN user_table ON user_table.uid = alias.uid WHERE alias.domain_idx = ?1 " \
  "ORDER BY alias.uid, alias.rowid"
constexpr const char* kSelectUserNames = USER_TEXTS("user_name");
constexpr const char* kSelectUserAliases = USER_TEXTS("account_alias");
constexpr const char* kSelectUserFlags = USER_TEXTS("''");
#undef USER_TEXTS
constexpr const char* kSelectDuplicated =
    "SELECT DISTINCT account_alias COLLATE NOCASE AS email FROM domain_user_alias_table WHERE "
    "is_duplicated = 1 AND domain_idx = %d";
// "> 0" is what makes the index of flagged aliases fit. The limit keeps the order of the inner
// statement, in which the other one finds the rows.
constexpr const char* kSelectDuplicatedByIndex =
    "SELECT DISTINCT account_alias COLLATE NOCASE AS email FROM (SELECT account_alias FROM "
    "domain_user_alias_table WHERE is_duplicated = 1 AND is_duplicated > 0 AND domain_idx = %d "
    "ORDER BY uid, rowid LIMIT -1)";
// The same rows in no order, with what puts them in it. "odd" is what is compared as no text of
// letters.
constexpr const char* kSelectFlagged =
    "SELECT account_alias, uid, rowid, typeof(account_alias) <> 'text' OR instr(account_alias, "
    "char(0)) > 0 AS odd FROM domain_user_alias_table WHERE is_duplicated = 1 AND is_duplicated > "
    "0 AND domain_idx = ?1";
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

// The users by the bytes of their names or aliases, which stand in one text: a million strings
// would take three times as much.
class UsersByName {
 public:
  void Add(unsigned int uid, std::string_view name) {
    users_.push_back({names_.size(), static_cast<unsigned int>(name.size()), uid});
    names_ += name;
  }
  size_t Size() const { return users_.size(); }
  // Appends the uids from `begin` to before `end` in the order of the names, those of one name
  // ascending; nothing where there are none. Ends the use.
  void Cut(size_t begin, size_t end, bool is_descending, std::vector<unsigned int>& uids) {
    end = std::min(end, users_.size());
    if (begin >= end) {
      return;
    }
    const auto is_before = [this, is_descending](const Named& one, const Named& other) {
      const int order = _NameOf(one).compare(_NameOf(other));
      return order == 0 ? one.uid < other.uid : (order < 0) != is_descending;
    };
    const auto first = users_.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = users_.begin() + static_cast<std::ptrdiff_t>(end);
    std::nth_element(users_.begin(), first, users_.end(), is_before);
    std::partial_sort(first, last, users_.end(), is_before);
    std::for_each(first, last, [&uids](const Named& user) { uids.push_back(user.uid); });
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

// Calls `use` with the uid and the row of the first alias of each user who has a role. False where
// the statement has to answer.
template <typename Use>
bool ForEachFirstRow(const Database& db, const char* statement, int domain_idx,
                     RoleHolders& holders, const Use& use) {
  bool is_plain = true;
  bool is_first = true;
  unsigned int last = 0;
  const auto keep = [&](const Cells& row) {
    const sqlite3_int64 uid = row.Int64(0);
    is_plain = is_plain && uid >= 0 && uid <= std::numeric_limits<unsigned int>::max();
    if (is_first || static_cast<unsigned int>(uid) != last) {
      is_first = false;
      last = static_cast<unsigned int>(uid);
      if (holders.Has(uid)) {
        is_plain = is_plain && row.Int(1) <= 1;
        use(last, row);
      }
    }
  };
  return holders.Read(db, domain_idx) && db.TryForEachRow(Sql(statement, domain_idx), keep) &&
         is_plain;
}

// Sorted and told apart here: a tenth of the rows' own cost. False, with nothing added, where the
// statement has to answer.
bool AppendFlagged(const Database& db, int domain_idx, std::vector<std::string>& aliases) {
  using Flagged = std::tuple<sqlite3_int64, sqlite3_int64, std::string>;
  std::vector<Flagged> rows;
  bool is_plain = true;
  const auto keep = [&](const Cells& row) {
    is_plain = is_plain && row.IsInteger(1) && row.Int(3) == 0;
    rows.emplace_back(row.Int64(1), row.Int64(2), row.View(0));
  };
  if (!db.TryForEachRow(Sql(kSelectFlagged, domain_idx), keep) || !is_plain) {
    return false;
  }
  std::sort(rows.begin(), rows.end());
  std::unordered_set<std::string> seen;
  for (const Flagged& row : rows) {
    if (seen.insert(BASE::ToLowerAscii(std::get<2>(row))).second) {
      aliases.push_back(std::get<2>(row));
    }
  }
  return true;
}

}  // namespace

bool DomainUser::ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails) {
  const bool has_own_views = handler_ != nullptr && handler_->HasOwnViews();
  return (has_own_views && AppendFlagged(_DomainDb(), domain_idx, emails)) ||
         _DomainDb().Append<Columns<Text>>(
             Sql(has_own_views ? kSelectDuplicatedByIndex : kSelectDuplicated, domain_idx), emails);
}

bool DomainUser::GetDomainUsersCount(DomainDBFilter& filter, int& count) {
  const bool has_own_views = handler_ != nullptr && handler_->HasOwnViews();
  if (has_own_views && filter.IsForWholeDomain() &&
      CountWithRole(handler_, filter.GetDomainIdxs().front(), count)) {
    return true;
  }
  if (has_own_views && filter.IsSearched() &&
      _DomainDb().GetRememberedSize(_WholeOf(filter).ComposeDistinctUIDQueryCmd(), count)) {
    return true;
  }
  return _DomainDb().GetCount(filter, has_own_views ? kUserWithRoleView : kUserView,
                              "count(distinct uid)", count);
}

// In the order of the index, in which a page is full early. The few that do not stand there in that
// order are found by an index of their own.
bool DomainUser::_WalkUIDs(const DomainDBFilter& filter, std::vector<unsigned int>& uids,
                           bool& are_plain) {
  const ReadScope of_one_moment(handler_);
  std::vector<unsigned int> found;
  Page page(filter, found);
  const auto add = [&](sqlite3_int64 uid) {
    are_plain = are_plain && IsUid(uid);
    page.Add(static_cast<unsigned int>(uid));
    return are_plain && !page.IsFull();
  };
  if (!_DomainDb().QueryUntil<Columns<Number>>(filter.ComposeUIDsInFrontCmd(), add)) {
    return false;
  }
  bool has_any_behind = false;
  bool is_first = true;
  sqlite3_int64 last = 0;
  const auto add_between = [&](sqlite3_int64 uid, int place) {
    bool is_wanted = true;
    if (is_first || uid != last) {
      is_wanted = place != kBetween || add(uid);
      has_any_behind = has_any_behind || place == kBehind;
      is_first = false;
      last = uid;
    }
    return is_wanted;
  };
  const auto is_enough = [&] { return !are_plain || page.IsFull(); };
  if (!is_enough() &&
      !_DomainDb().QueryUntil<Columns<Number, Int>>(filter.ComposeUIDWalkCmd(), add_between)) {
    return false;
  }
  if (has_any_behind && !is_enough() &&
      !_DomainDb().QueryUntil<Columns<Number>>(filter.ComposeUIDsBehindCmd(), add)) {
    return false;
  }
  if (are_plain) {
    uids.insert(uids.end(), found.begin(), found.end());
  }
  return are_plain;
}

bool DomainUser::_CutWhole(const DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  return (filter.IsForWholeDomainBy("user_name") && _CutByText(filter, kSelectUserNames, uids)) ||
         (filter.IsForWholeDomainBy("account_alias") &&
          _CutByText(filter, kSelectUserAliases, uids)) ||
         (filter.IsForWholeDomainBy("role") && _CutByRole(filter, uids));
}

// What a page needs of each user is read in the order in which it is stored; of the texts only
// those of the page are sorted. False, with nothing added, where the statement has to answer.
bool DomainUser::_CutByText(const DomainDBFilter& filter, const char* texts,
                            std::vector<unsigned int>& uids) {
  const ReadScope of_one_moment(handler_);
  RoleHolders holders;
  UsersByName in_front;
  UsersByName others;
  const auto keep = [&](unsigned int uid, const Cells& row) {
    (row.Int(1) == 1 ? in_front : others).Add(uid, row.View(2));
  };
  if (!ForEachFirstRow(_DomainDb(), texts, filter.GetDomainIdxs().front(), holders, keep)) {
    return false;
  }
  const size_t all = in_front.Size() + others.Size();
  const size_t begin = std::min<size_t>(all, std::max(filter.GetOffset(), 0));
  const size_t end = filter.GetLimit() < 0 ? all : std::min<size_t>(all, begin + filter.GetLimit());
  const size_t border = in_front.Size();
  in_front.Cut(begin, end, filter.IsDescending(), uids);
  others.Cut(std::max(begin, border) - border, std::max(end, border) - border,
             filter.IsDescending(), uids);
  return true;
}

// The same by roles, of which there are few: nobody is sorted.
bool DomainUser::_CutByRole(const DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  const ReadScope of_one_moment(handler_);
  RoleHolders holders;
  std::map<std::pair<bool, long long>, std::vector<unsigned int>> by_place;
  const long long sign = filter.IsDescending() ? -1 : 1;
  const auto keep = [&](unsigned int uid, const Cells& row) {
    by_place[{row.Int(1) != 1, sign * holders.RolePlace()}].push_back(uid);
  };
  if (!ForEachFirstRow(_DomainDb(), kSelectUserFlags, filter.GetDomainIdxs().front(), holders,
                       keep) ||
      !holders.AreTexts()) {
    return false;
  }
  Page page(filter, uids);
  for (const auto& [place, of_role] : by_place) {
    for (auto uid = of_role.begin(); uid != of_role.end() && !page.IsFull(); ++uid) {
      page.Add(*uid);
    }
  }
  return true;
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
