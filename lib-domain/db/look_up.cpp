// The statements give what an index finds, which may be more than was asked for; names and aliases
// are compared again where that matters.
#include "lib-domain/db/look_up.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "lib-domain/base/text.h"
#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/statement.h"
#include "lib-domain/db/user.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// Up to here looking up is always cheap; beyond, a lookup costs what reading some rows costs.
constexpr size_t kFew = 2000;
constexpr size_t kRowsPerLookUp = 4;
// For fewer nobody asks how many rows there are.
constexpr size_t kFewLookUps = 4;

constexpr const char* kSelectLastAlias =
    "SELECT coalesce(max(rowid), 0) FROM domain_user_alias_table";

// Of a list of texts. CROSS JOIN: the list is walked through, and each value is looked up.
#define WANTED "WITH wanted(name) AS (SELECT value FROM json_each('%q')) SELECT "
// A short name is what stands behind the first backslash, else before the last "@". Between "@" and
// "[" are the big letters alone, which stand further on without letter case. Where no name has a
// domain, an index tells so at once, and nothing is walked through.
#define IF_ANY_HAS(sign, full_name, table) \
  " WHERE EXISTS (SELECT 1 FROM " table " WHERE instr(" full_name ", '" sign "') > 0)"
#define BEFORE_AT(full_name, table)                           \
  full_name " >= (name || '@') COLLATE NOCASE AND " full_name \
            " < (name || '[') COLLATE NOCASE" IF_ANY_HAS("@", full_name, table)
#define BEHIND_BACKSLASH(full_name, table)                  \
  "substr(" full_name ", instr(" full_name                  \
  ", '\\') + 1) = name COLLATE NOCASE AND instr(" full_name \
  ", '\\') > 0" IF_ANY_HAS("\\", full_name, table)
#define WANTED_IDS(id, table) "SELECT " id " FROM wanted CROSS JOIN " table " ON "
#define NAMED(id, full_name, table)                                           \
  WANTED "* FROM " table " WHERE " id " IN (" WANTED_IDS(id, table) full_name \
      " = name COLLATE NOCASE UNION ALL " WANTED_IDS(id, table)               \
          BEFORE_AT(full_name, table) " UNION ALL " WANTED_IDS(id, table)     \
              BEHIND_BACKSLASH(full_name, table) ") ORDER BY " id
constexpr const char* kSelectNamedUsers = NAMED("uid", "user_name", "user_table");
constexpr const char* kSelectNamedGroups = NAMED("gid", "group_name", "group_table");
#undef NAMED
#undef WANTED_IDS
#undef BEHIND_BACKSLASH
#undef BEFORE_AT
#undef IF_ANY_HAS
// No listing has the aliases of others, whose uids may be none.
#define OF_MIRRORED " AND +uid IN (SELECT uid FROM user_table)"
constexpr const char* kSelectHolders = WANTED
    "uid FROM wanted CROSS JOIN domain_user_alias_table ON account_alias = name COLLATE NOCASE AND "
    "domain_idx = %d" OF_MIRRORED;
#undef WANTED
// Counted no further than it matters.
constexpr const char* kCountUsers = "SELECT count(*) FROM (SELECT 1 FROM user_table LIMIT %d)";
constexpr const char* kCountAliases =
    "SELECT count(*) FROM (SELECT 1 FROM domain_user_alias_table WHERE domain_idx = %d LIMIT %d)";
constexpr const char* kSelectUsers = "SELECT uid, user_name FROM user_table ORDER BY uid";
constexpr const char* kSelectAliasesOfDomain =
    "SELECT uid, account_alias FROM domain_user_alias_table WHERE domain_idx = %d";
// What ComposeDomainUserListQueryCmd makes for one user of one domain.
constexpr const char* kSelectHolder =
    "SELECT * FROM domain_user_view WHERE domain_idx IN (%d) AND uid IN (%u) ORDER BY "
    "is_duplicated DESC;";
// The user has a role, and it is the same in all rows.
constexpr const char* kSelectUser =
    "SELECT * FROM domain_user_view WHERE domain_idx IN (%d) AND uid IN (%u) AND role IS NOT NULL "
    "ORDER BY is_duplicated DESC";
constexpr const char* kHasOwnRole =
    "SELECT EXISTS (SELECT 1 FROM domain_user_role_table WHERE domain_idx = %d AND uid = %u)";
constexpr const char* kSelectRolesOfGroup =
    "SELECT domain_idx, role FROM domain_group_role_table WHERE gid = %u AND role IS NOT NULL";
