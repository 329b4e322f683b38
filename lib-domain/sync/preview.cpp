// The reads and the comparison of a refresh, without its writes.
#include "lib-domain/sync/preview.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/sync/mirror_difference.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {
namespace {

constexpr const char* kUids = "SELECT uid FROM user_table ORDER BY uid";
constexpr const char* kGids = "SELECT gid FROM group_table ORDER BY gid";

bool ReadIds(DB::INTERNAL::Reader& reader, const char* sql, std::vector<unsigned int>& ids) {
  return reader.ForEachRow(sql, [&ids](const korvmailserver::Statement& row) {
    unsigned int id = 0;
    if (BASE::ConvertToUID(row.Text(0), id)) {
      ids.push_back(id);
    }
  });
}

template <typename Record>
void Compare(const std::vector<Record>& accounts, const std::vector<unsigned int>& mirrored,
             bool complete, std::vector<std::string>& new_names,
             std::vector<unsigned int>& deleted_ids) {
  const auto difference = INTERNAL::CompareWithMirror(accounts, mirrored);
  new_names = INTERNAL::NamesOf(difference.created);
  if (complete) {
    deleted_ids = difference.deleted_ids;
  }
}

}  // namespace

bool PreviewRefresh(RefreshSummary& summary) {
  summary = RefreshSummary();
  const korvmailserver::AccountSnapshot snapshot;
  std::vector<RECORD::User> users;
  std::vector<RECORD::Group> groups;
  std::string path;
  if (!TryToGetAllZelmUsers(users, summary.users_complete) ||
      !TryToGetAllZelmGroups(groups, summary.groups_complete) ||
      !GetUserGroupDomainConfigPath(path)) {
    return false;
  }
  DB::INTERNAL::Reader reader(path);
  std::vector<unsigned int> uids;
  std::vector<unsigned int> gids;
  if (!reader.Open() || !ReadIds(reader, kUids, uids) || !ReadIds(reader, kGids, gids)) {
    return false;
  }
  summary.users = users.size();
  summary.groups = groups.size();
  Compare(users, uids, summary.users_complete, summary.new_users, summary.deleted_uids);
  Compare(groups, gids, summary.groups_complete, summary.new_groups, summary.deleted_gids);
  return true;
}

}  // namespace MDOMAIN::UTILS
