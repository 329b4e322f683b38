// The statements that read and write a domain's users, their aliases, roles and removals.
#include "lib-domain/db/domain_user.h"

#include <algorithm>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

const char* const kRoleTable = "domain_user_role_table";
const char* const kAliasTable = "domain_user_alias_table";
const char* const kRemovedTable = "domain_group_removed_user_table";
const char* const kEffectedView = "domain_group_effected_user_view";
const char* const kUserView = "domain_user_view";

constexpr size_t kFewUsers = 16;

void AddAliasInsert(const RECORD::DomainUserAlias& alias, StatementBatch& batch) {
  batch.Add(
      "INSERT INTO  %q (domain_idx, uid, account_alias, is_duplicated) VALUES ('%d', '%q', '%q', "
      "'%d');",
      kAliasTable, alias.GetDomainIdx(), std::to_string(alias.GetUID()).c_str(),
      alias.GetAccountAlias().c_str(), alias.IsDuplicated() ? 1 : 0);
}

bool DeleteUsers(DomainDBHandler* handler, const char* table, int domain_idx,
                 const std::vector<unsigned int>& uids, const char* failure,
                 SourceHere here = SourceHere::Now()) {
  StatementBatch batch;
  for (const std::string& piece : JoinIdsInPieces(uids)) {
    batch.Add("DELETE FROM %q WHERE domain_idx = '%d' AND uid IN (%q)", table, domain_idx,
              piece.c_str());
  }
  return batch.Run(handler, failure, here);
}

// One alias row of domain_user_view as a user with that alias.
bool ReadDomainUser(const Row& row, std::vector<RECORD::DomainUser>& users) {
  int domain_idx = 0;
  unsigned int uid = 0;
  if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
    return false;
  }
  users.emplace_back(domain_idx, uid, row[2],
                     std::vector<std::pair<std::string, bool>>{{row[3], ReadFlag(row[5])}}, row[4]);
  return true;
}

DomainDBFilter WholeDomains(const std::vector<int>& domain_idxs) {
  DomainDBFilter filter(kUserView);
  filter.SetDomainIdxs(domain_idxs);
  filter.SetOffset(0);
  filter.SetLimit(-1);
  return filter;
}

// Columns of domain_user_alias_table.
bool ReadAlias(const Row& row, std::vector<RECORD::DomainUserAlias>& aliases) {
  int domain_idx = 0;
  unsigned int uid = 0;
  if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
    return false;
  }
  aliases.emplace_back(domain_idx, uid, row[2], ReadFlag(row[3]));
  return true;
}

bool SelectTexts(DomainDBHandler* handler, const std::string& sql, std::vector<std::string>& texts,
                 SourceHere here = SourceHere::Now()) {
  Rows rows;
  if (!Select(handler, sql, 1, rows, here)) {
    return false;
  }
  for (const Row& row : rows) {
    texts.push_back(row[0]);
  }
  return true;
}

}  // namespace

DomainUser::DomainUser()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ ? 0 : -1) {}

bool DomainUser::IsAliasExist(const std::string& alias) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::string cell;
  return SelectCell(handler_,
                    FormatStatement("SELECT EXISTS (SELECT 1 FROM %q WHERE account_alias = '%q' "
                                    "COLLATE NOCASE LIMIT 1) ",
                                    kAliasTable, alias.c_str()),
                    cell) &&
         cell == "1";
}

bool DomainUser::IsExists(const int& domain_idx, const std::string& user_name) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::string cell;
  return SelectCell(handler_,
                    FormatStatement("SELECT EXISTS (SELECT 1 FROM %q WHERE domain_idx= %d AND "
                                    "user_name='%q' COLLATE NOCASE LIMIT 1)",
                                    kUserView, domain_idx, user_name.c_str()),
                    cell) &&
         cell == "1";
}

bool DomainUser::GetDomainUsersCount(DomainDBFilter& filter, int& count) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kUserView);
  own.SetSelect("count(distinct uid)");
  std::string cell;
  return SelectCell(handler_, own.ComposeQueryCmd(), cell) && ReadInt(cell, count);
}