constexpr const char* kSelectTakenOutOf =
    "SELECT DISTINCT domain_idx FROM domain_group_removed_user_table WHERE uid = %u";
constexpr const char* kSelectGroupRole =
    "SELECT member.uid, MIN(granted.role) FROM group_to_user_table AS member CROSS JOIN "
    "domain_group_view AS granted ON granted.gid = member.gid WHERE granted.domain_idx = %d AND "
    "member.uid = %u GROUP BY member.uid";
constexpr const char* kSelectWithoutAlias =
    "SELECT uid FROM domain_user_alias_table WHERE account_alias IS NULL AND domain_idx = "
    "%d" OF_MIRRORED;
constexpr const char* kSelectNextAlias =
    "SELECT account_alias FROM domain_user_alias_table WHERE account_alias >= '%q' COLLATE NOCASE "
    "ORDER BY account_alias COLLATE NOCASE LIMIT 1";
// The empty text is no role either.
constexpr const char* kSelectOwners =
    "SELECT user_name, CASE is_duplicated WHEN 0 THEN 0 WHEN 1 THEN 1 ELSE 2 END FROM "
    "domain_user_view WHERE account_alias = '%q' COLLATE NOCASE AND domain_idx = %d AND "
    "coalesce(role, '') <> ''";
// NULL stands before all texts and bytes behind them.
constexpr const char* kAreAliasesTexts =
    "SELECT NOT EXISTS (SELECT 1 FROM domain_user_alias_table WHERE account_alias COLLATE NOCASE "
    "IS NULL) AND NOT EXISTS (SELECT 1 FROM domain_user_alias_table WHERE account_alias >= x'' "
    "COLLATE NOCASE)";
constexpr const char* kSelectFlagged =
    "SELECT uid FROM domain_user_alias_table WHERE domain_idx = %d AND is_duplicated > "
    "0" OF_MIRRORED;
// NULL equals nothing, so a row without a text shares none.
constexpr const char* kSelectSharers =
    "SELECT DISTINCT domain_idx, uid FROM domain_user_alias_table WHERE (is_duplicated <> 0 OR "
    "(domain_idx, lower(account_alias)) IN (SELECT domain_idx, lower(account_alias) FROM "
    "domain_user_alias_table GROUP BY 1, 2 HAVING count(*) > 1)) AND domain_idx IN (SELECT "
    "domain_idx FROM domain_table)" OF_MIRRORED;
#undef OF_MIRRORED
constexpr const char* kSelectAliases =
    "SELECT account_alias FROM json_each('%q') CROSS JOIN domain_user_alias_table ON "
    "domain_idx = %d AND uid = json_each.value";
constexpr const char* kSelectNonAscii =
    "SELECT account_alias FROM domain_user_alias_table WHERE domain_idx = %d AND account_alias "
    "GLOB "
    "'*[^ -~]*'";
// As DomainUser::GetUserAliases understands a name.
#define UIDS_OF_NAME                                                                           \
  "uid IN (SELECT uid FROM user_table WHERE user_name = '%q' COLLATE NOCASE AND (user_name = " \
  "'%q' OR NOT EXISTS (SELECT 1 FROM user_table WHERE user_name = '%q')))"
#define IN_STORED_ORDER " ORDER BY alias.rowid"
constexpr const char* kFindAliases =
    "SELECT domain_idx, account_alias FROM domain_user_alias_table AS alias WHERE " UIDS_OF_NAME
        IN_STORED_ORDER;
#define FIND_ADDRESSES                                                                   \
  "SELECT alias.domain_idx, account_alias, domain_name FROM domain_user_alias_table AS " \
  "alias CROSS JOIN domain_table ON domain_table.domain_idx = alias.domain_idx WHERE alias."
constexpr const char* kFindAddresses = FIND_ADDRESSES "uid = %u" IN_STORED_ORDER;
constexpr const char* kFindAddressesOfName = FIND_ADDRESSES UIDS_OF_NAME IN_STORED_ORDER;
#undef FIND_ADDRESSES
#undef IN_STORED_ORDER
#undef UIDS_OF_NAME
// Each of them by an index: the lowest and the highest domain, and the first primary one.
constexpr const char* kSelectDomainRange =
    "SELECT (SELECT min(domain_idx) FROM domain_table), (SELECT max(domain_idx) FROM "
    "domain_table), "
    "(SELECT domain_idx FROM primary_domain_table WHERE domain_idx IN (SELECT domain_idx FROM "
    "domain_table) ORDER BY 1 LIMIT 1)";
