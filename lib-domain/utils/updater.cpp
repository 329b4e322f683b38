// The order of a refresh's steps. Their sources stand in lib-domain/sync: refresh.cpp,
// auto_add.cpp, first_domain.cpp, publication.cpp.
#include "lib-domain/utils/updater.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/handler.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {

bool Updater::Refresh() {
  summary_ = RefreshSummary();
  new_uids_.clear();
  new_groups_.clear();
  // Whoever joins now must not get what those left who went before. A domain in which that cannot
  // be finished keeps nobody else from an address; the reconcile step tries and reports it again.
  if (!CONTROL::INTERNAL::FinishDepartures()) {
    LOG_ERROR("Failed to finish what an earlier run left");
  }
  const korvmailserver::AccountSnapshot snapshot;
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const bool refreshed = _RefreshSteps();
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit what was refreshed");
    return false;
  }
  return refreshed;
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
    return false;
  }
  if (!users.CreateUsersRolesForNonGroupUsers()) {
    LOG_ERROR("Failed to CreateUsersRolesForNonGroupUsers");
    return false;
  }
  std::vector<int> domain_idxs;
  if (!CONTROL::Domain().GetAutoAddingUserDomainIds(domain_idxs)) {
    LOG_ERROR("Failed to GetAutoAddingUserDomainIds");
    return false;
  }
  if (!_AutoAddNewGroups(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewGroups");
    return false;
  }
  if (!_AutoAddNewUsers(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewUsers");
    return false;
  }
  if (!RemoveUnnecessaryAutoAddedUserRole()) {
    LOG_ERROR("Failed to RemoveUnnecessaryAutoAddedUserRole");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