bool DomainUser::GetDistinctUIDs(DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kUserView);
  return SelectUIDs(handler_, own.ComposeDistinctUIDQueryCmd(), 0, uids);
}

bool DomainUser::ListDomainUsers(DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users,
                                 const bool& with_group_control) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kUserView);
  std::vector<unsigned int> uids;
  if (!GetDistinctUIDs(own, uids)) {
    LOG_ERROR("Failed to _GetDistinctUIDs");
    return false;
  }
  if (uids.empty()) {
    return true;
  }
  Rows rows;
  if (!Select(handler_, own.ComposeDomainUserListQueryCmd(uids), 6, rows)) {
    return false;
  }
  std::vector<RECORD::DomainUser> alias_rows;
  alias_rows.reserve(rows.size());
  for (const Row& row : rows) {
    if (!ReadDomainUser(row, alias_rows)) {
      return false;
    }
  }
  if (with_group_control && !_CheckUnderControl(alias_rows)) {
    LOG_ERROR("Failed to _CheckUnderControl");
    return false;
  }
  _MergeDomainUsers(alias_rows, users);
  return true;
}

bool DomainUser::List(const int& domain_idx, std::vector<unsigned int>& uids) {
  DomainDBFilter filter = WholeDomains({domain_idx});
  return GetDistinctUIDs(filter, uids);
}

bool DomainUser::List(const std::vector<int>& domain_idxs,
                      std::map<int, std::unordered_set<unsigned int>>& uids_by_domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              "SELECT DISTINCT domain_idx, uid FROM domain_user_view WHERE role IS NOT NULL AND "
              "domain_idx IN (" +
                  BASE::Join(domain_idxs, ",") + ")",
              2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    unsigned int uid = 0;
    if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
      return false;
    }
    uids_by_domain[domain_idx].insert(uid);
  }
  return true;
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

bool DomainUser::GetAliasUsers(const int& domain_idx, const std::string& alias,
                               std::vector<RECORD::DomainUserAlias>& aliases) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = std::string("SELECT * FROM ") + kAliasTable +
                          " WHERE domain_idx=" + std::to_string(domain_idx) +
                          " AND account_alias='" + alias + "' COLLATE NOCASE";
  Rows rows;
  if (!Select(handler_, sql, 4, rows)) {
    return false;
  }
  return std::all_of(rows.begin(), rows.end(),
                     [&aliases](const Row& row) { return ReadAlias(row, aliases); });
}

bool DomainUser::GetUserAliases(const int& domain_idx, const unsigned int& uid,
                                std::vector<std::string>& aliases) {
  if (!IsOpen(status_)) {
    return false;
  }
  return SelectTexts(handler_,
                     FormatStatement("SELECT account_alias FROM %q WHERE domain_idx = %d AND uid = "
                                     "%u ORDER BY rowid",
                                     kAliasTable, domain_idx, uid),
                     aliases);
}

bool DomainUser::GetUserAliases(const int& domain_idx, const std::string& user_name,
                                std::vector<std::string>& aliases) {
  if (!IsOpen(status_)) {
    return false;
  }
  return SelectTexts(
      handler_,
      FormatStatement("SELECT account_alias FROM %q WHERE domain_idx = %d AND uid IN (SELECT uid "
                      "FROM user_table WHERE user_name = '%q' COLLATE NOCASE) ORDER BY rowid",
                      kAliasTable, domain_idx, user_name.c_str()),
      aliases);
}

bool DomainUser::GetAllUserAliases(
    const int& domain_idx,
    std::unordered_map<std::string, std::vector<std::string>>& aliases_by_user) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              FormatStatement("SELECT user_name, account_alias FROM %q AS a INNER JOIN user_table "
                              "ON a.uid = user_table.uid WHERE domain_idx = %d ORDER BY a.rowid",
                              kAliasTable, domain_idx),
              2, rows)) {
    return false;
  }
  aliases_by_user.clear();
  for (const Row& row : rows) {
    aliases_by_user[BASE::ToLowerAscii(row[0])].push_back(row[1]);
  }
  return true;
}

