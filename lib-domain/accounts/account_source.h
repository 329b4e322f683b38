// Reading the account system: enumeration, real names, group members.
//
// Short name: what an administrator types (alice). Full or real name: what the account system calls
// the account (alice, DOM\alice, alice@dom). Nothing here throws; a failure is one error line in
// the log and `false`. The callers decide what follows from it: who is added, who is deleted.
#ifndef LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_H
#define LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_H

#include <string>
#include <vector>

#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

// Configuration values that say which account source is in force. Each is kept for the life of the
// process once it has been read and is not empty, so a process must be started anew when the source
// is switched: until then it changes no model and publishes nothing. False and the argument
// untouched when the configuration cannot be read.
//
// The Windows domain's NetBIOS short name ("win_domain_short_name"), empty when none is set.
MDOMAIN_EXPORT bool DomainMailConfWinDomainShortNameGet(std::string& name);
// The source ("account_type"); an unknown text gives AUTH_UNKNOWN and true.
MDOMAIN_EXPORT bool DomainMailConfCurrentAuthTypeGet(AUTH_TYPE& type);
// The LDAP account domain ("acc_domain_name"), empty when none is set.
MDOMAIN_EXPORT bool DomainMailConfAccDomainNameGet(std::string& name);

// Replaces `users` with every user of the source in force. `complete` tells whether the source
// handed out as many accounts as it says it holds: a caller that deletes what is missing must not
// do so when it is false. A user who vanished between listing and look-up is left out (complete is
// then false); any other failed look-up ends the enumeration there. No user at all is a failure, so
// that an account system that is down never looks like one without accounts.
MDOMAIN_EXPORT bool TryToGetAllZelmUsers(std::vector<RECORD::User>& users, bool& complete);
// The same for the users who may be members of these groups: others may be left out of `users`, but
// not of what `complete` tells. With more groups than a few it is no quicker.
MDOMAIN_EXPORT bool TryToGetZelmUsersOf(const std::vector<std::string>& groups,
                                        std::vector<RECORD::User>& users, bool& complete);
// TryToGetAllZelmUsers for groups, with their descriptions (one that cannot be read is the empty
// string). A look-up that fails for any reason but "no such group" fails the call; the groups read
// before it stay in `groups`.
MDOMAIN_EXPORT bool TryToGetAllZelmGroups(std::vector<RECORD::Group>& groups, bool& complete);

// The account system's spelling of a user's (`is_user`) or group's name. A name that the account
// system does not know comes back as its full form, which is no failure. False and `real_name`
// untouched when the source is unknown or its settings cannot be read. Names are handed to the
// account system cut at 491 bytes.
MDOMAIN_EXPORT bool ShortName2RealName(bool is_user, const std::string& short_name,
                                       std::string& real_name);

// Replaces the output with the short names of the groups' members, in group order; someone in two
// groups is there twice. Groups that cannot be resolved are logged and skipped.
MDOMAIN_EXPORT void GetUserShortNamesFromGroupShortNames(
    const std::vector<std::string>& group_short_names, std::vector<std::string>& user_short_names);

// Replaces `merged` with the names of both lists, ascending by byte value, each once.
MDOMAIN_EXPORT void MergeAndDedupeUserShortNames(const std::vector<std::string>& a,
                                                 const std::vector<std::string>& b,
                                                 std::vector<std::string>& merged);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_H
