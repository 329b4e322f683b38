// The statements of the mirrored groups and their members.
#include "lib-domain/db/group.h"

#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

// Columns of group_table: gid, name, description.
using GroupColumns = Columns<Gid, Text, Text>;
constexpr size_t kNameColumn = 1;

constexpr const char* kSelectGroup = "SELECT * FROM group_table WHERE gid='%u'";
constexpr const char* kInsert =
    "INSERT OR IGNORE INTO  group_table (gid, group_name, group_desc) VALUES ('%u', '%q', '%q');";
// A row that is the same already is not written. The values stand once, as a statement has a limit.
constexpr const char* kUpdate =
    "UPDATE group_table SET group_name = new.name, group_desc = new.desc FROM (SELECT '%q' AS "
    "name, "
    "'%q' AS desc) AS new WHERE gid = %u AND (group_name IS NOT new.name OR group_desc IS NOT "
    "new.desc)";
constexpr const char* kDelete = "DELETE FROM group_table WHERE gid IN (%q)";

constexpr const char* kSelectMembers =
    "SELECT * FROM group_to_user_table WHERE gid = %u LIMIT -1 OFFSET 0";
// In the order of the primary key, which the statement for one group gives, too.
constexpr const char* kSelectAllMembers = "SELECT * FROM group_to_user_table ORDER BY gid, uid";
constexpr const char* kInsertMember =
    "REPLACE INTO  group_to_user_table (gid, uid) VALUES ('%u', '%u');";
constexpr const char* kDeleteMembers = "DELETE FROM group_to_user_table WHERE gid IN (%q)";

}  // namespace

Group::Group()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database Group::_DomainDb() const {
  return {handler_, status_};
}

bool Group::GetName(const unsigned int& gid, std::string& name) {
  return _DomainDb().GetText(Sql(kSelectGroup, gid), kNameColumn, name);
}

bool Group::ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids) {
  return _DomainDb().Query<Columns<Text, Uid>>(
      Sql(kSelectMembers, gid),
      [&uids](const std::string& /*gid*/, unsigned int uid) { uids.push_back(uid); });
}

bool Group::ListAllGroupToUsers(std::map<unsigned int, std::vector<unsigned int>>& uids_by_gid) {
  return _DomainDb().Query<Columns<Gid, Uid>>(
      kSelectAllMembers,
      [&uids_by_gid](unsigned int gid, unsigned int uid) { uids_by_gid[gid].push_back(uid); });
}

bool Group::Create(const std::vector<RECORD::Group>& groups) {
  StatementBatch batch;
  batch.AddValid(kInsert, groups, [](const RECORD::Group& group) {
    return std::make_tuple(group.GetGID(), group.GetGroupName(), group.GetGroupDesc());
  });
  return _DomainDb().Run(batch, "fail to insert group_table");
}

bool Group::Set(const std::vector<RECORD::Group>& groups) {
  StatementBatch batch;
  batch.AddValid(kUpdate, groups, [](const RECORD::Group& group) {
    return std::make_tuple(group.GetGroupName(), group.GetGroupDesc(), group.GetGID());
  });
  return _DomainDb().Run(batch, "fail to update group_table");
}

bool Group::SetGroupToUsers(
    const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs) {
  StatementBatch batch;
  batch.AddEach(kInsertMember, gid_uid_pairs,
                [](const auto& pair) { return std::make_tuple(pair.first, pair.second); });
  return _DomainDb().Run(batch, "fail to update group_to_user_table");
}

bool Group::Delete(const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  batch.AddWithIds(kDelete, gids);
  return _DomainDb().Run(batch, "fail to delete group_table");
}

bool Group::DeleteGroupToUsers(const std::vector<unsigned int>& gids) {
  StatementBatch batch;
  batch.AddWithIds(kDeleteMembers, gids);
  return _DomainDb().Run(batch, "fail to delete from group_to_user_table");
}

bool Group::List(const GroupDBFilter& filter, std::vector<RECORD::Group>& groups) {
  return _DomainDb().IsOpen() && _DomainDb().Append<GroupColumns>(ComposeQueryCmd(filter), groups);
}

}  // namespace MDOMAIN::DB