bool DomainUser::GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_, std::string("SELECT * FROM ") + kRoleTable + " WHERE is_auto_added = 1;", 4,
              rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    unsigned int uid = 0;
    if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
      return false;
    }
    roles.emplace_back(domain_idx, uid, row[2], ReadFlag(row[3]));
  }
  return true;
}

bool DomainUser::FindBeingEffectedGroups(const int& domain_idx, const unsigned int& uid,
                                         std::vector<unsigned int>& gids) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = std::string("SELECT * FROM ") + kEffectedView +
                          " WHERE domain_idx = " + std::to_string(domain_idx) +
                          " AND uid = " + std::to_string(uid) + ";";
  return SelectGIDs(handler_, sql, 1, gids);
}

bool DomainUser::FindBeingEffectedGroups(
    const int& domain_idx, const std::vector<unsigned int>& uids,
    std::map<unsigned int, std::vector<unsigned int>>& gids_by_uid) {
  if (!IsOpen(status_)) {
    return false;
  }
  // By uid the database looks every user up in every group of the domain; for more than a few
  // users it is told ("+") to go through the members of the groups instead.
  const char* const uid_column = uids.size() > kFewUsers ? "+uid" : "uid";
  const std::string sql = std::string("SELECT uid, gid FROM ") + kEffectedView +
                          " WHERE domain_idx = " + std::to_string(domain_idx) + " AND " +
                          uid_column + " IN (" + BASE::Join(uids, ",") + ");";
  Rows rows;
  if (!Select(handler_, sql, 2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    unsigned int uid = 0;
    unsigned int gid = 0;
    if (!ReadUID(row[0], uid) || !ReadGID(row[1], gid)) {
      return false;
    }
    gids_by_uid[uid].push_back(gid);
  }
  return true;
}

bool DomainUser::GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = FormatStatement(
      "SELECT %q.%q AS domain_idx, %q.%q AS uid FROM %q INNER JOIN %q WHERE %q.%q = %q.%q AND "
      "%q.%q = %q.%q AND %q.%q IS NULL",
      kAliasTable, "domain_idx", kAliasTable, "uid", kAliasTable, kUserView, kAliasTable,
      "domain_idx", kUserView, "domain_idx", kAliasTable, "uid", kUserView, "uid", kUserView,
      "role");
  Rows rows;
  if (!Select(handler_, sql, 2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    unsigned int uid = 0;
    if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
      return false;
    }
    uids_by_domain[domain_idx].push_back(uid);
  }
  return true;
}

bool DomainUser::ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails) {
  if (!IsOpen(status_)) {
    return false;
  }
  return SelectTexts(handler_,
                     FormatStatement("SELECT DISTINCT account_alias COLLATE NOCASE AS email FROM "
                                     "domain_user_alias_table WHERE is_duplicated = 1 AND "
                                     "domain_idx = %d",
                                     domain_idx),
                     emails);
}

bool DomainUser::GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::vector<unsigned int> removed;
  const bool read = SelectUIDs(handler_,
                               FormatStatement("SELECT DISTINCT(%q) FROM %q WHERE domain_idx=%d ",
                                               "uid", kRemovedTable, domain_idx),
                               0, removed);
  uids.insert(removed.begin(), removed.end());
  return read;
}

// One read of the direct roles of all these users in place of one question per row.
bool DomainUser::_CheckUnderControl(std::vector<RECORD::DomainUser>& users) {
  std::set<int> domain_idxs;
  std::set<unsigned int> uids;
  for (const RECORD::DomainUser& user : users) {
    domain_idxs.insert(user.GetDomainIdx());
    uids.insert(user.GetUID());
  }
  const std::string sql =
      std::string("SELECT domain_idx, uid FROM ") + kRoleTable + " WHERE domain_idx IN (" +
      BASE::Join(std::vector<int>(domain_idxs.begin(), domain_idxs.end()), ",") + ") AND uid IN (" +
      BASE::Join(std::vector<unsigned int>(uids.begin(), uids.end()), ",") + ")";
  Rows rows;
  if (!Select(handler_, sql, 2, rows)) {
    return false;
  }
  std::set<std::pair<int, unsigned int>> own_roles;
  for (const Row& row : rows) {
    int domain_idx = 0;
    unsigned int uid = 0;
    if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], uid)) {
      return false;
    }
    own_roles.emplace(domain_idx, uid);
  }
  for (RECORD::DomainUser& user : users) {
    user.SetIsUnderGroupControl(own_roles.count({user.GetDomainIdx(), user.GetUID()}) == 0);
  }
  return true;
}

