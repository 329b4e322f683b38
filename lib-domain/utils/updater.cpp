// The order of a refresh's steps. Their sources stand in lib-domain/sync: refresh.cpp,
// auto_add.cpp, first_domain.cpp, publication.cpp.
#include "lib-domain/utils/updater.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::UTILS {

bool Updater::Refresh() {
  summary_ = RefreshSummary();
  new_uids_.clear();
  new_groups_.clear();
  domains_with_users_.clear();
  domains_with_groups_.clear();
  // Whoever joins now must not get what those left who went before. A domain in which that cannot
  // be finished keeps nobody else from an address; the reconcile step tries and reports it again.
  if (!CONTROL::INTERNAL::FinishDepartures()) {
    LOG_ERROR("Failed to finish what an earlier run left");
  }
  const korvmailserver::AccountSnapshot snapshot;
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const bool is_unfinished_known = _ListUnfinished();
  const bool refreshed = _RefreshSteps();
  const bool remembered = _RememberUnfinished(is_unfinished_known);
  std::vector<RECORD::Domain> domains;
  DB::Domain().ListNames(domains);
  for (const RECORD::Domain& domain : domains) {
    summary_.domain_names[domain.GetDomainIdx()] = domain.GetDomainName();
  }
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

bool Updater::_UpdateDomainUsersGroups() {
  CONTROL::DomainUser users;
  if (!users.UpdateAllDuplicateAlias()) {
    LOG_ERROR("Failed to UpdateAllDuplicateAlias");
    return _Fail(0, "the flags of colliding aliases could not be set");
  }
  if (!users.CreateUsersRolesForNonGroupUsers()) {
    LOG_ERROR("Failed to CreateUsersRolesForNonGroupUsers");
    return _Fail(0, "users without a role could not be given one");
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
  if (!_AutoAddNewUsers(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewUsers");
    all_done = false;
  }
  if (!RemoveUnnecessaryAutoAddedUserRole()) {
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
