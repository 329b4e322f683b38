// The statements that read and write a domain's users, their aliases, roles and removals.
#include "lib-domain/db/domain_user.h"

#include <algorithm>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/role_holders.h"
#include "lib-domain/db/statement.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;
using korvmailserver::FormatSql;

namespace {

// Columns of domain_user_view: domain index, uid, user name, alias, role, duplicated.
using UserColumns = Columns<Int, Uid, Text, Text, Text, Flag>;
// Columns of domain_user_alias_table: domain index, uid, alias, duplicated.
using AliasColumns = Columns<Int, Uid, Text, Flag>;
// Columns of domain_user_role_table: domain index, uid, role, automatically added.
using RoleColumns = Columns<Int, Uid, Text, Flag>;
using DomainAndUser = Columns<Int, Uid>;

constexpr const char* kIsAliasTaken =
    "SELECT EXISTS (SELECT 1 FROM domain_user_alias_table WHERE account_alias = '%q' COLLATE "
    "NOCASE LIMIT 1) ";
constexpr const char* kExists =
    "SELECT EXISTS (SELECT 1 FROM user_table CROSS JOIN domain_user_alias_table ON "
    "domain_user_alias_table.uid = user_table.uid WHERE domain_idx= %d AND user_name='%q' COLLATE "
    "NOCASE LIMIT 1)";
constexpr const char* kSelectUsersOfDomains =
    "SELECT DISTINCT domain_idx, uid FROM %s WHERE role IS NOT NULL AND domain_idx IN (%s)";
constexpr const char* kSelectUsersAmong =
    "SELECT DISTINCT uid FROM domain_user_with_role_view WHERE domain_idx = %d AND uid IN (%s)";
constexpr const char* kSelectUsersWithoutRole =
    "SELECT domain_user_alias_table.domain_idx AS domain_idx, domain_user_alias_table.uid AS uid "
    "FROM domain_user_alias_table INNER JOIN domain_user_view WHERE "
    "domain_user_alias_table.domain_idx = domain_user_view.domain_idx AND "
    "domain_user_alias_table.uid = domain_user_view.uid AND domain_user_view.role IS NULL";
constexpr const char* kSelectFromWithoutRole =
    "SELECT domain_idx, uid FROM domain_user_without_role_view";

constexpr const char* kSelectAliasesOfDomains =
    "SELECT domain_idx, user_name, account_alias, CASE WHEN coalesce(role, '') = '' THEN 3 WHEN "
    "is_duplicated = 0 THEN 0 WHEN is_duplicated = 1 THEN 1 ELSE 2 END FROM domain_user_view WHERE "
    "domain_idx IN "
    "(%s) ORDER BY domain_idx, uid";
// A role that is the empty text counts for none there, and hides others all the same.
constexpr const char* kHasEmptyRole =
    "SELECT EXISTS (SELECT 1 FROM domain_user_role_table WHERE domain_idx = ?1 AND role = '') OR "
    "EXISTS (SELECT 1 FROM domain_group_role_table WHERE domain_idx = ?1 AND role = '')";
constexpr const char* kSelectAliasesOfDomain =
    "SELECT alias.uid, user_name, account_alias, CASE is_duplicated WHEN 0 THEN 0 WHEN 1 THEN 1 "
    "ELSE 2 END FROM domain_user_alias_table AS alias CROSS JOIN user_table ON user_table.uid = "
    "alias.uid WHERE alias.domain_idx = ?1 ORDER BY alias.uid, alias.rowid";
constexpr const char* kSelectOfUsers =
    "SELECT * FROM domain_user_view WHERE uid IN (%q) ORDER BY uid, domain_idx";
// Of several domains, in the order in which a look into each of them gives the rows.
constexpr const char* kSelectHolders =
    "SELECT * FROM domain_user_view WHERE uid IN (SELECT value FROM json_each('%q')) AND "
    "+domain_idx IN (SELECT value FROM json_each('%q')) ORDER BY is_duplicated DESC, domain_idx, "
    "uid";
// The "+" keeps the database from reading the whole domain in that order.
#define BEFORE_ALIAS "SELECT * FROM domain_user_alias_table WHERE domain_idx=%d AND account_alias='"
#define BEHIND_ALIAS "' COLLATE NOCASE ORDER BY +uid, rowid"
constexpr const char* kSelectAliasUsers = BEFORE_ALIAS "%q" BEHIND_ALIAS;
constexpr const char* kBeforeAlias = BEFORE_ALIAS;
constexpr const char* kBehindAlias = BEHIND_ALIAS;
#undef BEFORE_ALIAS
#undef BEHIND_ALIAS
constexpr size_t kLongAlias = 10000;
constexpr const char* kSelectAliases =
    "SELECT account_alias FROM domain_user_alias_table WHERE domain_idx = %d AND uid = %u ORDER BY "
    "rowid";
constexpr const char* kSelectAliasesByName =
    "SELECT account_alias FROM domain_user_alias_table WHERE domain_idx = %d AND uid IN (SELECT "
    "uid FROM user_table WHERE user_name = '%q' COLLATE NOCASE AND (user_name = '%q' OR NOT EXISTS "
    "(SELECT 1 FROM user_table WHERE user_name = '%q'))) ORDER BY rowid";
constexpr const char* kSelectAllAliases =
    "SELECT user_name, account_alias, is_duplicated FROM domain_user_alias_table AS a INNER JOIN "
    "user_table ON "
    "a.uid = user_table.uid WHERE domain_idx = %d ORDER BY a.rowid";
constexpr const char* kInsertAlias =
    "INSERT INTO  domain_user_alias_table (domain_idx, uid, account_alias, is_duplicated) VALUES "
    "('%d', '%u', '%q', '%d');";
constexpr const char* kDeleteAliasesOfUser =
    "DELETE FROM domain_user_alias_table WHERE domain_idx = %d AND uid = %u;";
constexpr const char* kDeleteAliases =
    "DELETE FROM domain_user_alias_table WHERE domain_idx = '%d' AND uid IN (%q)";

constexpr const char* kSelectAutoAdded =
    "SELECT * FROM domain_user_role_table WHERE is_auto_added = 1;";
constexpr const char* kSelectOwnRoles =
    "SELECT domain_idx, uid FROM domain_user_role_table WHERE domain_idx IN (%s) AND uid IN (%s)";
constexpr const char* kReplaceRole =
    "REPLACE INTO  domain_user_role_table (domain_idx, uid, role, is_auto_added) VALUES ('%d', "
    "'%u', '%q', '%d');";
constexpr const char* kDeleteRole =
    "DELETE FROM domain_user_role_table WHERE domain_idx = '%d' AND uid = '%u'";
constexpr const char* kDeleteRoles =
    "DELETE FROM domain_user_role_table WHERE domain_idx = '%d' AND uid IN (%q)";

constexpr const char* kSelectEffectingGroups =
    "SELECT * FROM domain_group_effected_user_view WHERE domain_idx = %d AND uid = %u;";
// By uid the database looks every user up in every group of the domain; for more than a few users
// the "+" makes it go through the members of the groups instead.
constexpr size_t kFewUsers = 16;
constexpr const char* kSelectGroupsOfOne =
    "SELECT uid, gid FROM domain_group_effected_user_view WHERE domain_idx = %d AND uid IN (%u);";
constexpr const char* kSelectGroupsOfFew =
    "SELECT uid, gid FROM domain_group_effected_user_view WHERE domain_idx = %d AND uid IN (%s);";
constexpr const char* kSelectGroupsOfMany =
    "SELECT uid, gid FROM domain_group_effected_user_view WHERE domain_idx = %d AND +uid IN (%s);";
constexpr const char* kSelectRemoved =
    "SELECT DISTINCT(uid) FROM domain_group_removed_user_table WHERE domain_idx=%d ";
constexpr const char* kReplaceRemoval =
    "REPLACE INTO domain_group_removed_user_table (domain_idx, gid, uid) VALUES ('%d', '%u', "
    "'%u');";
constexpr const char* kDeleteRemovals =
    "DELETE FROM domain_group_removed_user_table WHERE domain_idx = '%d' AND uid IN (%q)";

std::tuple<int, unsigned int, std::string, int> ValuesOf(const RECORD::DomainUserAlias& alias) {
  return {alias.GetDomainIdx(), alias.GetUID(), alias.GetAccountAlias(),
          alias.IsDuplicated() ? 1 : 0};
}

// Whether the text stands for one literal between single quotes, and for which.
bool IsQuoted(const std::string& text, std::string& plain) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\0' || (text[i] == '\'' && text[++i] != '\'')) {
      return false;
    }
    plain += text[i];
  }
  return true;
}