constexpr const char* kSelectRolesOfGroups =
    "SELECT domain_idx, uid FROM domain_user_role_table AS own WHERE uid IN (SELECT value FROM "
    "json_each('%q')) AND is_auto_added = 1 AND EXISTS (SELECT 1 FROM group_to_user_table AS "
    "member CROSS JOIN "
    "domain_group_role_table AS granted ON granted.domain_idx = own.domain_idx AND granted.gid = "
    "member.gid WHERE member.uid = own.uid AND granted.role IN ('normal', 'domain_admin'))";

// Columns of domain_user_view.
using UserColumns = Columns<Int, Uid, Text, Text, Text, Flag>;

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

// Few enough that a list of them is no statement that does not fit.
constexpr size_t kMostAtOnce = 1000;

// Calls `use` with some of the values after the other, until it gives false.
template <typename Value, typename Use>
bool InPieces(const std::vector<Value>& values, const Use& use) {
  for (size_t begin = 0; begin < values.size(); begin += kMostAtOnce) {
    const size_t end = std::min(begin + kMostAtOnce, values.size());
    if (!use(std::vector<Value>(values.data() + begin, values.data() + end))) {
      return false;
    }
  }
  return true;
}

// What reads as the empty text may be NULL, which no index finds by a name.
bool AreFew(const std::vector<std::string>& names) {
  return names.size() <= kFew && CanLookUp() &&
         std::find(names.begin(), names.end(), "") == names.end();
}

// Whether reading all rows costs less than so many look-ups. `count` gives their number, up to the
// one it is asked for.
template <typename... Values>
bool IsReadingCheaper(size_t look_ups, const char* count, const Values&... values) {
  const auto most = static_cast<int>(look_ups * kRowsPerLookUp);
  int rows = most + 1;
  return look_ups > kFewLookUps &&
         DomainDb().TryForEachRow(Sql(count, values..., most + 1),
                                  [&rows](const Cells& row) { rows = row.Int(0); }) &&
         rows <= most;
}

// All users. False, with nothing added, where one of them is better told of by another road.
bool TryListAll(std::vector<RECORD::User>& users) {
  std::vector<RECORD::User> all;
  bool are_plain = true;
  const auto keep = [&](const Cells& row) {
    unsigned int uid = 0;
    are_plain = are_plain && ReadPlainId(row, 0, uid);
    all.emplace_back(uid, row.Text(1));
  };
  if (!DomainDb().TryForEachRow(Sql(kSelectUsers), keep) || !are_plain) {
    return false;
  }
  std::move(all.begin(), all.end(), std::back_inserter(users));
  return true;
}

// A user with the one alias of a row.
RECORD::DomainUser RowUser(int domain_idx, unsigned int uid, std::string&& name,
                           std::string&& alias, std::string&& role, bool duplicated) {
  return {domain_idx, uid, std::move(name), {{std::move(alias), duplicated}}, std::move(role)};
}

// No domain that can be listed has another index.
bool IsIndex(const Cells& row, int column) {
  return row.IsInteger(column) && row.Int64(column) == row.Int(column);
}

bool FindAddressesWith(const Sql& sql, std::vector<std::string>& addresses) {
  int primary_idx = 0;
  bool has_primary = false;
  bool can_be_listed = false;
  const auto read_range = [&](const Cells& row) {
    can_be_listed = row.IsNull(0) || (IsIndex(row, 0) && IsIndex(row, 1));
    has_primary = !row.IsNull(2);
    primary_idx = row.Int(2);
  };
  std::vector<std::pair<int, std::string>> found;
  const auto keep = [&found](const Cells& row) {
    found.emplace_back(row.Int(0), row.Text(1).append("@").append(row.Text(2)));
  };
  const ReadScope scope;
  if (!scope.IsInForce() || !CanLookUp() ||
      !DomainDb().TryForEachRow(Sql(kSelectDomainRange), read_range) || !can_be_listed ||
      !DomainDb().TryForEachRow(sql, keep)) {
    return false;
  }
  std::stable_sort(found.begin(), found.end(), [&](const auto& one, const auto& other) {
    const auto place = [&](int idx) { return std::pair(!has_primary || idx != primary_idx, idx); };
    return place(one.first) < place(other.first);
  });
  for (auto& [domain_idx, address] : found) {
    addresses.push_back(std::move(address));
  }
  return true;
}

