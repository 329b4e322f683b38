// The statements of the groups of a domain and of their members' standing in it.
#include "lib-domain/db/domain_group.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

const char* const kRoleTable = "domain_group_role_table";
const char* const kRemovedTable = "domain_group_removed_user_table";
const char* const kGroupView = "domain_group_view";
const char* const kUserView = "domain_user_view";

constexpr int kMemberOfDomain = 0;
constexpr int kNotMemberOfDomain = 2;

bool DeleteGroups(DomainDBHandler* handler, const char* table, int domain_idx,
                  const std::vector<unsigned int>& gids, SourceHere here = SourceHere::Now()) {
  StatementBatch batch;
  for (const std::string& piece : JoinIdsInPieces(gids)) {
    batch.Add("DELETE FROM %q WHERE domain_idx = '%d' AND gid IN (%q)", table, domain_idx,
              piece.c_str());
  }
  return batch.Run(handler, "fail to delete domain_to_group_role_table", here);
}

}  // namespace

DomainGroup::DomainGroup()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ ? 0 : -1) {}

bool DomainGroup::SetGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const RECORD::DomainGroupRole& role : roles) {
    if (role.IsValid()) {
      batch.Add("REPLACE INTO  %q (domain_idx, gid, role) VALUES ('%d', '%q', '%q');", kRoleTable,
                role.GetDomainIdx(), std::to_string(role.GetGID()).c_str(), role.GetRole().c_str());
    }
  }
  return batch.Run(handler_, "fail to Set domain_to_group_role_table");
}

bool DomainGroup::CreateGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles) {
  return SetGroupsRoles(roles);
}

bool DomainGroup::DeleteGroupsRoles(const int& domain_idx, const std::vector<unsigned int>& gids) {
  return IsOpen(status_) && DeleteGroups(handler_, kRoleTable, domain_idx, gids);
}

bool DomainGroup::DeleteMemberRemovedRecord(const int& domain_idx,
                                            const std::vector<unsigned int>& gids) {
  return IsOpen(status_) && DeleteGroups(handler_, kRemovedTable, domain_idx, gids);
}

bool DomainGroup::IsExists(const int& domain_idx, const unsigned int& gid) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::string cell;
  return SelectCell(handler_,
                    FormatStatement(
                        "SELECT EXISTS (SELECT 1 FROM %q WHERE domain_idx=%d AND gid=%u LIMIT 1)",
                        kGroupView, domain_idx, gid),
                    cell) &&
         cell == "1";
}

bool DomainGroup::GetResultGroupRole(const int& domain_idx, const std::vector<unsigned int>& gids,
                                     std::string& role) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::string smallest;
  for (const std::string& piece : JoinIdsInPieces(gids)) {
    std::string cell;
    if (!SelectCell(handler_,
                    FormatStatement("SELECT MIN(role) FROM %q WHERE domain_idx = %d AND gid IN "
                                    "(%q)",
                                    kGroupView, domain_idx, piece.c_str()),
                    cell)) {
      return false;
    }
    if (smallest.empty() || (!cell.empty() && cell < smallest)) {
      smallest = cell;
    }
  }
  role = smallest;
  return true;
}

bool DomainGroup::GetResultGroupRoles(const int& domain_idx,
                                      std::unordered_map<unsigned int, std::string>& role_by_uid) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              FormatStatement("SELECT group_to_user_table.uid, MIN(%q.role) FROM %q INNER JOIN "
                              "group_to_user_table ON %q.gid = group_to_user_table.gid WHERE "
                              "%q.domain_idx = %d GROUP BY group_to_user_table.uid",
                              kGroupView, kGroupView, kGroupView, kGroupView, domain_idx),
              2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    unsigned int uid = 0;
    if (!ReadUID(row[0], uid)) {
      return false;
    }
    role_by_uid[uid] = row[1];
  }
  return true;
}

bool DomainGroup::GetDomainGroupsCount(DomainDBFilter& filter, int& count) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kGroupView);
  own.SetSelect("count(distinct gid)");
  std::string cell;
  return SelectCell(handler_, own.ComposeQueryCmd(), cell) && ReadInt(cell, count);
}