bool HasOwnViews(DomainDBHandler* handler) {
  return handler != nullptr && handler->HasOwnViews();
}

// Where those users stand who have a role, for statements that do not look at the role itself.
const char* UserView(DomainDBHandler* handler) {
  return HasOwnViews(handler) ? kUserWithRoleView : kUserView;
}

DomainDBFilter WholeDomains(const std::vector<int>& domain_idxs) {
  DomainDBFilter filter(kUserView);
  filter.SetDomainIdxs(domain_idxs);
  filter.SetOffset(0);
  filter.SetLimit(-1);
  return filter;
}

// Each id once, as a list of SQL.
template <typename Id>
std::string JoinSet(const std::set<Id>& ids) {
  return BASE::Join(std::vector<Id>(ids.begin(), ids.end()), ",");
}

}  // namespace

DomainUser::DomainUser()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database DomainUser::_DomainDb() const {
  return {handler_, status_};
}

bool DomainUser::IsAliasExist(const std::string& alias) {
  bool exists = false;
  return _DomainDb().GetExists(Sql(kIsAliasTaken, alias), exists) && exists;
}

bool DomainUser::IsExists(const int& domain_idx, const std::string& user_name) {
  bool exists = false;
  return _DomainDb().GetExists(Sql(kExists, domain_idx, user_name), exists) && exists;
}

