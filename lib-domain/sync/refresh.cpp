// The mirror brought in line with the account system: create, then update, then delete.
#include <utility>
#include <vector>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/sync/mirror_difference.h"
#include "lib-domain/sync/refresh_note.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::UTILS {

namespace {

// The users whose name differs from the stored one; the others need no write.
std::vector<RECORD::User> ToSet(const std::vector<RECORD::User>& /*known*/,
                                const std::vector<RenamedUser>& renamed) {
  std::vector<RECORD::User> users;
  users.reserve(renamed.size());
  for (const RenamedUser& user : renamed) {
    users.emplace_back(user.uid, user.name);
  }
  return users;
}

// All known groups: whether or not a group changed, its members may have.
const std::vector<RECORD::Group>& ToSet(const std::vector<RECORD::Group>& known,
                                        const std::vector<RenamedUser>& /*renamed*/) {
  return known;
}

constexpr const char kFound[] =
    "[INFO] - [%zu] zelm_%ss, [%zu] db_%ss, [%zu] new_%ss: [%s], [%zu] update_%ss, "
    "[%zu] deleted_%ss: [%s]";

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
  size_t& mirrored_count;
  std::vector<std::string>& new_names;
  std::vector<unsigned int>& deleted_ids;
  std::vector<std::string>& spared_names;
  bool& is_written;
  std::vector<RefreshFailure>& failures;

  bool Fail(const std::string& reason) const {
    failures.push_back({0, reason});
    return false;
  }
};

// Users alone: what groups are called is of no consequence.
void FindRenamed(const std::vector<RECORD::User>& known, const std::vector<RECORD::User>& mirrored,
                 std::vector<RenamedUser>& renamed) {
  renamed = INTERNAL::FindRenamed(known, mirrored);
  std::vector<unsigned int> uids;
  uids.reserve(renamed.size());
  for (const RenamedUser& user : renamed) {
    uids.push_back(user.uid);
  }
  std::vector<RECORD::DomainUser> records;
  if (!uids.empty() && DB::DomainUser().ListDomainsOfUsers(uids, records)) {
    INTERNAL::SetWhatTheyKeep(records, renamed);
  }
}
void FindRenamed(const std::vector<RECORD::Group>& /*known*/,
                 const std::vector<RECORD::Group>& /*mirrored*/,
                 std::vector<RenamedUser>& /*renamed*/) {}

template <typename Control, typename Record>
bool WriteMirror(const Words& words, Control& control,
                 const INTERNAL::MirrorDifference<Record>& difference,
                 const std::vector<RenamedUser>& renamed) {
  if (!control.Create(difference.created)) {
    LOG_ERROR("Failed to Create %ss", words.noun);
    return false;
  }
  if (!control.Set(ToSet(difference.updated, renamed))) {
    LOG_ERROR("Failed to Set %ss", words.noun);
    return false;
  }
  if (!CONTROL::INTERNAL::DeleteDeparting(control, difference.deleted_ids)) {
    LOG_ERROR("Failed to Delete %ss", words.noun);
    return false;
  }
  return true;
}

// Empties the list of what is to be deleted where the answer or the limit forbids it.
template <typename Record>
void SpareSome(const Words& words, const DeletionLimit& limit, const std::vector<Record>& mirrored,
               const Findings& found, std::vector<unsigned int>& deleted_ids) {
  if (!found.is_complete) {
    LOG_ERROR("Failed to successfully obtain all zelm %ss, ignore the process of deleting %ss",
              words.noun, words.noun);
    deleted_ids.clear();
  } else if (INTERNAL::IsAboveLimit(limit, deleted_ids.size(), mirrored.size())) {
    LOG_ERROR("[%zu] of [%zu] %ss are gone, above the limit, ignore the process of deleting %ss",
              deleted_ids.size(), mirrored.size(), words.noun, words.noun);
    found.spared_names = INTERNAL::NamesOfIds(mirrored, deleted_ids);
    deleted_ids.clear();
  }
}

// `created` gets the accounts that were not mirrored before, also when writing them fails.
template <typename Control, typename Filter, typename Record>
bool RefreshMirror(const Words& words, bool (*get_accounts)(std::vector<Record>&, bool&),
                   const DeletionLimit& limit, const Findings& found, std::vector<Record>& created,
                   std::vector<RenamedUser>& renamed) {
  std::vector<Record> accounts;
  if (!get_accounts(accounts, found.is_complete)) {
    LOG_ERROR("Failed to GetAllZelm%s", words.title);
    return found.Fail(std::string("the ") + words.noun +
                      "s of the account system could not be read");
  }
  Control control;
  std::vector<Record> mirrored;
  if (!control.List(Filter("*"), mirrored)) {
    LOG_ERROR("Failed to list %ss", words.noun);
    return found.Fail(std::string("the ") + words.noun + "s of the mirror could not be read");
  }
  found.count = accounts.size();
  auto difference = INTERNAL::CompareWithMirror(std::move(accounts), INTERNAL::IdsOf(mirrored));
  SpareSome(words, limit, mirrored, found, difference.deleted_ids);
  created = difference.created;
  FindRenamed(difference.updated, mirrored, renamed);
  found.mirrored_count = mirrored.size();
  found.new_names = INTERNAL::NamesOf(created);
  found.deleted_ids = difference.deleted_ids;
  LOG_NOTICE(kFound, found.count, words.noun, mirrored.size(), words.noun, created.size(),
             words.noun, BASE::Join(found.new_names, ", ").c_str(), difference.updated.size(),
             words.noun, difference.deleted_ids.size(), words.id,
             BASE::Join(difference.deleted_ids, ", ").c_str());
  found.is_written = WriteMirror(words, control, difference, renamed);
  return found.is_written ||
         found.Fail(std::string("the ") + words.noun + "s of the mirror could not be written");
}

}  // namespace

void INTERNAL::LogUnchanged(const char* noun, const char* id, size_t accounts, size_t mirrored) {
  const size_t none = 0;
  LOG_NOTICE(kFound, accounts, noun, mirrored, noun, none, noun, "", accounts, noun, none, id, "");
}

bool Updater::_RefreshUsers() {
  std::vector<RECORD::User> created;
  const bool is_refreshed = RefreshMirror<CONTROL::User, DB::UserDBFilter>(
      kUserWords, &TryToGetAllZelmUsers, deletion_limit_,
      {summary_.users_complete, summary_.users, mirrored_users_, summary_.new_users,
       summary_.deleted_uids, summary_.spared_users, summary_.users_written, summary_.failures},
      created, summary_.renamed_users);
  for (const RECORD::User& user : created) {
    new_uids_.insert(user.GetUID());
  }
  if (is_refreshed && !CONTROL::INTERNAL::Announce(summary_.deleted_uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  return is_refreshed;
}

bool Updater::_RefreshGroups() {
  std::vector<RenamedUser> none;
  return RefreshMirror<CONTROL::Group, DB::GroupDBFilter>(
      kGroupWords, &TryToGetAllZelmGroups, deletion_limit_,
      {summary_.groups_complete, summary_.groups, mirrored_groups_, summary_.new_groups,
       summary_.deleted_gids, summary_.spared_groups, summary_.groups_written, summary_.failures},
      new_groups_, none);
}

}  // namespace MDOMAIN::UTILS
