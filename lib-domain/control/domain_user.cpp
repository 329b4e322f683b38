// Reading the users of domains.
#include "lib-domain/control/domain_user.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/db/domain_group.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/user.h"

namespace MDOMAIN::CONTROL {

namespace {

// GetAliasUsers puts the alias into its statement as it is, and an apostrophe may stand in one.
std::string WithDoubledApostrophes(const std::string& text) {
  std::string doubled;
  for (char c : text) {
    doubled.append(c == '\'' ? 2 : 1, c);
  }
  return doubled;
}

}  // namespace

bool DomainUser::List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users) {
  return store_.ListDomainUsers(filter, users, false);
}

bool DomainUser::ListWithExtraInfo(DB::DomainDBFilter& filter,
                                   std::vector<RECORD::DomainUser>& users) {
  return store_.ListDomainUsers(filter, users, true);
}

bool DomainUser::ForEach(DB::DomainDBFilter& filter, const DB::DomainUser::UserVisitor& use) {
  return store_.ForEachDomainUser(filter, use);
}

bool DomainUser::List(const int& domain_idx, std::list<std::string>& user_names) {
  return store_.List(domain_idx, user_names);
}

bool DomainUser::List(const int& domain_idx, std::vector<unsigned int>& uids) {
  return store_.List(domain_idx, uids);
}

bool DomainUser::GetDomainUsersCount(DB::DomainDBFilter& filter, int& count) {
  return store_.GetDomainUsersCount(filter, count);
}

bool DomainUser::ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails) {
  return store_.ListDuplicatedEmail(domain_idx, emails);
}

bool DomainUser::GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain) {
  return store_.GetUsersWithoutRole(uids_by_domain);
}

bool DomainUser::GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles) {
  return store_.GetAutoAddedUsersRoles(roles);
}

bool DomainUser::IsExists(const int& domain_idx, const std::string& user_name) {
  return store_.IsExists(domain_idx, user_name);
}

bool DomainUser::IsAliasExist(const std::string& alias) {
  return store_.IsAliasExist(alias);
}

bool DomainUser::GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids) {
  return store_.GetAllRemovedUIDs(domain_idx, uids);
}

bool DomainUser::RemoveUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs) {
  return store_.DeleteUsersRoles(pairs);
}

bool DomainUser::GetDomainUserAlias(const int& domain_idx, const unsigned int& uid,
                                    std::vector<std::string>& aliases) {
  aliases.clear();
  return store_.GetUserAliases(domain_idx, uid, aliases);
}

bool DomainUser::GetDomainUserAlias(const int& domain_idx, const std::string& user_name,
                                    std::vector<std::string>& aliases) {
  aliases.clear();
  return store_.GetUserAliases(domain_idx, user_name, aliases);
}

bool DomainUser::GetDomainAliasUser(const int& domain_idx, const std::string& alias,
                                    std::string& user_name) {
  user_name.clear();
  if (alias.find('\0') != std::string::npos) {
    return true;  // it would cut the statement, and nobody has such an alias
  }
  const DB::ReadScope of_one_moment;
  std::vector<RECORD::DomainUserAlias> owners;
  if (!store_.GetAliasUsers(domain_idx, WithDoubledApostrophes(alias), owners)) {
    return false;
  }
  if (owners.empty()) {
    return true;
  }
  auto owner = std::find_if(
      owners.begin(), owners.end(),
      [](const RECORD::DomainUserAlias& candidate) { return !candidate.IsDuplicated(); });
  if (owner == owners.end()) {
    owner = owners.begin();
  }
  return DB::User().GetName(owner->GetUID(), user_name);
}

bool DomainUser::GetResultGroupRole(const int& domain_idx, const unsigned int& uid,
                                    std::string& role) {
  std::vector<unsigned int> gids;
  if (!DB::User().FindBelongingGroups(uid, gids)) {
    LOG_ERROR("Failed to FindBelongingGroups, uid: [%u]", uid);
    return false;
  }
  if (!DB::DomainGroup().GetResultGroupRole(domain_idx, gids, role)) {
    LOG_ERROR("Failed to GetResultGroupRole, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool DomainUser::_GetCompareDBDomainUsers(const std::vector<int>& domain_idxs,
                                          std::vector<RECORD::DomainUser>& users) {
  if (domain_idxs.empty()) {
    return true;
  }
  // Those without a role for the moment, too: their addresses are not free.
  return store_.ListHolders(domain_idxs, users);
}

bool DomainUser::_GetCompareDBDomainUsersAliases(const std::vector<int>& domain_idxs,
                                                 std::vector<RECORD::DomainUserAlias>& aliases) {
  std::vector<RECORD::DomainUser> users;
  if (!_GetCompareDBDomainUsers(domain_idxs, users)) {
    LOG_ERROR("Failed to ListDomainUsersAliases");
    return false;
  }
  const std::vector<RECORD::DomainUserAlias> found = INTERNAL::AliasesOf(users);
  aliases.insert(aliases.end(), found.begin(), found.end());
  return true;
}

}  // namespace MDOMAIN::CONTROL