bool DomainUser::GetDistinctUIDs(DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  DomainDBFilter own = filter;
  own.SetTableName(filter.SortsByRole() ? kUserView : UserView(handler_));
  bool are_plain = true;
  if (HasOwnViews(handler_) && own.IsForOneDomainUnsorted()) {
    return _WalkUIDs(own, uids, are_plain) || (!are_plain && _ReadUIDs(own, uids));
  }
  if (own.GetLimit() < 0 || own.IsCounting()) {
    return _ReadUIDs(own, uids);
  }
  // Whoever turns pages asks for many of one list, of which one costs nearly as much as all.
  // Whoever searches asks how many there are, too.
  DomainDBFilter whole = _WholeOf(filter);
  std::vector<unsigned int> all;
  bool has_list = HasOwnViews(handler_) && own.IsSearched();
  const auto read = [&](std::vector<unsigned int>& listed) {
    return _ReadPlainUIDs(whole, listed, are_plain);
  };
  if (!_DomainDb().RememberList(whole.ComposeDistinctUIDQueryCmd(), read, all, has_list) &&
      are_plain) {
    return false;
  }
  if (!has_list || !are_plain) {
    return _ReadUIDs(own, uids);
  }
  const size_t begin = std::min<size_t>(all.size(), std::max(own.GetOffset(), 0));
  const size_t end = std::min<size_t>(all.size(), begin + own.GetLimit());
  uids.insert(uids.end(), all.begin() + static_cast<std::ptrdiff_t>(begin),
              all.begin() + static_cast<std::ptrdiff_t>(end));
  return true;
}

// What is remembered of a filter's pages: the uids on all of them.
DomainDBFilter DomainUser::_WholeOf(const DomainDBFilter& filter) const {
  DomainDBFilter whole = filter;
  whole.SetTableName(filter.SortsByRole() ? kUserView : UserView(handler_));
  whole.SetOffset(0);
  whole.SetLimit(-1);
  return whole;
}

