// Which aliases collide, which candidates are dropped, which account names conflict.
//
// Aliases are equal when they are equal ignoring ASCII case; only aliases of one domain are ever
// compared. A colliding alias is flagged and stored, never refused. The rules lie in alias_index.h.
// The first five functions here apply them to plain lists and make an index at each call: whoever
// has many users to compare with the same list makes the index once and uses it.
#ifndef LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H
#define LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Flags the candidate when its domain holds an equal alias, and sets `same_user_has_it` when the
// candidate's own user is one of the holders. Neither is ever cleared: the caller presets
// `same_user_has_it`.
MDOMAIN_EXPORT void _CheckAndSetDomainUserAliasDuplicated(
    const std::vector<RECORD::DomainUserAlias>& existing, RECORD::DomainUserAlias& candidate,
    bool& same_user_has_it);

// Removes the candidates that their own user already has, and flags those that another user has.
// Candidates are not compared with each other.
MDOMAIN_EXPORT void _CheckAndSetDomainUsersAliasesDuplicated(
    const std::vector<RECORD::DomainUserAlias>& existing,
    std::vector<RECORD::DomainUserAlias>& candidates);

// Removes neighbours with equal aliases, the first stays. Neither domain nor uid is compared, so in
// a list of several users it takes the alias away from the second of two neighbours who want it:
// use it on one user's aliases in one domain.
MDOMAIN_EXPORT void _CheckAndEraseDupAlias(std::vector<RECORD::DomainUserAlias>& aliases);

// Flags the target's pairs that equal an alias of one of the `others` in its domain, and tells
// whether any did (pairs that were flagged before stay flagged and do not count). With
// `skip_same_uid` the target's own entry in `others` is left out. Always true.
MDOMAIN_EXPORT bool _CheckAndSetAliasDuplicatedPairs(const std::vector<RECORD::DomainUser>& others,
                                                     const bool& skip_same_uid,
                                                     RECORD::DomainUser& target,
                                                     bool& any_duplicated);

// Sets the target's conflicting account names: the full name of each of the `others` in its domain
// whose short account name equals one of the target's aliases, once per alias. True when there are
// any.
MDOMAIN_EXPORT bool _CheckAndSetConflictingAccountNames(
    const std::vector<RECORD::DomainUser>& others, const bool& skip_same_uid,
    RECORD::DomainUser& target);

// By the first alias, byte by byte: here letter case counts. A user without aliases comes first.
MDOMAIN_EXPORT bool _CompareDomainUserByAccountAlias(const RECORD::DomainUser& a,
                                                     const RECORD::DomainUser& b);

// Users whose first alias is flagged come first.
MDOMAIN_EXPORT bool _CompareDomainUserByIsDuplicated(const RECORD::DomainUser& a,
                                                     const RECORD::DomainUser& b);

// Appends a "normal" role in the domain for every user, in order.
MDOMAIN_EXPORT void _ComposeDomainUsersRolesFromUsers(const int& domain_idx,
                                                      const std::vector<RECORD::User>& users,
                                                      const bool& is_auto_added,
                                                      std::vector<RECORD::DomainUserRole>& roles);

// Appends the mirrored user of each short account name (exact spelling), in order. Names that are
// not mirrored and internal accounts are left out. A mirror that cannot be read is logged and
// nothing is added.
MDOMAIN_EXPORT void _GetUsersFromUserShortNames(const std::vector<std::string>& short_names,
                                                std::vector<RECORD::User>& users);

// Appends a domain user with one unflagged alias for every user: the one fetched for its short
// account name, else, with a log line, the short account name itself.
MDOMAIN_EXPORT void _GetDomainUsersFromUsersAndFetchedAlaises(
    const int& domain_idx, const std::vector<RECORD::User>& users,
    const std::map<std::string, std::string>& fetched_aliases,
    std::vector<RECORD::DomainUser>& domain_users);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_ALIAS_CONFLICT_H
