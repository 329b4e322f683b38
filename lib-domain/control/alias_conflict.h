// Which aliases collide, which candidates are dropped, which account names conflict.
#ifndef LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H
#define LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::CONTROL::INTERNAL {

void _CheckAndSetDomainUserAliasDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                           RECORD::DomainUserAlias& candidate,
                                           bool& same_user_has_it);
void _CheckAndSetDomainUsersAliasesDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                              std::vector<RECORD::DomainUserAlias>& candidates);
void _CheckAndEraseDupAlias(std::vector<RECORD::DomainUserAlias>& aliases);
bool _CheckAndSetAliasDuplicatedPairs(const std::vector<RECORD::DomainUser>& others,
                                      const bool& skip_same_uid, RECORD::DomainUser& target,
                                      bool& any_duplicated);
bool _CheckAndSetConflictingAccountNames(const std::vector<RECORD::DomainUser>& others,
                                         const bool& skip_same_uid, RECORD::DomainUser& target);
bool _CompareDomainUserByAccountAlias(const RECORD::DomainUser& a, const RECORD::DomainUser& b);
bool _CompareDomainUserByIsDuplicated(const RECORD::DomainUser& a, const RECORD::DomainUser& b);
void _ComposeDomainUsersRolesFromUsers(const int& domain_idx,
                                       const std::vector<RECORD::User>& users,
                                       const bool& is_auto_added,
                                       std::vector<RECORD::DomainUserRole>& roles);
void _GetUsersFromUserShortNames(const std::vector<std::string>& short_names,
                                 std::vector<RECORD::User>& users);
void _GetDomainUsersFromUsersAndFetchedAlaises(
    const int& domain_idx, const std::vector<RECORD::User>& users,
    const std::map<std::string, std::string>& fetched_aliases,
    std::vector<RECORD::DomainUser>& domain_users);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H
