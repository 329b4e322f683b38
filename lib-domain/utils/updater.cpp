// The order of a refresh's steps. Their sources stand in lib-domain/sync: refresh.cpp,
// auto_add.cpp, first_domain.cpp, publication.cpp.
#include "lib-domain/utils/updater.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/mirror_batch.h"
#include "lib-domain/db/model_image.h"
#include "lib-domain/sync/refresh_note.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::UTILS {

using DB::INTERNAL::ModelImage;

namespace {

// Of a refresh that found nothing to do and nothing worth a word: the counts of users and groups.
constexpr size_t kLinesOfNothing = 2;

bool HasAny(const std::map<int, size_t>& counts) {
  return std::any_of(counts.begin(), counts.end(),
                     [](const auto& domain) { return domain.second != 0; });
}

}  // namespace

bool Updater::Refresh() {
  summary_ = RefreshSummary();
  new_uids_.clear();
  new_groups_.clear();
  domains_with_users_.clear();
  domains_with_groups_.clear();
  has_candidates_ = false;
  const INTERNAL::LineCounter lines;
  // Whoever joins now must not get what those left who went before. A domain in which that cannot
  // be finished keeps nobody else from an address; the reconcile step tries and reports it again.
  if (!CONTROL::INTERNAL::FinishDepartures()) {
    LOG_ERROR("Failed to finish what an earlier run left");
  }
  const INTERNAL::RefreshState state = INTERNAL::StateBeforeRefresh();
  INTERNAL::RefreshCounts counts;
  if (INTERNAL::FindRefreshNote(state, counts) && _ReportUnchanged(counts)) {
    return true;
  }
  if (!_RefreshAll()) {
    return false;
  }
  // Whatever else was said would have to be said again, and whoever waits for an address may get it
  // by what no file of the model tells.
  if (lines.Count() == kLinesOfNothing && !has_candidates_ && summary_.users_complete &&
      summary_.groups_complete) {
    INTERNAL::KeepRefreshNote(state,
                              {summary_.users, mirrored_users_, summary_.groups, mirrored_groups_});
  }
  return true;
}

// The summary and the lines of a refresh that found nothing to do.
bool Updater::_ReportUnchanged(const INTERNAL::RefreshCounts& counts) {
  std::vector<int> domain_idxs;
  if (!CONTROL::Domain().GetAutoAddingUserDomainIds(domain_idxs)) {
    return false;
  }
  summary_.users_complete = summary_.groups_complete = true;
  summary_.users_written = summary_.groups_written = true;
  summary_.users = counts.users;
  summary_.groups = counts.groups;
  for (const int domain_idx : domain_idxs) {
    summary_.added_users[domain_idx] = summary_.added_groups[domain_idx] = 0;
  }
  _NameDomains();
  INTERNAL::LogUnchanged("user", "uid", counts.users, counts.mirrored_users);
  INTERNAL::LogUnchanged("group", "gid", counts.groups, counts.mirrored_groups);
  return true;
}

void Updater::_NameDomains() {
  std::vector<RECORD::Domain> domains;
  DB::Domain().ListNames(domains);
  for (const RECORD::Domain& domain : domains) {
    summary_.domain_names[domain.GetDomainIdx()] = domain.GetDomainName();
  }
}

bool Updater::_RefreshAll() {
  const korvmailserver::AccountSnapshot snapshot;
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const DB::INTERNAL::MembershipsOnce members_are_read_once;
  const bool is_unfinished_known = _ListUnfinished();
  const bool refreshed = _RefreshSteps();
  const bool remembered = _RememberUnfinished(is_unfinished_known);
  _NameDomains();
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit what was refreshed");
    summary_.users_written = summary_.groups_written = false;
    summary_.added_users.clear();
    summary_.added_groups.clear();
    return _Fail(0, "the database could not be written");
  }
  return refreshed && is_unfinished_known && remembered;
}

bool Updater::_RefreshSteps() {
  if (!_RefreshUsers()) {
    LOG_ERROR("Failed to _RefreshUsers");
    return false;
  }
  if (!_RefreshGroups()) {
    LOG_ERROR("Failed to _RefreshGroups");
    return false;
  }
  if (!_UpdateDomainUsersGroups()) {
    LOG_ERROR("Failed to _UpdateDomainUsersGroups");
    return false;
  }
  return true;
}

// The image is read anew when roles were written.
bool Updater::_MendUsers(ModelImage& image) {
  CONTROL::DomainUser users;
  if (!users.UpdateAllDuplicateAlias(image)) {
    LOG_ERROR("Failed to UpdateAllDuplicateAlias");
    return _Fail(0, "the flags of colliding aliases could not be set");
  }
  if (image.IsKnown() && !image.HasUsersWithoutRole()) {
    return true;
  }
  if (!users.CreateUsersRolesForNonGroupUsers()) {
    LOG_ERROR("Failed to CreateUsersRolesForNonGroupUsers");
    return _Fail(0, "users without a role could not be given one");
  }
  image = ModelImage::Read();
  return true;
}

// Whether the passes that follow found nothing to do in this very model, and in these accounts as
// far as it mirrors them.
bool Updater::_IsModelSettled() const {
  const auto is_empty = [](const auto& domain) { return domain.second.empty(); };
  return new_uids_.empty() && new_groups_.empty() &&
         std::all_of(unfinished_uids_.begin(), unfinished_uids_.end(), is_empty) &&
         std::all_of(unfinished_gids_.begin(), unfinished_gids_.end(), is_empty) &&
         summary_.users_complete && summary_.groups_complete && INTERNAL::IsModelAsNoted();
}

bool Updater::_UpdateDomainUsersGroups() {
  std::vector<int> settled_idxs;
  if (_IsModelSettled() && CONTROL::Domain().GetAutoAddingUserDomainIds(settled_idxs)) {
    for (const int domain_idx : settled_idxs) {
      summary_.added_users[domain_idx] = summary_.added_groups[domain_idx] = 0;
    }
    return true;
  }
  ModelImage image = ModelImage::Read();
  if (!_MendUsers(image)) {
    return false;
  }
  std::vector<int> domain_idxs;
  if (!CONTROL::Domain().GetAutoAddingUserDomainIds(domain_idxs)) {
    LOG_ERROR("Failed to GetAutoAddingUserDomainIds");
    return _Fail(0, "the domains that add accounts automatically could not be read");
  }
  // One domain's groups or pattern must not keep the other domains from being filled.
  bool all_done = true;
  if (!_AutoAddNewGroups(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewGroups");
    all_done = false;
  }
  if (!all_done || HasAny(summary_.added_groups)) {
    image = ModelImage::Read();
  }
  // Nobody whom a group covers is given a role in what follows.
  const bool are_roles_needed = image.IsKnown() && !image.HasRolesThatGroupsGive();
  if (!_AutoAddNewUsers(domain_idxs, image)) {
    LOG_ERROR("Failed to _AutoAddNewUsers");
    all_done = false;
  }
  if (!are_roles_needed && !RemoveUnnecessaryAutoAddedUserRole()) {
    LOG_ERROR("Failed to RemoveUnnecessaryAutoAddedUserRole");
    return _Fail(0, "roles that groups give as well could not be removed");
  }
  return all_done;
}

bool Updater::_Fail(int domain_idx, const std::string& reason) {
  summary_.failures.push_back({domain_idx, reason});
  return false;
}

}  // namespace MDOMAIN::UTILS
