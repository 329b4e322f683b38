// The reads and the comparison of a refresh, without its writes.
#include "lib-domain/sync/preview.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_user_internal.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/sync/mirror_difference.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {
namespace {

constexpr const char* kUsers = "SELECT uid, user_name FROM user_table ORDER BY uid";
constexpr const char* kGroups = "SELECT gid, group_name FROM group_table ORDER BY gid";
constexpr const char* kDomains = "SELECT domain_idx, domain_name FROM domain_table";
constexpr const char* kUserDomains =
    "SELECT domain_idx, uid, user_name, account_alias, role, is_duplicated FROM domain_user_view "
    "ORDER BY uid, domain_idx";

RECORD::User MakeRecord(unsigned int id, const std::string& name, const RECORD::User* /*kind*/) {
  return {id, name};
}
RECORD::Group MakeRecord(unsigned int id, const std::string& name, const RECORD::Group* /*kind*/) {
  return {id, name, ""};
}

template <typename Record>
bool ReadMirror(DB::INTERNAL::Reader& reader, const char* sql, std::vector<Record>& records) {
  return reader.ForEachRow(sql, [&records](const korvmailserver::Statement& row) {
    unsigned int id = 0;
    if (BASE::ConvertToUID(row.Text(0), id)) {
      records.push_back(MakeRecord(id, row.Text(1), static_cast<const Record*>(nullptr)));
    }
  });
}

// What the renamed users have, in all domains.
bool ReadWhatTheyKeep(DB::INTERNAL::Reader& reader, RefreshSummary& summary) {
  if (summary.renamed_users.empty()) {
    return true;
  }
  std::vector<RECORD::DomainUser> rows;
  const bool is_read = reader.ForEachRow(kUserDomains, [&](const korvmailserver::Statement& row) {
    unsigned int uid = 0;
    if (BASE::ConvertToUID(row.Text(1), uid)) {
      rows.emplace_back(static_cast<int>(row.Int64(0)), uid, row.Text(2),
                        std::vector<std::pair<std::string, bool>>{{row.Text(3), row.Int64(5) != 0}},
                        row.Text(4));
    }
  });
  std::vector<RECORD::DomainUser> records;
  DB::INTERNAL::_MergeDomainUsers(rows, records);
  INTERNAL::SetWhatTheyKeep(records, summary.renamed_users);
  return is_read && reader.ForEachRow(kDomains, [&](const korvmailserver::Statement& row) {
    summary.domain_names[static_cast<int>(row.Int64(0))] = row.Text(1);
  });
}

template <typename Record>
INTERNAL::MirrorDifference<Record> Compare(const std::vector<Record>& accounts,
                                           const std::vector<Record>& mirrored, bool complete,
                                           const DeletionLimit& limit,
                                           std::vector<std::string>& spared_names) {
  auto difference = INTERNAL::CompareWithMirror(accounts, INTERNAL::IdsOf(mirrored));
  std::vector<unsigned int>& deleted_ids = difference.deleted_ids;
  if (!complete) {
    deleted_ids.clear();
  } else if (INTERNAL::IsAboveLimit(limit, deleted_ids.size(), mirrored.size())) {
    spared_names = INTERNAL::NamesOfIds(mirrored, deleted_ids);
    deleted_ids.clear();
  }
  return difference;
}

}  // namespace

bool PreviewRefresh(RefreshSummary& summary) {
  return PreviewRefresh(DeletionLimit(), summary);
}

bool PreviewRefresh(const DeletionLimit& limit, RefreshSummary& summary) {
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
  std::vector<RECORD::User> mirrored_users;
  std::vector<RECORD::Group> mirrored_groups;
  if (!reader.Open() || !ReadMirror(reader, kUsers, mirrored_users) ||
      !ReadMirror(reader, kGroups, mirrored_groups)) {
    return false;
  }
  summary.users = users.size();
  summary.groups = groups.size();
  const auto user_difference =
      Compare(users, mirrored_users, summary.users_complete, limit, summary.spared_users);
  const auto group_difference =
      Compare(groups, mirrored_groups, summary.groups_complete, limit, summary.spared_groups);
  summary.new_users = INTERNAL::NamesOf(user_difference.created);
  summary.new_groups = INTERNAL::NamesOf(group_difference.created);
  summary.deleted_uids = user_difference.deleted_ids;
  summary.deleted_gids = group_difference.deleted_ids;
  summary.renamed_users = INTERNAL::FindRenamed(user_difference.updated, mirrored_users);
  return ReadWhatTheyKeep(reader, summary);
}

}  // namespace MDOMAIN::UTILS