bool DomainGroup::ListDomainGroups(DomainDBFilter& filter,
                                   std::vector<RECORD::DomainGroup>& groups) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kGroupView);
  Rows rows;
  if (!Select(handler_, own.ComposeQueryCmd(), 5, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    unsigned int gid = 0;
    if (!ReadInt(row[0], domain_idx) || !ReadUID(row[1], gid)) {
      return false;
    }
    RECORD::DomainGroup group(domain_idx, gid, row[2], row[3], row[4]);
    if (group.IsValid()) {
      groups.push_back(std::move(group));
    }
  }
  return true;
}

bool DomainGroup::CheckSingleMemberStatus(const int& domain_idx, const unsigned int& /*gid*/,
                                          const unsigned int& uid, int& status) {
  if (!IsOpen(status_)) {
    return false;
  }
  bool exists = false;
  if (!_CheckMemberExists(domain_idx, uid, exists)) {
    LOG_ERROR("Failed to _CheckMemberExists, domain_id: [%d], uid: [%u]", domain_idx, uid);
    return false;
  }
  status = exists ? kMemberOfDomain : kNotMemberOfDomain;
  return true;
}

// A row of domain_user_view is a row of the alias table, whose users are all mirrored. Reading the
// table looks at this group's members only; the view works out everybody's role first.
bool DomainGroup::ListMembersInDomain(const int& domain_idx, const unsigned int& gid,
                                      std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  return SelectUIDs(handler_,
                    FormatStatement("SELECT uid FROM group_to_user_table AS member WHERE gid = %u "
                                    "AND EXISTS (SELECT 1 FROM domain_user_alias_table AS alias "
                                    "WHERE alias.domain_idx = %d AND alias.uid = member.uid)",
                                    gid, domain_idx),
                    0, uids);
}

bool DomainGroup::FindUsersBelongToGIDsOnly(const int& domain_idx,
                                            const std::vector<unsigned int>& gids,
                                            std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string list = BASE::Join(gids, ",");
  const std::string sql =
      "WITH belongs_to_me AS (SELECT * FROM group_to_user_table WHERE gid IN (" + list +
      ") ),belongs_to_others AS (SELECT * FROM domain_group_view LEFT JOIN group_to_user_table ON "
      "domain_group_view.gid = group_to_user_table.gid WHERE domain_group_view.gid NOT IN (" +
      list + ") AND domain_group_view.domain_idx = " + std::to_string(domain_idx) +
      ") SELECT belongs_to_me.uid FROM belongs_to_me LEFT JOIN belongs_to_others ON "
      "belongs_to_me.uid = belongs_to_others.uid WHERE belongs_to_others.uid IS NULL;";
  return SelectUIDs(handler_, sql, 0, uids);
}

bool DomainGroup::FindUsersEffectedByGIDsOnly(const int& domain_idx,
                                              const std::vector<unsigned int>& gids,
                                              std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string list = BASE::Join(gids, ",");
  const std::string idx = std::to_string(domain_idx);
  const std::string sql =
      "WITH effected_by_me AS (SELECT * FROM domain_group_effected_user_view WHERE domain_idx = " +
      idx + " AND gid IN (" + list +
      ") ),effected_by_others AS (SELECT * FROM domain_group_effected_user_view WHERE domain_idx "
      "= " +
      idx + " AND gid NOT IN (" + list +
      ")) SELECT effected_by_me.uid FROM effected_by_me LEFT JOIN effected_by_others ON "
      "effected_by_me.uid = effected_by_others.uid WHERE effected_by_others.uid IS NULL;";
  return SelectUIDs(handler_, sql, 0, uids);
}

bool DomainGroup::_CheckMemberExists(const int& domain_idx, const unsigned int& uid, bool& exists) {
  std::string cell;
  if (!SelectCell(
          handler_,
          FormatStatement("SELECT EXISTS (SELECT 1 FROM %q WHERE uid=%u AND domain_idx=%d LIMIT 1)",
                          kUserView, uid, domain_idx),
          cell)) {
    return false;
  }
  exists = cell == "1";
  return true;
}

}  // namespace MDOMAIN::DB
