// Users of domains as callers see them. Addresses stand in domain_user_address.cpp.
#include "lib-domain/api/domain_user.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

#include "lib-domain/api/trigger.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/db/domain_group.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/sync/auto_add_roles.h"
#include "lib-domain/sync/membership.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API {

namespace {

constexpr std::size_t kUsersOfAPage = 500;  // more are told at once for the whole domain

unsigned int& ErrorCode() {
  return INTERNAL::ErrorCodeOf("DomainUser");
}

}  // namespace

unsigned int DomainUser::GetErrorCode() {
  return ErrorCode();
}

bool DomainUser::Preview(const int& domain_idx,
                         std::vector<std::pair<std::string, std::string>> entries,
                         std::vector<RECORD::DomainUser>& preview) {
  return PreviewDomainUsers(domain_idx, std::move(entries), preview);
}

bool DomainUser::GetAliasUser(const int& domain_idx, const std::string& alias,
                              std::string& user_name) {
  if (!GetDomainAliasUser(domain_idx, alias, user_name)) {
    LOG_ERROR("Get domain alias user fail");
    return false;
  }
  return true;
}

// One query per domain tells as much as one per user. Only when it fails each user is looked up,
// for the log lines that this gives.
bool DomainUser::ListWithExtraInfo(DB::DomainDBFilter& filter,
                                   std::vector<RECORD::DomainUser>& users) {
  if (!CONTROL::DomainUser::ListWithExtraInfo(filter, users)) {
    LOG_ERROR("Failed to List domain users");
    return false;
  }
  using RoleByUid = std::unordered_map<unsigned int, std::string>;
  std::map<int, RoleByUid> roles_by_domain;
  std::vector<unsigned int> few;  // of a page
  if (users.size() <= kUsersOfAPage) {
    std::transform(users.begin(), users.end(), std::back_inserter(few),
                   [](const RECORD::DomainUser& user) { return user.GetUID(); });
  }
  DB::DomainGroup groups;
  for (RECORD::DomainUser& user : users) {
    const int domain_idx = user.GetDomainIdx();
    const auto [roles, is_first] = roles_by_domain.try_emplace(domain_idx);
    if (is_first && !(few.empty() ? groups.GetResultGroupRoles(domain_idx, roles->second)
                                  : groups.GetResultGroupRolesOf(domain_idx, few, roles->second))) {
      roles_by_domain.erase(roles);
      if (!_SetExtraInfo(user)) {
        LOG_ERROR("Failed to get additional info for user: [%u]", user.GetUID());
        return false;
      }
      continue;
    }
    const auto role = roles->second.find(user.GetUID());
    const bool is_member = role != roles->second.end();
    user.SetIsBelongingGroupInDomain(is_member);
    user.SetResultGroupRole(is_member ? role->second : "");
  }
  return true;
}

bool DomainUser::_SetExtraInfo(RECORD::DomainUser& user) {
  bool is_member = false;
  std::string role;
  if (!UTILS::INTERNAL::IsBelongingGroupsInDomain(user.GetDomainIdx(), user.GetUID(), is_member) ||
      !GetResultGroupRole(user.GetDomainIdx(), user.GetUID(), role)) {
    return false;
  }
  user.SetIsBelongingGroupInDomain(is_member);
  user.SetResultGroupRole(role);
  return true;
}

bool DomainUser::AddMembers(const int& domain_idx, const std::vector<std::string>& user_names,
                            const std::vector<std::string>& group_names,
                            std::vector<RECORD::DomainUserAlias>& aliases) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!CONTROL::INTERNAL::FinishDepartures()) {
    return false;
  }
  {
    BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
    const bool added = _AddMembersImp(domain_idx, user_names, group_names, aliases);
    if (scope.Commit() != 0) {
      LOG_ERROR("Failed to commit the members of domain_id: [%d]", domain_idx);
      return false;
    }
    if (!added) {
      return false;
    }
  }
  return INTERNAL::PublishChange(ErrorCode());
}

bool DomainUser::_AddMembersImp(const int& domain_idx, const std::vector<std::string>& user_names,
                                const std::vector<std::string>& group_names,
                                std::vector<RECORD::DomainUserAlias>& aliases) {
  const korvmailserver::FewAccounts accounts;
  if (!CreateFromUser(domain_idx, user_names)) {
    LOG_ERROR("Failed to create domain users from user, domain_id: [%d]", domain_idx);
    return false;
  }
  if (!CONTROL::DomainGroup().Create(domain_idx, group_names)) {
    LOG_ERROR("Faied to create domain groups, domain_id: [%d]", domain_idx);
    return false;
  }
  if (!CreateUsersAliases(aliases)) {
    LOG_ERROR("Failed to CreateUsersAliases, domain_id: [%d]", domain_idx);
    return false;
  }
  if (!UTILS::INTERNAL::RemoveUnnecessaryRolesOf(user_names, group_names)) {
    LOG_ERROR("Failed to RemoveUnnecessaryAutoAddedUserRole");
    return false;
  }
  return true;
}

// The store leaves such values out.
bool DomainUser::_IsValid(const RECORD::DomainUser& user) {
  const std::string role = user.GetRole();
  if (!role.empty() && role != CONTROL::kRoleOfGroups && !UTILS::CheckRoleValid(role)) {
    LOG_ERROR("There is no role [%s], domain_id: [%d], uid: [%u]", role.c_str(),
              user.GetDomainIdx(), user.GetUID());
    ErrorCode() = BASE::kApiErrorInvalid;
    return false;
  }
  for (const RECORD::DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
    if (!alias.IsValid()) {
      LOG_ERROR("[%s] is no alias, domain_id: [%d], uid: [%u]", alias.GetAccountAlias().c_str(),
                user.GetDomainIdx(), user.GetUID());
      ErrorCode() = BASE::kApiErrorInvalid;
      return false;
    }
  }
  return true;
}

bool DomainUser::Set(std::vector<RECORD::DomainUser>& users,
                     std::vector<RECORD::DomainUser>& conflicts) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!std::all_of(users.begin(), users.end(), &DomainUser::_IsValid)) {
    return false;
  }
  if (!CONTROL::DomainUser::Set(users, conflicts)) {
    LOG_ERROR("Failed to set domain users");
    return false;
  }
  return INTERNAL::PublishChange(ErrorCode());
}

bool DomainUser::Delete(const int& domain_idx, const std::vector<unsigned int>& uids) {
  const korvmailserver::PublicationScope publication;
  ErrorCode() = 0;
  if (!CONTROL::DomainUser::Delete(domain_idx, uids)) {
    LOG_ERROR("Failed to delete domain users, domain_id: [%d]", domain_idx);
    INTERNAL::FinishLeftovers();
    return false;
  }
  return INTERNAL::PublishChange(ErrorCode());
}

}  // namespace MDOMAIN::API