// The page of the filter, or all without one.
bool DomainUser::_ReadUIDs(DomainDBFilter& own, std::vector<unsigned int>& uids) {
  return (HasOwnViews(handler_) && _CutWhole(own, uids)) ||
         _DomainDb().Append<Columns<Uid>>(own.ComposeDistinctUIDQueryCmd(), uids);
}

bool DomainUser::_ReadPlainUIDs(DomainDBFilter& whole, std::vector<unsigned int>& uids,
                                bool& are_plain) {
  const auto keep = [&](sqlite3_int64 uid) {
    are_plain = are_plain && IsUid(uid);
    uids.push_back(static_cast<unsigned int>(uid));
  };
  return (HasOwnViews(handler_) && _CutWhole(whole, uids)) ||
         (_DomainDb().Query<Columns<Number>>(whole.ComposeDistinctUIDQueryCmd(), keep) &&
          are_plain);
}

bool DomainUser::ListDomainUsers(DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users,
                                 const bool& with_group_control) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kUserView);
  std::vector<unsigned int> uids;
  if (!GetDistinctUIDs(own, uids)) {
    LOG_ERROR("Failed to _GetDistinctUIDs");
    return false;
  }
  return uids.empty() || _AppendUsers(own, uids, with_group_control, users);
}

// The users with all their aliases in the filter's domains.
bool DomainUser::_AppendUsers(DomainDBFilter& filter, const std::vector<unsigned int>& uids,
                              bool with_group_control, std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> alias_rows;
  alias_rows.reserve(uids.size());
  if (!_AppendAliasRows(filter.ComposeDomainUserListQueryCmd(uids), alias_rows)) {
    return false;
  }
  if (with_group_control && !_CheckUnderControl(alias_rows)) {
    LOG_ERROR("Failed to _CheckUnderControl");
    return false;
  }
  _MergeDomainUsers(alias_rows, users);
  return true;
}

bool DomainUser::ListHolders(const std::vector<int>& domain_idxs,
                             std::vector<RECORD::DomainUser>& users) {
  return ListHolders(domain_idxs, {}, users);
}

bool DomainUser::ListHolders(const std::vector<int>& domain_idxs,
                             const std::vector<unsigned int>& uids,
                             std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> alias_rows;
  const bool are_few_of_many = domain_idxs.size() > 1 && !uids.empty() && HasOwnViews(handler_);
  const Sql sql =
      are_few_of_many
          ? Sql(kSelectHolders, JsonList(uids), "[" + BASE::Join(domain_idxs, ",") + "]")
          : Sql(WholeDomains(domain_idxs).ComposeDomainUserListQueryCmd(uids));
  if (!_AppendAliasRows(sql, alias_rows)) {
    return false;
  }
  _MergeDomainUsers(alias_rows, users);
  return true;
}

bool DomainUser::ListDomainsOfUsers(const std::vector<unsigned int>& uids,
                                    std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> alias_rows;
  const std::vector<std::string> pieces = JoinIdsInPieces(uids);
  if (!std::all_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
        return _AppendAliasRows(FormatStatement(kSelectOfUsers, piece.c_str()), alias_rows);
      })) {
    return false;
  }
  _MergeDomainUsers(alias_rows, users);
  return true;
}

// One record per alias.
bool DomainUser::_AppendAliasRows(const Sql& sql, std::vector<RECORD::DomainUser>& alias_rows) {
  const auto keep = [&alias_rows](int domain_idx, unsigned int uid, const std::string& name,
                                  std::string&& alias, const std::string& role, bool duplicated) {
    alias_rows.emplace_back(
        domain_idx, uid, name,
        std::vector<std::pair<std::string, bool>>{{std::move(alias), duplicated}}, role);
  };
  return _DomainDb().Query<UserColumns>(sql, keep);
}

bool DomainUser::List(const int& domain_idx, std::vector<unsigned int>& uids) {
  DomainDBFilter filter = WholeDomains({domain_idx});
  return GetDistinctUIDs(filter, uids);
}

