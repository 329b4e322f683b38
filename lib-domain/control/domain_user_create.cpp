// Adding users and aliases to domains, and the preview of what they would get.
#include <iterator>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/alias_conflict.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/control/mirrored_names.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/user.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/eai.h"

namespace MDOMAIN::CONTROL {

namespace {

// An alias that is no local part (too long, or cut to nothing) gives way to the account name. Where
// that is none either the alias stays as it is: the user gets no address, and the log says so.
void ReplaceUnusableAliases(int domain_idx, const std::vector<RECORD::User>& users,
                            std::map<std::string, std::string>& aliases) {
  std::vector<std::string> replaced;
  std::vector<std::string> without_address;
  auto next = aliases.begin();  // users mostly come in the same order
  for (const RECORD::User& user : users) {
    const std::string short_name = TrimDomainName(user.GetUserName());
    const auto alias =
        next != aliases.end() && next->first == short_name ? next : aliases.find(short_name);
    next = alias == aliases.end() ? next : std::next(alias);
    if (alias == aliases.end() || UTILS::IsAccountAliasValid(alias->second)) {
      continue;
    }
    const std::string account_name = KORV::POSTARA_SERVER::StripInvalidEaiChars(short_name);
    if (UTILS::IsAccountAliasValid(account_name)) {
      alias->second = account_name;
      replaced.push_back(user.GetUserName());
    } else {
      without_address.push_back(user.GetUserName());
    }
  }
  if (!replaced.empty()) {
    LOG_WARNING(
        "The alias pattern of domain_id: [%d] gives no local part for [%s], use Zelm "
        "account name instead",
        domain_idx, BASE::Join(replaced, ", ").c_str());
  }
  if (!without_address.empty()) {
    LOG_WARNING(
        "Neither the alias pattern of domain_id: [%d] nor Zelm account name gives a local "
        "part for [%s], no email address",
        domain_idx, BASE::Join(without_address, ", ").c_str());
  }
}

// Everybody who may have one of the aliases.
bool ListHolders(const std::vector<RECORD::DomainUserAlias>& aliases,
                 std::vector<RECORD::DomainUser>& stored) {
  DB::INTERNAL::HolderSearch search(INTERNAL::DomainsOf(aliases));
  return search.AddHolders(aliases) && search.List(stored);
}

}  // namespace

bool DomainUser::CreateFromUser(const int& domain_idx,
                                const std::vector<std::string>& user_short_names) {
  std::vector<RECORD::User> users;
  return INTERNAL::TryGetUsersFromUserShortNames(user_short_names, users) &&
         _CreateImp(domain_idx, users, true);
}

bool DomainUser::CreateFromBackend(const int& domain_idx, const std::vector<RECORD::User>& users) {
  return _CreateImp(domain_idx, users, true);
}

bool DomainUser::_CreateImp(const int& domain_idx, const std::vector<RECORD::User>& users,
                            const bool& is_auto_added) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!DB::User().Create(users)) {
    LOG_ERROR("Failed to create users");
    return false;
  }
  std::vector<RECORD::DomainUserRole> roles;
  INTERNAL::_ComposeDomainUsersRolesFromUsers(domain_idx, users, is_auto_added, roles);
  if (!store_.CreateUsersRoles(roles) || scope.Commit() != 0) {
    LOG_ERROR("Failed to CreateUsersRoles");
    return false;
  }
  return true;
}