std::string FoldedKey(int domain_idx, const std::string& alias) {
  return std::to_string(domain_idx) + ':' + BASE::ToLowerAscii(alias);
}

}  // namespace

bool CanLookUp() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return handler != nullptr && handler->HasOwnViews();
}

bool ListNamed(const std::vector<std::string>& names, std::vector<RECORD::User>& users) {
  if (IsReadingCheaper(names.size(), kCountUsers) && TryListAll(users)) {
    return true;
  }
  return AreFew(names)
             ? DomainDb().Append<Columns<Uid, Text>>(Sql(kSelectNamedUsers, JsonList(names)), users)
             : User().List(UserDBFilter(), users);
}

bool ListNamed(const std::vector<std::string>& names, std::vector<RECORD::Group>& groups) {
  return AreFew(names) ? DomainDb().Append<Columns<Gid, Text, Text>>(
                             Sql(kSelectNamedGroups, JsonList(names)), groups)
                       : Group().List(GroupDBFilter(), groups);
}

bool ListRolesOfGroup(unsigned int gid, std::map<int, std::string>& role_by_domain) {
  return DomainDb().Query<Columns<Int, Text>>(
      Sql(kSelectRolesOfGroup, gid), [&role_by_domain](int domain_idx, std::string&& role) {
        role_by_domain[domain_idx] = std::move(role);
      });
}

bool AddDomainUser(int domain_idx, unsigned int uid, std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> rows;
  const auto keep = [&rows](auto&&... values) { rows.push_back(RowUser(std::move(values)...)); };
  bool has_own_role = false;
  std::string group_role;
  bool is_member = false;
  if (!DomainDb().Query<UserColumns>(Sql(kSelectUser, domain_idx, uid), keep) ||
      !DomainDb().GetExists(Sql(kHasOwnRole, domain_idx, uid), has_own_role) ||
      !DomainDb().Query<Columns<Uid, Text>>(Sql(kSelectGroupRole, domain_idx, uid),
                                            [&](unsigned int /*uid*/, std::string&& role) {
                                              is_member = true;
                                              group_role = std::move(role);
                                            })) {
    return false;
  }
  for (RECORD::DomainUser& row : rows) {
    row.SetIsUnderGroupControl(!has_own_role);
    row.SetIsBelongingGroupInDomain(is_member);
    row.SetResultGroupRole(group_role);
  }
  _MergeDomainUsers(rows, users);
  return true;
}

bool GetNextAlias(const std::string& from, std::string& alias) {
  alias.clear();
  return DomainDb().GetText(Sql(kSelectNextAlias, from), 0, alias);
}

FoundOwner FindOwner(int domain_idx, const std::string& alias, std::optional<std::string>& owner) {
  int holders = 0;
  int unflagged = 0;
  bool is_clear = alias.find('\0') == std::string::npos;  // a bound text ends there
  const auto add = [&](std::string&& user_name, int flag) {
    is_clear = is_clear && (flag == 0 || flag == 1);
    if (holders++ == 0 || flag == 0) {
      owner = std::move(user_name);
    }
    unflagged += flag == 0 ? 1 : 0;
  };
  owner.reset();
  if (!DomainDb().Query<Columns<Text, Int>>(Sql(kSelectOwners, alias, domain_idx), add)) {
    return FoundOwner::kFailed;
  }
  is_clear = is_clear && (holders < 2 || unflagged == 1);
  return is_clear ? FoundOwner::kTold : FoundOwner::kUnclear;
}

bool AreAliasesTexts(bool& are_texts) {
  return DomainDb().GetExists(Sql(kAreAliasesTexts), are_texts);
}

bool FindAliases(const std::string& user_name, AliasesByDomain& aliases) {
  AliasesByDomain found;
  const auto keep = [&found](const Cells& row) {
    if (IsIndex(row, 0)) {
      found[row.Int(0)].push_back(row.Text(1));
    }
  };
  if (!CanLookUp() ||
      !DomainDb().TryForEachRow(Sql(kFindAliases, user_name, user_name, user_name), keep)) {
    return false;
  }
  aliases.swap(found);
  return true;
}

bool FindAddresses(unsigned int uid, std::vector<std::string>& addresses) {
  return FindAddressesWith(Sql(kFindAddresses, uid), addresses);
}

bool FindAddresses(const std::string& user_name, std::vector<std::string>& addresses) {
  return FindAddressesWith(Sql(kFindAddressesOfName, user_name, user_name, user_name), addresses);
}