bool DomainUser::List(const int& domain_idx, const std::vector<unsigned int>& among,
                      std::vector<unsigned int>& uids) {
  if (!HasOwnViews(handler_)) {
    return List(domain_idx, uids);  // whose view would be worked out for each piece
  }
  const std::vector<std::string> pieces = JoinIdsInPieces(among);
  return std::all_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
    return _DomainDb().Append<Columns<Uid>>(
        FormatStatement(kSelectUsersAmong, domain_idx, piece.c_str()), uids);
  });
}

bool DomainUser::List(const std::vector<int>& domain_idxs,
                      std::map<int, std::unordered_set<unsigned int>>& uids_by_domain) {
  return _DomainDb().Query<DomainAndUser>(
      FormatSql(kSelectUsersOfDomains, UserView(handler_), BASE::Join(domain_idxs, ",").c_str()),
      [&](int domain_idx, unsigned int uid) { uids_by_domain[domain_idx].insert(uid); });
}

bool DomainUser::List(const int& domain_idx, std::vector<RECORD::DomainUser>& users) {
  DomainDBFilter filter = WholeDomains({domain_idx});
  return ListDomainUsers(filter, users, false);
}

bool DomainUser::List(const int& domain_idx, std::list<std::string>& user_names) {
  std::vector<RECORD::DomainUser> users;
  if (!List(domain_idx, users)) {
    LOG_ERROR("Failed to ListDomainUsers, domain_id: [%d]", domain_idx);
    return false;
  }
  for (const RECORD::DomainUser& user : users) {
    user_names.push_back(user.GetUserName());
  }
  return true;
}

bool DomainUser::ListDomainUsersAliases(const std::vector<int>& domain_idxs,
                                        std::vector<RECORD::DomainUserAlias>& aliases) {
  DomainDBFilter filter = WholeDomains(domain_idxs);
  std::vector<RECORD::DomainUser> users;
  if (!ListDomainUsers(filter, users, false)) {
    LOG_ERROR("Failed to ListDomainUsers");
    return false;
  }
  for (const RECORD::DomainUser& user : users) {
    for (RECORD::DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
      aliases.push_back(std::move(alias));
    }
  }
  return true;
}

// Who has a role is gathered for a whole domain, and the rows are read in the order in which they
// are stored; the view would look up the role of each user.
bool DomainUser::ForEachAlias(const std::vector<int>& domain_idxs, const AliasVisitor& use) {
  const ReadScope of_one_moment(handler_);
  std::vector<int> left = domain_idxs;
  std::sort(left.begin(), left.end());
  left.erase(std::unique(left.begin(), left.end()), left.end());
  for (auto next = left.begin(); next != left.end(); ++next) {
    RoleHolders holders;
    if (!_MayGatherRoles(*next) || !holders.Read(_DomainDb(), *next)) {
      return _ForEachAliasOfView({next, left.end()}, use);
    }
    bool is_wanted = true;
    const auto give = [&](sqlite3_int64 uid, std::string&& user_name, std::string&& alias,
                          int flag) {
      const AliasFlag given = holders.Has(uid) ? static_cast<AliasFlag>(flag) : AliasFlag::kNoRole;
      return is_wanted = use(*next, std::move(user_name), std::move(alias), given);
    };
    if (!_DomainDb().QueryUntil<Columns<Number, Text, Text, Int>>(
            Sql(kSelectAliasesOfDomain, *next), give)) {
      return false;
    }
    if (!is_wanted) {
      return true;
    }
  }
  return true;
}

bool DomainUser::_MayGatherRoles(int domain_idx) {
  bool has_empty_role = true;
  return handler_ != nullptr && handler_->HasOwnViews() &&
         _DomainDb().TryForEachRow(
             Sql(kHasEmptyRole, domain_idx),
             [&has_empty_role](const Cells& row) { has_empty_role = row.Int64(0) != 0; }) &&
         !has_empty_role;
}

