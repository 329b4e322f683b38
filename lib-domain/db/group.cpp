// The statements of the mirrored groups and their members.
#include "lib-domain/db/group.h"

#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

const char* const kGroupTable = "group_table";
const char* const kMemberTable = "group_to_user_table";

}  // namespace

Group::Group() : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ ? 0 : -1) {}

bool Group::GetName(const unsigned int& gid, std::string& name) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              FormatStatement("SELECT * FROM %q WHERE gid='%q'", kGroupTable,
                              std::to_string(gid).c_str()),
              2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    name = row[1];
  }
  return true;
}

bool Group::ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  return SelectUIDs(handler_,
                    std::string("SELECT * FROM ") + kMemberTable +
                        " WHERE gid = " + std::to_string(gid) + " LIMIT -1 OFFSET 0",
                    1, uids);
}

bool Group::ListAllGroupToUsers(std::map<unsigned int, std::vector<unsigned int>>& uids_by_gid) {
  if (!IsOpen(status_)) {
    return false;
  }
  // The order of the primary key, in which the question for one group is answered.
  Rows rows;
  if (!Select(handler_, std::string("SELECT * FROM ") + kMemberTable + " ORDER BY gid, uid", 2,
              rows)) {
    return false;
  }
  for (const Row& row : rows) {
    unsigned int gid = 0;
    unsigned int uid = 0;
    if (!ReadGID(row[0], gid) || !ReadUID(row[1], uid)) {
      return false;
    }
    uids_by_gid[gid].push_back(uid);
  }
  return true;
}

bool Group::Create(const std::vector<RECORD::Group>& groups) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const RECORD::Group& group : groups) {
    if (group.IsValid()) {
      batch.Add(
          "INSERT OR IGNORE INTO  %q (gid, group_name, group_desc) VALUES ('%q', '%q', '%q');",
          kGroupTable, std::to_string(group.GetGID()).c_str(), group.GetGroupName().c_str(),
          group.GetGroupDesc().c_str());
    }
  }
  return batch.Run(handler_, "fail to insert group_table");
}

bool Group::Set(const std::vector<RECORD::Group>& groups) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const RECORD::Group& group : groups) {
    if (group.IsValid()) {
      batch.Add("UPDATE %q SET group_name = '%q', group_desc = '%q' WHERE gid = %q", kGroupTable,
                group.GetGroupName().c_str(), group.GetGroupDesc().c_str(),
                std::to_string(group.GetGID()).c_str());
    }
  }
  return batch.Run(handler_, "fail to update group_table");
}

bool Group::SetGroupToUsers(
    const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const auto& [gid, uid] : gid_uid_pairs) {
    batch.Add("REPLACE INTO  %q (gid, uid) VALUES ('%q', '%q');", kMemberTable,
              std::to_string(gid).c_str(), std::to_string(uid).c_str());
  }
  return batch.Run(handler_, "fail to update group_to_user_table");
}

bool Group::Delete(const std::vector<unsigned int>& gids) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const std::string& piece : JoinIdsInPieces(gids)) {
    batch.Add("DELETE FROM %q WHERE gid IN (%q)", kGroupTable, piece.c_str());
  }
  return batch.Run(handler_, "fail to delete group_table");
}

bool Group::DeleteGroupToUsers(const std::vector<unsigned int>& gids) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const std::string& piece : JoinIdsInPieces(gids)) {
    batch.Add("DELETE FROM %q WHERE gid IN (%q)", kMemberTable, piece.c_str());
  }
  return batch.Run(handler_, "fail to delete from group_to_user_table");
}

bool Group::List(const GroupDBFilter& filter, std::vector<RECORD::Group>& groups) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_, ComposeQueryCmd(filter), 3, rows)) {
    return false;
  }
  groups.reserve(groups.size() + rows.size());
  for (const Row& row : rows) {
    unsigned int gid = 0;
    if (!ReadGID(row[0], gid)) {
      return false;
    }
    groups.emplace_back(gid, row[1], row[2]);
  }
  return true;
}

}  // namespace MDOMAIN::DB