bool ListHoldersOf(int domain_idx, const std::vector<std::string>& aliases,
                   std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUserAlias> wanted;
  wanted.reserve(aliases.size());
  for (const std::string& alias : aliases) {
    wanted.emplace_back(domain_idx, 0, alias, false);
  }
  HolderSearch search({domain_idx});
  return search.AddHolders(wanted) && search.List(users);
}

bool ListNonAsciiAliases(int domain_idx, std::vector<std::string>& aliases) {
  return DomainDb().Append<Columns<Text>>(Sql(kSelectNonAscii, domain_idx), aliases);
}

bool ListSharers(std::vector<std::pair<int, unsigned int>>& users) {
  return DomainDb().Append<Columns<Int, Uid>>(Sql(kSelectSharers), users);
}

bool ListAliases(int domain_idx, const std::vector<unsigned int>& uids,
                 std::vector<std::string>& aliases) {
  return InPieces(uids, [&](const std::vector<unsigned int>& some) {
    return DomainDb().Append<Columns<Text>>(Sql(kSelectAliases, JsonList(some), domain_idx),
                                            aliases);
  });
}

bool ListRolesGivenByGroups(const std::vector<unsigned int>& uids,
                            std::vector<std::pair<int, unsigned int>>& roles) {
  return InPieces(uids, [&](const std::vector<unsigned int>& some) {
    return DomainDb().Append<Columns<Int, Uid>>(Sql(kSelectRolesOfGroups, JsonList(some)), roles);
  });
}

bool ListTakenOutOf(unsigned int uid, std::vector<int>& domain_idxs) {
  return DomainDb().Append<Columns<Int>>(Sql(kSelectTakenOutOf, uid), domain_idxs);
}

HolderSearch::HolderSearch(const std::vector<int>& domain_idxs)
    : domain_idxs_(domain_idxs), takes_all_(!CanLookUp()) {}

// Whether reading everything costs less than looking up what is asked for, `asked` more included.
bool HolderSearch::_TakesAll(size_t asked) {
  asked_ += asked;
  takes_all_ = takes_all_ || _IsTooMuch(asked_);
  return takes_all_;
}

bool HolderSearch::_IsTooMuch(size_t look_ups) const {
  std::string last;
  int rows = 0;
  return look_ups > kFew && (!DomainDb().GetText(kSelectLastAlias, 0, last) ||
                             (BASE::ConvertToInt(last, rows) &&
                              look_ups * kRowsPerLookUp > static_cast<size_t>(std::max(rows, 0))));
}

void HolderSearch::_Gather(int domain_idx, unsigned int uid) {
  if (users_.emplace(domain_idx, uid).second) {
    unconnected_.emplace(domain_idx, uid);
  }
}

bool HolderSearch::AddUsers(const std::vector<std::pair<int, unsigned int>>& users) {
  for (const auto& [domain_idx, uid] : users) {
    _Gather(domain_idx, uid);
  }
  _TakesAll(users.size());
  return true;
}

bool HolderSearch::_AddHolders(int domain_idx, const std::vector<std::string>& aliases) {
  // Before it is known which of them are new.
  takes_all_ = takes_all_ || _IsTooMuch(aliases.size());
  if (takes_all_) {
    return true;
  }
  std::vector<std::string> unknown;
  bool has_empty = false;
  known_aliases_.reserve(known_aliases_.size() + aliases.size());
  for (const std::string& alias : aliases) {
    if (known_aliases_.insert(FoldedKey(domain_idx, alias)).second) {
      unknown.push_back(alias);
      has_empty = has_empty || alias.empty();
    }
  }
  if (unknown.empty() || _TakesAll(unknown.size())) {
    return true;
  }
  if (_GatherFromAll(domain_idx, unknown)) {
    return true;
  }
  const auto gather = [&](unsigned int uid) { _Gather(domain_idx, uid); };
  const bool is_read = InPieces(unknown, [&](const std::vector<std::string>& some) {
    return DomainDb().Query<Columns<Uid>>(Sql(kSelectHolders, JsonList(some), domain_idx), gather);
  });
  // What reads as the empty text.
  return is_read && (!has_empty ||
                     DomainDb().Query<Columns<Uid>>(Sql(kSelectWithoutAlias, domain_idx), gather));
}