bool DomainUser::_ForEachAliasOfView(const std::vector<int>& domain_idxs, const AliasVisitor& use) {
  return _DomainDb().QueryUntil<Columns<Int, Text, Text, Int>>(
      FormatSql(kSelectAliasesOfDomains, BASE::Join(domain_idxs, ",").c_str()),
      [&use](int domain_idx, std::string&& user_name, std::string&& alias, int flag) {
        return use(domain_idx, std::move(user_name), std::move(alias),
                   static_cast<AliasFlag>(flag));
      });
}

bool DomainUser::GetAliasUsers(const int& domain_idx, const std::string& alias,
                               std::vector<RECORD::DomainUserAlias>& aliases) {
  std::string plain;
  if (alias.size() < kLongAlias && IsQuoted(alias, plain)) {
    return _DomainDb().Append<AliasColumns>(Sql(kSelectAliasUsers, domain_idx, plain), aliases);
  }
  return _DomainDb().Append<AliasColumns>(
      FormatSql(kBeforeAlias, domain_idx) + alias + kBehindAlias, aliases);
}

bool DomainUser::GetUserAliases(const int& domain_idx, const unsigned int& uid,
                                std::vector<std::string>& aliases) {
  return _DomainDb().Append<Columns<Text>>(Sql(kSelectAliases, domain_idx, uid), aliases);
}

bool DomainUser::GetUserAliases(const int& domain_idx, const std::string& user_name,
                                std::vector<std::string>& aliases) {
  return _DomainDb().Append<Columns<Text>>(
      Sql(kSelectAliasesByName, domain_idx, user_name, user_name, user_name), aliases);
}

bool DomainUser::GetAllUserAliases(
    const int& domain_idx,
    std::unordered_map<std::string, std::vector<std::string>>& aliases_by_user) {
  std::unordered_map<std::string, std::vector<std::string>> found;
  const auto keep = [&found](const std::string& user_name, std::string&& alias, bool flagged) {
    std::vector<std::string>& aliases = found[user_name];
    if (!flagged) {
      aliases.push_back(std::move(alias));
    }
  };
  if (!_DomainDb().Query<Columns<Text, Text, Flag>>(Sql(kSelectAllAliases, domain_idx), keep)) {
    return false;
  }
  aliases_by_user.swap(found);
  return true;
}

bool DomainUser::GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles) {
  return _DomainDb().Append<RoleColumns>(kSelectAutoAdded, roles);
}

bool DomainUser::FindBeingEffectedGroups(const int& domain_idx, const unsigned int& uid,
                                         std::vector<unsigned int>& gids) {
  return _DomainDb().Query<Columns<Text, Gid>>(
      Sql(kSelectEffectingGroups, domain_idx, uid),
      [&gids](const std::string& /*domain_idx*/, unsigned int gid) { gids.push_back(gid); });
}

bool DomainUser::FindBeingEffectedGroups(
    const int& domain_idx, const std::vector<unsigned int>& uids,
    std::map<unsigned int, std::vector<unsigned int>>& gids_by_uid) {
  const Sql sql =
      uids.size() == 1
          ? Sql(kSelectGroupsOfOne, domain_idx, uids.front())
          : Sql(FormatSql(uids.size() > kFewUsers ? kSelectGroupsOfMany : kSelectGroupsOfFew,
                          domain_idx, BASE::Join(uids, ",").c_str()));
  return _DomainDb().Query<Columns<Uid, Gid>>(
      sql, [&gids_by_uid](unsigned int uid, unsigned int gid) { gids_by_uid[uid].push_back(gid); });
}

bool DomainUser::GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain) {
  return _DomainDb().Query<DomainAndUser>(
      HasOwnViews(handler_) ? kSelectFromWithoutRole : kSelectUsersWithoutRole,
      [&](int domain_idx, unsigned int uid) { uids_by_domain[domain_idx].push_back(uid); });
}

