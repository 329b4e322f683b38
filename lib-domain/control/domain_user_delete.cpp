// Taking users out of a domain, with everything that names them there.

#include <tuple>
#include <unordered_map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/domain_user_flags.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/departure.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/user.h"
#include "platform/include/alias.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL {

namespace {

using Removals = std::vector<std::tuple<int, unsigned int, unsigned int>>;

// Appends (domain, gid, uid) for each group of the domain that makes one of the users a member now.
bool FindRemovals(DB::DomainUser& store, int domain_idx, const std::vector<unsigned int>& uids,
                  Removals& removals) {
  if (uids.empty()) {
    return true;
  }
  std::map<unsigned int, std::vector<unsigned int>> gids_by_uid;
  if (!store.FindBeingEffectedGroups(domain_idx, uids, gids_by_uid)) {
    LOG_ERROR("Failed to FindBeingEffectGroup for %u", uids.front());
    return false;
  }
  for (const auto& [uid, gids] : gids_by_uid) {
    for (unsigned int gid : gids) {
      removals.emplace_back(domain_idx, gid, uid);
    }
  }
  return true;
}

}  // namespace

bool DomainUser::Delete(const int& domain_idx, const std::vector<unsigned int>& uids) {
  Removals removals;
  if (!FindRemovals(store_, domain_idx, uids, removals)) {
    return false;
  }
  const INTERNAL::GivenNotice notice;
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!INTERNAL::Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  DB::Departure departures;
  if (!departures.BeginRemovals(domain_idx, uids)) {
    return false;
  }
  std::vector<RECORD::DomainUserAlias> aliases;
  const bool are_aliases_known = INTERNAL::ListAliasesOf(domain_idx, uids, aliases);
  if (!store_.RemoveUsersFromDomainGroups(removals)) {
    LOG_ERROR("Failed to RemoveUsersFromDomainGroups");
    departures.DeleteUsers(domain_idx, uids);  // they are still there
    return false;
  }
  // From here on nobody gets back what was taken: what fails now is finished by a later run.
  if (!_DeleteRows(domain_idx, uids)) {
    return false;
  }
  const bool are_flags_set = are_aliases_known ? INTERNAL::UpdateFlags({domain_idx}, aliases)
                                               : UpdateDuplicateAlias({domain_idx});
  if (!are_flags_set || !departures.EndRemovals(domain_idx, uids) || scope.Commit() != 0) {
    LOG_ERROR("Failed to UpdateDuplicateAlias, domain_id: [%d]", domain_idx);
    return false;
  }
  if (BatchScope::IsAnyOpen()) {
    return true;  // a caller's transaction: the departure on record waits for the reconcile step
  }
  if (!_DeleteRelatedSettings(domain_idx, uids)) {
    LOG_ERROR("Failed to _DeleteRelatedSettings, domain_id: [%d]", domain_idx);
    return false;
  }
  return INTERNAL::GivenNotice::ForgetWith(
      [&] { return departures.DeleteUsers(domain_idx, uids); });
}

bool DomainUser::_DeleteRows(const int& domain_idx, const std::vector<unsigned int>& uids) {
  if (!store_.DeleteUsersRoles(domain_idx, uids)) {
    LOG_ERROR("Failed to DeleteUsersRoles");
    return false;
  }
  // A direct role hides the user's groups in the domain. They show only now, and would bring the
  // user back at the next refresh.
  if (!_RecordRemovalFromGroups(domain_idx, uids)) {
    return false;
  }
  if (!store_.DeleteUsersAliases(domain_idx, uids)) {
    LOG_ERROR("Failed to DeleteUsersAliases");
    return false;
  }
  return true;
}

bool DomainUser::_RecordRemovalFromGroups(const int& domain_idx,
                                          const std::vector<unsigned int>& uids) {
  Removals removals;
  if (!FindRemovals(store_, domain_idx, uids, removals)) {
    return false;
  }
  if (!store_.RemoveUsersFromDomainGroups(removals)) {
    LOG_ERROR("Failed to RemoveUsersFromDomainGroups");
    return false;
  }
  return true;
}

bool DomainUser::_DeleteRelatedSettings(const int& domain_idx,
                                        const std::vector<unsigned int>& uids) {
  bool are_foreign = false;
  if (!DB::INTERNAL::AreSettingsForeign(are_foreign)) {
    return false;
  }
  if (are_foreign) {
    return true;
  }
  std::unordered_map<unsigned int, std::string> name_by_uid;
  if (!uids.empty() && !DB::User().GetNames(uids, name_by_uid)) {
    LOG_ERROR("Failed to GetName, uid: [%u]", uids.front());
    return false;
  }
  std::list<std::string> names;
  for (unsigned int uid : uids) {
    const auto name = name_by_uid.find(uid);
    if (name != name_by_uid.end()) {
      names.push_back(name->second);
    }
  }
  return _DeleteAliasRelatedSettings(domain_idx, names) &&
         _DeleteBCCRelatedSettings(domain_idx, names) &&
         _DeleteDiscalmerRelatedSettings(domain_idx, uids);
}

bool DomainUser::_DeleteAliasRelatedSettings(const int& domain_idx,
                                             const std::list<std::string>& names) {
  Alias alias(PATHS::AliasDb());
  if (alias.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  if (alias.delDomainUserMember(domain_idx, names) < 0) {
    LOG_ERROR("Failed to delDomainUserMember, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool DomainUser::_DeleteBCCRelatedSettings(const int& domain_idx,
                                           const std::list<std::string>& names) {
  std::vector<std::string> aliases;
  if (!INTERNAL::ListDepartedAliases(domain_idx, aliases)) {
    LOG_ERROR("Failed to deleteBCC");
    return false;
  }
  switch (INTERNAL::DeleteUsersBcc(domain_idx, {names.begin(), names.end()}, aliases)) {
    case INTERNAL::BccOutcome::kNoInstance:
      LOG_ERROR("Failed to get bcc instance, domain_id: [%d]", domain_idx);
      return false;
    case INTERNAL::BccOutcome::kFailed:
      LOG_ERROR("Failed to deleteBCC");
      return false;
    case INTERNAL::BccOutcome::kDone:
      break;
  }
  const std::string path = PATHS::SettingsDb();
  if (!INTERNAL::PublishBccFile(path)) {
    LOG_ERROR("Fail to set file %s", path.c_str());
    return false;
  }
  return true;
}

bool DomainUser::_DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                                 const std::vector<unsigned int>& uids) {
  if (!INTERNAL::RemoveUsersFromDisclaimers(domain_idx, uids)) {
    LOG_ERROR("Failed to delete Disclamer");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