// The holders in a domain that has few aliases for so many. False where look-ups have to tell, with
// some of them gathered maybe.
bool HolderSearch::_GatherFromAll(int domain_idx, const std::vector<std::string>& aliases) {
  if (!IsReadingCheaper(aliases.size(), kCountAliases, domain_idx)) {
    return false;
  }
  std::unordered_set<std::string> wanted;
  wanted.reserve(aliases.size());
  for (const std::string& alias : aliases) {
    wanted.insert(BASE::ToLowerAscii(alias));
  }
  bool are_plain = true;
  const auto gather = [&](const Cells& row) {
    unsigned int uid = 0;
    are_plain = are_plain && ReadPlainId(row, 0, uid);
    if (are_plain && wanted.count(BASE::ToLowerAscii(row.Text(1))) != 0) {
      _Gather(domain_idx, uid);
    }
  };
  return DomainDb().TryForEachRow(Sql(kSelectAliasesOfDomain, domain_idx), gather) && are_plain;
}

bool HolderSearch::AddHolders(const std::vector<RECORD::DomainUserAlias>& aliases) {
  std::map<int, std::vector<std::string>> by_domain;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    by_domain[alias.GetDomainIdx()].push_back(alias.GetAccountAlias());
  }
  return std::all_of(by_domain.begin(), by_domain.end(), [this](const auto& domain) {
    return takes_all_ || _AddHolders(domain.first, domain.second);
  });
}

bool HolderSearch::AddNamed(const std::vector<RECORD::DomainUserAlias>& aliases) {
  std::map<int, std::vector<std::string>> by_domain;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    by_domain[alias.GetDomainIdx()].push_back(alias.GetAccountAlias());
  }
  for (const auto& [domain_idx, names] : by_domain) {
    std::vector<RECORD::User> users;
    if (_TakesAll(names.size())) {
      return true;
    }
    if (!ListNamed(names, users)) {
      return false;
    }
    for (const RECORD::User& user : users) {
      _Gather(domain_idx, user.GetUID());
    }
  }
  return true;
}

namespace {

template <typename Filter>
bool Count(Filter& filter, int& count) {
  filter.SetSelect("count(*)");
  return DomainDb().Query<Columns<Int>>(Sql(ComposeQueryCmd(filter)),
                                        [&count](int counted) { count = counted; });
}

}  // namespace

bool CountMirrored(UserDBFilter filter, int& count) {
  return Count(filter, count);
}

bool CountMirrored(GroupDBFilter filter, int& count) {
  return Count(filter, count);
}

bool HolderSearch::AddFlagged() {
  return takes_all_ ||
         std::all_of(domain_idxs_.begin(), domain_idxs_.end(), [this](int domain_idx) {
           return DomainDb().Query<Columns<Uid>>(
               Sql(kSelectFlagged, domain_idx),
               [this, domain_idx](unsigned int uid) { _Gather(domain_idx, uid); });
         });
}

bool HolderSearch::AddConnected() {
  while (!unconnected_.empty() && !takes_all_) {
    std::map<int, std::vector<unsigned int>> by_domain;
    for (const auto& [domain_idx, uid] : unconnected_) {
      by_domain[domain_idx].push_back(uid);
    }
    unconnected_.clear();
    for (const auto& [domain_idx, uids] : by_domain) {
      std::vector<std::string> aliases;
      if (!ListAliases(domain_idx, uids, aliases) || !_AddHolders(domain_idx, aliases)) {
        return false;
      }
    }
  }
  return true;
}

bool HolderSearch::List(std::vector<RECORD::DomainUser>& users) {
  if (takes_all_) {
    return domain_idxs_.empty() || DomainUser().ListHolders(domain_idxs_, users);
  }
  std::set<unsigned int> uids;
  for (const auto& user : users_) {
    uids.insert(user.second);
  }
  if (uids.empty()) {
    return true;
  }
  std::vector<RECORD::DomainUser> alias_rows;
  const auto keep = [&](int domain_idx, unsigned int uid, auto&&... texts) {
    if (users_.count({domain_idx, uid}) != 0) {
      alias_rows.push_back(RowUser(domain_idx, uid, std::move(texts)...));
    }
  };
  DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs(domain_idxs_);
  const Sql sql = domain_idxs_.size() == 1 && uids.size() == 1
                      ? Sql(kSelectHolder, domain_idxs_.front(), *uids.begin())
                      : Sql(filter.ComposeDomainUserListQueryCmd({uids.begin(), uids.end()}));
  if (!DomainDb().Query<UserColumns>(sql, keep)) {
    return false;
  }
  _MergeDomainUsers(alias_rows, users);
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