bool DomainUser::GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids) {
  return _DomainDb().Query<Columns<Uid>>(Sql(kSelectRemoved, domain_idx),
                                         [&uids](unsigned int uid) { uids.insert(uid); });
}

// One read of the own roles of all these users in place of one query per row.
bool DomainUser::_CheckUnderControl(std::vector<RECORD::DomainUser>& users) {
  std::set<int> domain_idxs;
  std::set<unsigned int> uids;
  for (const RECORD::DomainUser& user : users) {
    domain_idxs.insert(user.GetDomainIdx());
    uids.insert(user.GetUID());
  }
  std::set<std::pair<int, unsigned int>> own_roles;
  if (!_DomainDb().Query<DomainAndUser>(
          FormatSql(kSelectOwnRoles, JoinSet(domain_idxs).c_str(), JoinSet(uids).c_str()),
          [&](int domain_idx, unsigned int uid) { own_roles.emplace(domain_idx, uid); })) {
    return false;
  }
  for (RECORD::DomainUser& user : users) {
    user.SetIsUnderGroupControl(own_roles.count({user.GetDomainIdx(), user.GetUID()}) == 0);
  }
  return true;
}

bool DomainUser::SetUsersRoles(const std::vector<RECORD::DomainUserRole>& roles) {
  StatementBatch batch;
  batch.AddValid(kReplaceRole, roles, [](const RECORD::DomainUserRole& role) {
    return std::make_tuple(role.GetDomainIdx(), role.GetUID(), role.GetRole(),
                           role.IsAutoAdded() ? 1 : 0);
  });
  return _DomainDb().Run(batch, "fail to insert domain_to_user_role_table");
}

bool DomainUser::CreateUsersRoles(const std::vector<RECORD::DomainUserRole>& roles) {
  return SetUsersRoles(roles);
}

bool DomainUser::DeleteUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs) {
  StatementBatch batch;
  batch.AddEach(kDeleteRole, pairs,
                [](const auto& pair) { return std::make_tuple(pair.first, pair.second); });
  return _DomainDb().Run(batch, "fail to delete domain_to_user_role_table");
}

bool DomainUser::DeleteUsersRoles(const int& domain_idx, const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteRoles, uids, domain_idx);
  return _DomainDb().Run(batch, "fail to delete domain_to_user_role_table");
}

bool DomainUser::CreateUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases) {
  StatementBatch batch;
  batch.AddValid(kInsertAlias, aliases, ValuesOf);
  return _DomainDb().Run(batch, "fail to insert domain_user_alias_table");
}

bool DomainUser::SetUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  std::set<std::pair<int, unsigned int>> seen;
  std::vector<std::tuple<int, unsigned int>> emptied;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    if (!alias.IsValid()) {
      LOG_ERROR("invalid user_alias: [%s], skipped", alias.GetAccountAlias().c_str());
    } else if (seen.emplace(alias.GetDomainIdx(), alias.GetUID()).second) {
      emptied.emplace_back(alias.GetDomainIdx(), alias.GetUID());
    }
  }
  StatementBatch batch;
  batch.AddEach(kDeleteAliasesOfUser, emptied, [](const auto& user) { return user; });
  batch.AddValid(kInsertAlias, aliases, ValuesOf);
  return _DomainDb().Run(batch, "fail to insert domain_to_user_real_table");
}

bool DomainUser::DeleteUsersAliases(const int& domain_idx, const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteAliases, uids, domain_idx);
  return _DomainDb().Run(batch, "fail to delete domain_to_user_real_table");
}

bool DomainUser::RemoveUsersFromDomainGroups(
    const std::vector<std::tuple<int, unsigned int, unsigned int>>& removals) {
  StatementBatch batch;
  batch.AddEach(kReplaceRemoval, removals, [](const auto& removal) { return removal; });
  return _DomainDb().Run(batch, "fail to delete domain_to_group_role_table");
}

bool DomainUser::DeleteRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteRemovals, uids, domain_idx);
  return _DomainDb().Run(batch, "fail to delete domain_to_group_role_table");
}

}  // namespace MDOMAIN::DB
