// The statements of the mirrored groups and their members.
#include "lib-domain/db/group.h"

#include <algorithm>
#include <cstddef>
#include <list>
#include <optional>

#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/mirror_batch.h"
#include "lib-domain/db/statement.h"
#include "lib-domain/db/user.h"
#include "platform/include/sqlite.h"

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
// Of other types the update above decides.
constexpr const char* kSelectPlain =
    "SELECT gid, group_name, group_desc FROM group_table WHERE typeof(group_name) = 'text' AND "
    "typeof(group_desc) = 'text' AND gid BETWEEN 0 AND 4294967295 ORDER BY gid";
constexpr const char* kDelete = "DELETE FROM group_table WHERE gid IN (%q)";

constexpr const char* kSelectMembers =
    "SELECT * FROM group_to_user_table WHERE gid = %u LIMIT -1 OFFSET 0";
// In the order of the primary key, which the statement for one group gives, too.
constexpr const char* kSelectAllMembers = "SELECT * FROM group_to_user_table ORDER BY gid, uid";
constexpr const char* kInsertMember =
    "REPLACE INTO  group_to_user_table (gid, uid) VALUES ('%u', '%u');";
// For rows that are not there. A REPLACE would keep a copy of every page that it writes to, in case
// it has to be taken back.
constexpr const char* kInsertNewMember =
    "INSERT INTO group_to_user_table (gid, uid) VALUES ('%u', '%u')";
constexpr const char* kDeleteSomeMembers =
    "DELETE FROM group_to_user_table WHERE gid = %u AND uid IN (%q)";
constexpr const char* kDeleteMembers = "DELETE FROM group_to_user_table WHERE gid IN (%q)";

// Asking which groups differ costs more than writing so many.
constexpr size_t kFewGroups = 3;

bool IsBefore(const RECORD::Group& group, const RECORD::Group& other) {
  return group.GetGID() < other.GetGID();
}

// The rows whose texts can be compared, by gid. Logs nothing.
std::vector<RECORD::Group> ReadPlain(DomainDBHandler& handler) {
  std::vector<RECORD::Group> rows;
  const bool is_read = Database(&handler, 0).TryForEachRow(kSelectPlain, [&rows](const Cells& row) {
    rows.emplace_back(static_cast<unsigned int>(row.Int64(0)), row.Text(1), row.Text(2));
  });
  if (!is_read) {
    rows.clear();
  }
  return rows;
}

// Null where others may write.
sqlite3* WritingConnection() {
  const DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return handler != nullptr && sqlite3_txn_state(handler->getDB(), "main") == SQLITE_TXN_WRITE
             ? handler->getDB()
             : nullptr;
}

// What was read, of which connection, and how many rows that had changed by then. A rollback never
// brings back what was changed before the reading: nothing is read within a batch, which alone is
// rolled back, and a lost transaction ends the writing.
struct AnswerOfThen {
  const sqlite3* db = nullptr;
  int changes = 0;
  Memberships memberships;
};
std::optional<AnswerOfThen>& Answer() {  // none where nobody wants it kept
  static auto& answer = *new std::optional<AnswerOfThen>();
  return answer;
}

void AddNewMembers(const Memberships& members, StatementBatch& batch) {
  batch.AddEach(kInsertNewMember, members,
                [](const auto& pair) { return std::make_tuple(pair.first, pair.second); });
}

void AddLeaving(const MemberDifference& difference, StatementBatch& batch) {
  if (!difference.left.empty()) {
    batch.AddWithIds(kDeleteSomeMembers, difference.left, difference.gid);
  }
}

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

bool HasRepeats(const std::vector<RECORD::Group>& groups) {
  std::vector<unsigned int> gids;
  gids.reserve(groups.size());
  for (const RECORD::Group& group : groups) {
    gids.push_back(group.GetGID());
  }
  std::sort(gids.begin(), gids.end());
  return std::adjacent_find(gids.begin(), gids.end()) != gids.end();
}