bool DomainUser::CreateUsersAliases(std::vector<RECORD::DomainUserAlias>& aliases) {
  if (aliases.empty()) {
    return true;
  }
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  INTERNAL::EraseRepeatsOfEachUser(aliases);
  if (!_DeleteRemovedRecords(aliases)) {
    return false;
  }
  std::vector<unsigned int> uids;
  uids.reserve(aliases.size());
  for (const RECORD::DomainUserAlias& alias : aliases) {
    uids.push_back(alias.GetUID());
  }
  if (!INTERNAL::Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  std::vector<RECORD::DomainUser> stored;
  if (!ListHolders(aliases, stored)) {
    LOG_ERROR("Failed to ListDomainUsersAliases");
    LOG_ERROR("Failed to _GetCompareDBDomainUsersAliases");
    return false;
  }
  INTERNAL::AliasIndex existing;
  INTERNAL::EntryNames entries;
  if (!entries.Read()) {
    return false;
  }
  existing.Add(stored);
  INTERNAL::CheckAndFlagCandidates(existing, aliases);
  entries.Flag(aliases);
  if (!store_.CreateUsersAliases(aliases)) {
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit aliases");
    return false;
  }
  return true;
}

bool DomainUser::_DeleteRemovedRecords(const std::vector<RECORD::DomainUserAlias>& aliases) {
  std::map<int, std::vector<unsigned int>> uids_by_domain;
  for (const RECORD::DomainUserAlias& alias : aliases) {
    uids_by_domain[alias.GetDomainIdx()].push_back(alias.GetUID());
  }
  for (const auto& [domain_idx, uids] : uids_by_domain) {
    if (!store_.DeleteRemovedRecord(domain_idx, uids)) {
      LOG_ERROR("Failed to DeleteRemovedRecord for domain_id: [%d]", domain_idx);
      return false;
    }
  }
  return true;
}

bool DomainUser::PreviewDomainUsers(const int& domain_idx,
                                    std::vector<std::pair<std::string, std::string>> entries,
                                    std::vector<RECORD::DomainUser>& preview) {
  std::vector<std::string> user_names;
  std::vector<std::string> group_names;
  for (std::pair<std::string, std::string>& entry : entries) {
    std::vector<std::string>& names = entry.first == "user" ? user_names : group_names;
    names.push_back(std::move(entry.second));
  }
  const korvmailserver::FewAccounts accounts;
  std::vector<std::string> member_names;
  if (!group_names.empty()) {
    UTILS::GetUserShortNamesFromGroupShortNames(group_names, member_names);
  }
  std::vector<std::string> merged;
  UTILS::MergeAndDedupeUserShortNames(user_names, member_names, merged);
  if (!_PreviewDomainUsersFromUserShortNames(domain_idx, merged, preview)) {
    LOG_ERROR("Failed to _PreviewDomainUsersFromUserShortNames");
    return false;
  }
  return true;
}

bool DomainUser::_PreviewDomainUsersFromUserShortNames(
    const int& domain_idx, const std::vector<std::string>& user_short_names,
    std::vector<RECORD::DomainUser>& preview) {
  std::string pattern;
  if (!DB::Domain().GetDefaultAliasPattern(domain_idx, pattern)) {
    LOG_ERROR("Failed to GetDefaultAliasPatter for domain_id [%d]", domain_idx);
    return false;
  }
  if (!UTILS::IsDomainDefaultAliasPatternValid(pattern)) {
    LOG_ERROR("Default alias pattern with wrong format");
    return false;
  }
  if (user_short_names.empty()) {
    return true;  // no search in a directory for nobody
  }
  std::map<std::string, std::string> aliases;
  if (!UTILS::DefaultAliasGetter(pattern).GetAliasFromUserShortNames(user_short_names, aliases)) {
    LOG_ERROR("Failed to GetAliasFromUserShortNames, domain_default_alias_pattern: '%s'",
              pattern.c_str());
    return false;
  }
  std::vector<RECORD::User> users;
  if (!INTERNAL::TryGetUsersFromUserShortNames(user_short_names, users)) {
    return false;
  }
  ReplaceUnusableAliases(domain_idx, users, aliases);
  INTERNAL::_GetDomainUsersFromUsersAndFetchedAlaises(domain_idx, users, aliases, preview);
  if (!_CheckAndSetDomainUsersDuplicated(preview)) {
    LOG_ERROR("Failed to _CheckAndSetDomainUsersDuplicated");
    return false;
  }
  return true;
}

bool DomainUser::_CheckAndSetDomainUsersDuplicated(std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUser> stored;
  if (!ListHolders(INTERNAL::AliasesOf(users), stored)) {
    LOG_ERROR("Failed to _GetCompareDBDomainUsers");
    return false;
  }
  INTERNAL::EntryNames entries;
  if (!entries.Read()) {
    return false;
  }
  INTERNAL::AliasIndex others;
  others.Add(stored);
  INTERNAL::AliasIndex batch;
  for (RECORD::DomainUser& user : users) {
    INTERNAL::CheckAndFlagPairs(others, batch, user);
    entries.Flag(user);
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
