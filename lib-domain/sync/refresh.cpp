// The mirror brought in line with the account system: create, then update, then delete.
#include <unordered_map>
#include <vector>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/sync/mirror_difference.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::UTILS {

namespace {

// The known users whose name differs from the stored one; the others need no write. Of accounts
// that share a uid the last one counts, as it would if all of them were written in order.
std::vector<RECORD::User> Changed(const std::vector<RECORD::User>& known,
                                  const std::vector<RECORD::User>& mirrored) {
  std::unordered_map<unsigned int, const RECORD::User*> account_by_uid;
  for (const RECORD::User& user : known) {
    if (user.IsValid()) {
      account_by_uid[user.GetUID()] = &user;
    }
  }
  std::vector<RECORD::User> renamed;
  for (const RECORD::User& row : mirrored) {
    const auto account = account_by_uid.find(row.GetUID());
    if (account != account_by_uid.end() && account->second->GetUserName() != row.GetUserName()) {
      renamed.push_back(*account->second);
    }
  }
  return renamed;
}

// All known groups: whether or not a group changed, its members may have.
const std::vector<RECORD::Group>& Changed(const std::vector<RECORD::Group>& known,
                                          const std::vector<RECORD::Group>& /*mirrored*/) {
  return known;
}

// What differs between users and groups. kNoun, kTitle and kId stand in the log lines.
struct UserKind {
  using Record = RECORD::User;
  using Control = CONTROL::User;
  using Filter = DB::UserDBFilter;
  static constexpr const char* kNoun = "user";
  static constexpr const char* kTitle = "Users";
  static constexpr const char* kId = "uid";
  static constexpr auto kGetAccounts = TryToGetAllZelmUsers;
};

struct GroupKind {
  using Record = RECORD::Group;
  using Control = CONTROL::Group;
  using Filter = DB::GroupDBFilter;
  static constexpr const char* kNoun = "group";
  static constexpr const char* kTitle = "Groups";
  static constexpr const char* kId = "gid";
  static constexpr auto kGetAccounts = TryToGetAllZelmGroups;
};

// The fields of a RefreshSummary for one kind.
struct Findings {
  bool& is_complete;
  size_t& count;
  std::vector<std::string>& new_names;
  std::vector<unsigned int>& deleted_ids;
};

template <typename Kind>
bool WriteMirror(typename Kind::Control& control,
                 const INTERNAL::MirrorDifference<typename Kind::Record>& difference,
                 const std::vector<typename Kind::Record>& mirrored) {
  if (!control.Create(difference.created)) {
    LOG_ERROR("Failed to Create %ss", Kind::kNoun);
    return false;
  }
  if (!control.Set(Changed(difference.updated, mirrored))) {
    LOG_ERROR("Failed to Set %ss", Kind::kNoun);
    return false;
  }
  if (!control.Delete(difference.deleted_ids)) {
    LOG_ERROR("Failed to Delete %ss", Kind::kNoun);
    return false;
  }
  return true;
}

// `created` gets the accounts that were not mirrored before, also when writing them fails.
template <typename Kind>
bool RefreshMirror(const Findings& found, std::vector<typename Kind::Record>& created) {
  std::vector<typename Kind::Record> accounts;
  if (!Kind::kGetAccounts(accounts, found.is_complete)) {
    LOG_ERROR("Failed to GetAllZelm%s", Kind::kTitle);
    return false;
  }
  typename Kind::Control control;
  std::vector<typename Kind::Record> mirrored;
  if (!control.List(typename Kind::Filter("*"), mirrored)) {
    LOG_ERROR("Failed to list %ss", Kind::kNoun);
    return false;
  }
  auto difference = INTERNAL::CompareWithMirror(accounts, INTERNAL::IdsOf(mirrored));
  if (!found.is_complete) {
    LOG_ERROR("Failed to successfully obtain all zelm %ss, ignore the process of deleting %ss",
              Kind::kNoun, Kind::kNoun);
    difference.deleted_ids.clear();
  }
  created = difference.created;
  found.count = accounts.size();
  found.new_names = INTERNAL::NamesOf(created);
  found.deleted_ids = difference.deleted_ids;
  LOG_NOTICE(
      "[INFO] - [%zu] zelm_%ss, [%zu] db_%ss, [%zu] new_%ss: [%s], [%zu] update_%ss, "
      "[%zu] deleted_%ss: [%s]",
      accounts.size(), Kind::kNoun, mirrored.size(), Kind::kNoun, created.size(), Kind::kNoun,
      BASE::Join(found.new_names, ", ").c_str(), difference.updated.size(), Kind::kNoun,
      difference.deleted_ids.size(), Kind::kId, BASE::Join(difference.deleted_ids, ", ").c_str());
  return WriteMirror<Kind>(control, difference, mirrored);
}

}  // namespace

bool Updater::_RefreshUsers() {
  std::vector<RECORD::User> created;
  const bool is_refreshed = RefreshMirror<UserKind>(
      {summary_.users_complete, summary_.users, summary_.new_users, summary_.deleted_uids},
      created);
  for (const RECORD::User& user : created) {
    new_uids_.insert(user.GetUID());
  }
  return is_refreshed;
}

bool Updater::_RefreshGroups() {
  return RefreshMirror<GroupKind>(
      {summary_.groups_complete, summary_.groups, summary_.new_groups, summary_.deleted_gids},
      new_groups_);
}

}  // namespace MDOMAIN::UTILS
