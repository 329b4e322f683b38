// Taking groups out of a domain with what only they brought there.

#include <algorithm>
#include <list>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/domain_user_flags.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/departure.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/published_model.h"
#include "platform/include/alias.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL {

bool DomainGroup::Delete(const int& domain_idx, const std::vector<unsigned int>& gids) {
  std::vector<unsigned int> uids;
  if (!store_.FindUsersBelongToGIDsOnly(domain_idx, gids, uids)) {
    LOG_ERROR("Failed to FindUsersBelongToGIDsOnly");
    return false;
  }
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  if (!_DeleteRows(domain_idx, gids, uids)) {
    return false;
  }
  if (BatchScope::IsAnyOpen()) {
    return true;  // a caller's transaction: the departure on record waits for the reconcile step
  }
  if (!_DeleteRelatedSettings(domain_idx, gids)) {
    LOG_ERROR("Failed to _DeleteRelatedSettings, domain_id: [%d]", domain_idx);
    return false;
  }
  // The members who left with the groups take their settings with them.
  return INTERNAL::FinishDepartures();
}

bool DomainGroup::_DeleteRows(const int& domain_idx, const std::vector<unsigned int>& gids,
                              const std::vector<unsigned int>& uids) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  DB::Departure departures;
  if (!departures.AddUsers(domain_idx, uids)) {
    return false;
  }
  std::vector<RECORD::DomainUserAlias> aliases;
  const bool are_aliases_known = INTERNAL::ListAliasesOf(domain_idx, uids, aliases);
  DB::DomainUser users;
  if (!users.DeleteUsersAliases(domain_idx, uids)) {
    LOG_ERROR("Failed to DeleteUsersAliases");
    departures.DeleteUsers(domain_idx, uids);  // they are still there
    return false;
  }
  if (!users.DeleteUsersRoles(domain_idx, uids)) {
    LOG_ERROR("Failed to DeleteUsersAliases");  // the text of both deletions
    return false;
  }
  if (!departures.AddGroups(domain_idx, gids)) {
    return false;
  }
  if (!store_.DeleteGroupsRoles(domain_idx, gids)) {
    departures.DeleteGroups(domain_idx, gids);
    LOG_ERROR("Failed to DeleteGroupsRoles");
    return false;
  }
  if (!store_.DeleteMemberRemovedRecord(domain_idx, gids)) {
    LOG_ERROR("Failed to DeleteMemberRemovedRecord");
    return false;
  }
  // Sent after the commit, in one notice with those who inherit an alias.
  if (!INTERNAL::Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  const bool are_flags_set = are_aliases_known ? INTERNAL::UpdateFlags({domain_idx}, aliases)
                                               : DomainUser().UpdateDuplicateAlias({domain_idx});
  if (!are_flags_set || scope.Commit() != 0) {
    LOG_ERROR("Failed to UpdateDuplicateAlias, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool DomainGroup::_DeleteRelatedSettings(const int& domain_idx,
                                         const std::vector<unsigned int>& gids) {
  bool are_foreign = false;
  if (!DB::INTERNAL::AreSettingsForeign(are_foreign)) {
    return false;
  }
  return are_foreign || (_DeleteAliasRelatedSettings(domain_idx, gids) &&
                         _DeleteDiscalmerRelatedSettings(domain_idx, gids));
}

bool DomainGroup::_DeleteAliasRelatedSettings(const int& domain_idx,
                                              const std::vector<unsigned int>& gids) {
  std::list<std::string> names;
  if (!gids.empty()) {  // a filter without gids would name every group
    DB::GroupDBFilter filter;
    filter.SetGIDs(gids);
    std::vector<RECORD::Group> groups;
    if (!DB::Group().List(filter, groups)) {
      LOG_ERROR("Failed to GetName, gid: [%u]", gids.front());
      return false;
    }
    for (const RECORD::Group& group : groups) {
      names.push_back(group.GetGroupName());
    }
  }
  Alias alias(PATHS::AliasDb());
  if (alias.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  if (alias.delDomainGroupMember(domain_idx, names) < 0) {
    LOG_ERROR("Failed to delDomainUserMember, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool DomainGroup::_DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                                  const std::vector<unsigned int>& gids) {
  if (!INTERNAL::RemoveGroupsFromDisclaimers(domain_idx, gids)) {
    LOG_ERROR("Failed to delete Disclamer");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
