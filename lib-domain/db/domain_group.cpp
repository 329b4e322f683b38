// The statements of the groups of a domain and of what membership brings.
#include "lib-domain/db/domain_group.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;
using korvmailserver::FormatSql;

namespace {

constexpr const char* kView = "domain_group_view";
// Columns of domain_group_view: domain index, gid, name, description, role. The log calls a bad
// gid a bad uid.
using GroupColumns = Columns<Int, Uid, Text, Text, Text>;

constexpr const char* kReplaceRole =
    "REPLACE INTO  domain_group_role_table (domain_idx, gid, role) VALUES ('%d', '%u', '%q');";
constexpr const char* kDeleteRoles =
    "DELETE FROM domain_group_role_table WHERE domain_idx = '%d' AND gid IN (%q)";
constexpr const char* kDeleteRemovals =
    "DELETE FROM domain_group_removed_user_table WHERE domain_idx = '%d' AND gid IN (%q)";

constexpr const char* kExists =
    "SELECT EXISTS (SELECT 1 FROM domain_group_view WHERE domain_idx=%d AND gid=%u LIMIT 1)";
constexpr const char* kSelectSmallestRole =
    "SELECT MIN(role) FROM domain_group_view WHERE domain_idx = %d AND gid IN (%q)";
constexpr const char* kSelectSmallestRoles =
    "SELECT group_to_user_table.uid, MIN(domain_group_view.role) FROM domain_group_view INNER JOIN "
    "group_to_user_table ON domain_group_view.gid = group_to_user_table.gid WHERE "
    "domain_group_view.domain_idx = %d GROUP BY group_to_user_table.uid";
constexpr const char* kSelectSmallestRolesOf =
    "SELECT member.uid, MIN(domain_group_view.role) FROM group_to_user_table AS member CROSS JOIN "
    "domain_group_view ON domain_group_view.gid = member.gid WHERE domain_group_view.domain_idx = "
    "%d AND member.uid IN (%s) GROUP BY member.uid";

constexpr const char* kHasMember =
    "SELECT EXISTS (SELECT 1 FROM domain_user_view WHERE uid=%u AND domain_idx=%d LIMIT 1)";
// A row of domain_user_view is a row of the alias table, whose users are all mirrored. Reading the
// table looks at this group's members only; the view works out the roles of all users first.
constexpr const char* kSelectMembersInDomain =
    "SELECT uid FROM group_to_user_table AS member WHERE gid = %u AND EXISTS (SELECT 1 FROM "
    "domain_user_alias_table AS alias WHERE alias.domain_idx = %d AND alias.uid = member.uid)";
// The gids, the gids again, the domain index.
constexpr const char* kSelectBelongingOnly =
    "WITH belongs_to_me AS (SELECT * FROM group_to_user_table WHERE gid IN (%s) "
    "),belongs_to_others AS (SELECT * FROM domain_group_view LEFT JOIN group_to_user_table ON "
    "domain_group_view.gid = group_to_user_table.gid WHERE domain_group_view.gid NOT IN (%s) AND "
    "domain_group_view.domain_idx = %d) SELECT belongs_to_me.uid FROM belongs_to_me LEFT JOIN "
    "belongs_to_others ON belongs_to_me.uid = belongs_to_others.uid WHERE belongs_to_others.uid IS "
    "NULL;";
// The same where each member's other groups are looked up by an index: the gids, the domain index,
// the gids again.
constexpr const char* kSelectBelongingOnlyByIndex =
    "SELECT member.uid FROM group_to_user_table AS member WHERE member.gid IN (%s) AND NOT EXISTS "
    "(SELECT 1 FROM group_to_user_table AS other CROSS JOIN domain_group_role_table AS granted ON "
    "granted.domain_idx = %d AND granted.gid = other.gid CROSS JOIN group_table ON group_table.gid "
    "= granted.gid WHERE other.uid = member.uid AND other.gid NOT IN (%s))";
// The domain index and the gids, both again.
constexpr const char* kSelectEffectedOnly =
    "WITH effected_by_me AS (SELECT * FROM domain_group_effected_user_view WHERE domain_idx = %d "
    "AND gid IN (%s) ),effected_by_others AS (SELECT * FROM domain_group_effected_user_view WHERE "
    "domain_idx = %d AND gid NOT IN (%s)) SELECT effected_by_me.uid FROM effected_by_me LEFT JOIN "
    "effected_by_others ON effected_by_me.uid = effected_by_others.uid WHERE "
    "effected_by_others.uid IS NULL;";

constexpr int kMemberOfDomain = 0;
constexpr int kNotMemberOfDomain = 2;

}  // namespace

DomainGroup::DomainGroup()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database DomainGroup::_DomainDb() const {
  return {handler_, status_};
}

