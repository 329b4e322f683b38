// The mirror brought in line with the account system: create, then update, then delete.
#include <unordered_map>
#include <vector>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
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

// How the log lines name a kind of account.
struct Words {
  const char* noun;
  const char* title;
  const char* id;
};
constexpr Words kUserWords = {"user", "Users", "uid"};
constexpr Words kGroupWords = {"group", "Groups", "gid"};

// The fields of a RefreshSummary for one kind.
struct Findings {
  bool& is_complete;
  size_t& count;
  std::vector<std::string>& new_names;
  std::vector<unsigned int>& deleted_ids;
};

template <typename Control, typename Record>
bool WriteMirror(const Words& words, Control& control,
                 const INTERNAL::MirrorDifference<Record>& difference,
                 const std::vector<Record>& mirrored) {
  if (!control.Create(difference.created)) {
    LOG_ERROR("Failed to Create %ss", words.noun);
    return false;
  }
  if (!control.Set(Changed(difference.updated, mirrored))) {
    LOG_ERROR("Failed to Set %ss", words.noun);
    return false;
  }
  if (!CONTROL::INTERNAL::DeleteDeparting(control, difference.deleted_ids)) {
    LOG_ERROR("Failed to Delete %ss", words.noun);
    return false;
  }
  return true;
}

// `created` gets the accounts that were not mirrored before, also when writing them fails.
template <typename Control, typename Filter, typename Record>
bool RefreshMirror(const Words& words, bool (*get_accounts)(std::vector<Record>&, bool&),
                   const Findings& found, std::vector<Record>& created) {
  std::vector<Record> accounts;
  if (!get_accounts(accounts, found.is_complete)) {
    LOG_ERROR("Failed to GetAllZelm%s", words.title);
    return false;
  }
  Control control;
  std::vector<Record> mirrored;
  if (!control.List(Filter("*"), mirrored)) {
    LOG_ERROR("Failed to list %ss", words.noun);
    return false;
  }
  auto difference = INTERNAL::CompareWithMirror(accounts, INTERNAL::IdsOf(mirrored));
  if (!found.is_complete) {
    LOG_ERROR("Failed to successfully obtain all zelm %ss, ignore the process of deleting %ss",
              words.noun, words.noun);
    difference.deleted_ids.clear();
  }
  created = difference.created;
  found.count = accounts.size();
  found.new_names = INTERNAL::NamesOf(created);
  found.deleted_ids = difference.deleted_ids;
  LOG_NOTICE(
      "[INFO] - [%zu] zelm_%ss, [%zu] db_%ss, [%zu] new_%ss: [%s], [%zu] update_%ss, "
      "[%zu] deleted_%ss: [%s]",
      accounts.size(), words.noun, mirrored.size(), words.noun, created.size(), words.noun,
      BASE::Join(found.new_names, ", ").c_str(), difference.updated.size(), words.noun,
      difference.deleted_ids.size(), words.id, BASE::Join(difference.deleted_ids, ", ").c_str());
  return WriteMirror(words, control, difference, mirrored);
}

}  // namespace

bool Updater::_RefreshUsers() {
  std::vector<RECORD::User> created;
  const bool is_refreshed = RefreshMirror<CONTROL::User, DB::UserDBFilter>(
      kUserWords, &TryToGetAllZelmUsers,
      {summary_.users_complete, summary_.users, summary_.new_users, summary_.deleted_uids},
      created);
  for (const RECORD::User& user : created) {
    new_uids_.insert(user.GetUID());
  }
  return is_refreshed;
}

bool Updater::_RefreshGroups() {
  return RefreshMirror<CONTROL::Group, DB::GroupDBFilter>(
      kGroupWords, &TryToGetAllZelmGroups,
      {summary_.groups_complete, summary_.groups, summary_.new_groups, summary_.deleted_gids},
      new_groups_);
}

}  // namespace MDOMAIN::UTILS