bool DomainUser::SetUsersRoles(const std::vector<RECORD::DomainUserRole>& roles) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const RECORD::DomainUserRole& role : roles) {
    if (role.IsValid()) {
      batch.Add(
          "REPLACE INTO  %q (domain_idx, uid, role, is_auto_added) VALUES ('%d', '%q', '%q', "
          "'%d');",
          kRoleTable, role.GetDomainIdx(), std::to_string(role.GetUID()).c_str(),
          role.GetRole().c_str(), role.IsAutoAdded() ? 1 : 0);
    }
  }
  return batch.Run(handler_, "fail to insert domain_to_user_role_table");
}

bool DomainUser::CreateUsersRoles(const std::vector<RECORD::DomainUserRole>& roles) {
  return SetUsersRoles(roles);
}

bool DomainUser::DeleteUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const auto& [domain_idx, uid] : pairs) {
    batch.Add("DELETE FROM %q WHERE domain_idx = '%d' AND uid = '%q'", kRoleTable, domain_idx,
              std::to_string(uid).c_str());
  }
  return batch.Run(handler_, "fail to delete domain_to_user_role_table");
}

bool DomainUser::DeleteUsersRoles(const int& domain_idx, const std::vector<unsigned int>& uids) {
  return IsOpen(status_) && DeleteUsers(handler_, kRoleTable, domain_idx, uids,
                                        "fail to delete domain_to_user_role_table");
}

bool DomainUser::CreateUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    if (alias.IsValid()) {
      AddAliasInsert(alias, batch);
    }
  }
  return batch.Run(handler_, "fail to insert domain_user_alias_table");
}

bool DomainUser::SetUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  std::set<std::pair<int, unsigned int>> emptied;
  std::vector<const RECORD::DomainUserAlias*> valid;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    if (!alias.IsValid()) {
      LOG_ERROR("invalid user_alias: [%s], skipped", alias.GetAccountAlias().c_str());
      continue;
    }
    valid.push_back(&alias);
    if (emptied.emplace(alias.GetDomainIdx(), alias.GetUID()).second) {
      batch.Add("DELETE FROM %q WHERE domain_idx = %d AND uid = %q;", kAliasTable,
                alias.GetDomainIdx(), std::to_string(alias.GetUID()).c_str());
    }
  }
  for (const RECORD::DomainUserAlias* alias : valid) {
    AddAliasInsert(*alias, batch);
  }
  return batch.Run(handler_, "fail to insert domain_to_user_real_table");
}

bool DomainUser::DeleteUsersAliases(const int& domain_idx, const std::vector<unsigned int>& uids) {
  return IsOpen(status_) && DeleteUsers(handler_, kAliasTable, domain_idx, uids,
                                        "fail to delete domain_to_user_real_table");
}

bool DomainUser::RemoveUsersFromDomainGroups(
    const std::vector<std::tuple<int, unsigned int, unsigned int>>& removals) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const auto& [domain_idx, gid, uid] : removals) {
    batch.Add("REPLACE INTO %q (domain_idx, gid, uid) VALUES ('%d', '%q', '%q');", kRemovedTable,
              domain_idx, std::to_string(gid).c_str(), std::to_string(uid).c_str());
  }
  return batch.Run(handler_, "fail to delete domain_to_group_role_table");
}

bool DomainUser::DeleteRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& uids) {
  return IsOpen(status_) && DeleteUsers(handler_, kRemovedTable, domain_idx, uids,
                                        "fail to delete domain_to_group_role_table");
}

}  // namespace MDOMAIN::DB