bool DomainGroup::SetGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles) {
  StatementBatch batch;
  batch.AddValid(kReplaceRole, roles, [](const RECORD::DomainGroupRole& role) {
    return std::make_tuple(role.GetDomainIdx(), role.GetGID(), role.GetRole());
  });
  return _DomainDb().Run(batch, "fail to Set domain_to_group_role_table");
}

bool DomainGroup::CreateGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles) {
  return SetGroupsRoles(roles);
}

bool DomainGroup::DeleteGroupsRoles(const int& domain_idx, const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteRoles, gids, domain_idx);
  return _DomainDb().Run(batch, "fail to delete domain_to_group_role_table");
}

bool DomainGroup::DeleteMemberRemovedRecord(const int& domain_idx,
                                            const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteRemovals, gids, domain_idx);
  return _DomainDb().Run(batch, "fail to delete domain_to_group_role_table");
}

bool DomainGroup::IsExists(const int& domain_idx, const unsigned int& gid) {
  bool exists = false;
  return _DomainDb().GetExists(Sql(kExists, domain_idx, gid), exists) && exists;
}

bool DomainGroup::GetResultGroupRole(const int& domain_idx, const std::vector<unsigned int>& gids,
                                     std::string& role) {
  std::string smallest;
  for (const std::string& piece : JoinIdsInPieces(gids)) {
    std::string cell;
    if (!_DomainDb().GetText(FormatStatement(kSelectSmallestRole, domain_idx, piece.c_str()), 0,
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
  return _DomainDb().Query<Columns<Uid, Text>>(
      Sql(kSelectSmallestRoles, domain_idx),
      [&role_by_uid](unsigned int uid, std::string&& role) { role_by_uid[uid] = std::move(role); });
}

bool DomainGroup::GetResultGroupRolesOf(
    const int& domain_idx, const std::vector<unsigned int>& uids,
    std::unordered_map<unsigned int, std::string>& role_by_uid) {
  return _DomainDb().Query<Columns<Uid, Text>>(
      FormatStatement(kSelectSmallestRolesOf, domain_idx, BASE::Join(uids, ",").c_str()),
      [&role_by_uid](unsigned int uid, std::string&& role) { role_by_uid[uid] = std::move(role); });
}

bool DomainGroup::GetDomainGroupsCount(DomainDBFilter& filter, int& count) {
  return _DomainDb().GetCount(filter, kView, "count(distinct gid)", count);
}

bool DomainGroup::ListDomainGroups(DomainDBFilter& filter,
                                   std::vector<RECORD::DomainGroup>& groups) {
  DomainDBFilter own = filter;
  own.SetTableName(kView);
  return _DomainDb().Query<GroupColumns>(own.ComposeQueryCmd(), [&groups](auto&&... values) {
    RECORD::DomainGroup group(std::forward<decltype(values)>(values)...);
    if (group.IsValid()) {
      groups.push_back(std::move(group));
    }
  });
}

bool DomainGroup::CheckSingleMemberStatus(const int& domain_idx, const unsigned int& /*gid*/,
                                          const unsigned int& uid, int& status) {
  if (!_DomainDb().IsOpen()) {
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

bool DomainGroup::ListMembersInDomain(const int& domain_idx, const unsigned int& gid,
                                      std::vector<unsigned int>& uids) {
  return _DomainDb().Append<Columns<Uid>>(Sql(kSelectMembersInDomain, gid, domain_idx), uids);
}

bool DomainGroup::FindUsersBelongToGIDsOnly(const int& domain_idx,
                                            const std::vector<unsigned int>& gids,
                                            std::vector<unsigned int>& uids) {
  const std::string list = BASE::Join(gids, ",");
  const bool has_indexes = handler_ != nullptr && handler_->HasOwnViews();
  return _DomainDb().Append<Columns<Uid>>(
      has_indexes ? FormatSql(kSelectBelongingOnlyByIndex, list.c_str(), domain_idx, list.c_str())
                  : FormatSql(kSelectBelongingOnly, list.c_str(), list.c_str(), domain_idx),
      uids);
}

bool DomainGroup::FindUsersEffectedByGIDsOnly(const int& domain_idx,
                                              const std::vector<unsigned int>& gids,
                                              std::vector<unsigned int>& uids) {
  const std::string list = BASE::Join(gids, ",");
  return _DomainDb().Append<Columns<Uid>>(
      FormatSql(kSelectEffectedOnly, domain_idx, list.c_str(), domain_idx, list.c_str()), uids);
}

bool DomainGroup::_CheckMemberExists(const int& domain_idx, const unsigned int& uid, bool& exists) {
  return _DomainDb().GetExists(Sql(kHasMember, uid, domain_idx), exists);
}

}  // namespace MDOMAIN::DB