// Without those that are stored like this already. One group stays, so that there is something to
// run: it tells whether the database can be written, and nobody else writes from then on.
std::vector<RECORD::Group> WithoutStored(const std::vector<RECORD::Group>& groups,
                                         const std::vector<RECORD::Group>& rows) {
  std::vector<RECORD::Group> others;
  auto row = rows.begin();
  for (const RECORD::Group& group : groups) {
    if (row == rows.end() || row->GetGID() != group.GetGID()) {
      row = std::lower_bound(rows.begin(), rows.end(), group, IsBefore);
    }
    const bool is_stored = row != rows.end() && row->GetGID() == group.GetGID() &&
                           row->GetGroupName() == group.GetGroupName() &&
                           row->GetGroupDesc() == group.GetGroupDesc();
    if (!is_stored) {
      others.push_back(group);
    }
    row += is_stored ? 1 : 0;
  }
  const auto valid = std::find_if(groups.begin(), groups.end(),
                                  [](const RECORD::Group& group) { return group.IsValid(); });
  if (others.empty() && valid != groups.end()) {
    others.push_back(*valid);
  }
  return others;
}

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
  return _DomainDb().Query<Columns<Skipped, Uid>>(
      Sql(kSelectMembers, gid),
      [&uids](std::nullptr_t /*gid*/, unsigned int uid) { uids.push_back(uid); });
}

bool Group::ListAllGroupToUsers(std::map<unsigned int, std::vector<unsigned int>>& uids_by_gid) {
  auto last = uids_by_gid.end();
  return _DomainDb().Query<Columns<Gid, Uid>>(
      kSelectAllMembers, [&uids_by_gid, &last](unsigned int gid, unsigned int uid) {
        if (last == uids_by_gid.end() || last->first != gid) {
          last = uids_by_gid.try_emplace(gid).first;
        }
        last->second.push_back(uid);
      });
}

bool Group::Create(const std::vector<RECORD::Group>& groups) {
  StatementBatch batch;
  batch.AddValid(kInsert, groups, [](const RECORD::Group& group) {
    return std::make_tuple(group.GetGID(), group.GetGroupName(), group.GetGroupDesc());
  });
  return _DomainDb().Run(batch, "fail to insert group_table");
}

bool Group::Set(const std::vector<RECORD::Group>& groups) {
  const bool are_compared =
      groups.size() > kFewGroups && handler_ != nullptr && !HasRepeats(groups);
  const std::vector<RECORD::Group> differing =
      are_compared ? WithoutStored(groups, ReadPlain(*handler_)) : groups;
  StatementBatch batch;
  batch.AddValid(kUpdate, differing, [](const RECORD::Group& group) {
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

bool INTERNAL::CreateMembers(
    const std::vector<RECORD::User>& users,
    const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs) {
  StatementBatch batch;
  AddUsers(users, batch);
  AddNewMembers(gid_uid_pairs, batch);
  return DomainDb().TryRun(batch);
}

bool INTERNAL::IsWriting() {
  return WritingConnection() != nullptr;
}

bool INTERNAL::DeleteMembers(const MemberDifference& difference) {
  StatementBatch batch;
  AddLeaving(difference, batch);
  return DomainDb().Run(batch, "fail to delete from group_to_user_table");
}

bool INTERNAL::TryWriteMembers(const std::vector<MemberDifference>& differences) {
  StatementBatch batch;
  std::list<Memberships> runs(1);  // of rows between deletions, which the batch does not copy
  for (const MemberDifference& difference : differences) {
    if (!difference.left.empty()) {
      AddNewMembers(runs.back(), batch);
      AddLeaving(difference, batch);
      runs.emplace_back();
    }
    runs.back().insert(runs.back().end(), difference.joined.begin(), difference.joined.end());
  }
  AddNewMembers(runs.back(), batch);
  return DomainDb().TryRun(batch);
}

INTERNAL::MembershipsOnce::MembershipsOnce() {
  Answer() = AnswerOfThen();
}

INTERNAL::MembershipsOnce::~MembershipsOnce() {
  Answer().reset();
}

bool INTERNAL::TryListMemberships(Memberships& memberships) {
  sqlite3* const db = WritingConnection();
  std::optional<AnswerOfThen>& answer = Answer();
  if (answer && db != nullptr && answer->db == db && answer->changes == sqlite3_total_changes(db)) {
    memberships = answer->memberships;
    return true;
  }
  bool are_plain = true;
  const auto keep = [&](const Cells& row) {
    auto& [gid, uid] = memberships.emplace_back();
    are_plain = are_plain && ReadPlainId(row, 0, gid) && ReadPlainId(row, 1, uid);
  };
  const bool is_read = DomainDb().TryForEachRow(Sql(kSelectAllMembers), keep) && are_plain;
  if (answer && is_read && db != nullptr) {
    *answer = {db, sqlite3_total_changes(db), memberships};
  }
  return is_read;
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
