// Taking users and groups into a domain, for the nouns user and group.
#ifndef TOOLS_MDOMAIN_MEMBERS_H
#define TOOLS_MDOMAIN_MEMBERS_H

#include <string>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {

struct Members {
  std::vector<MDOMAIN::RECORD::User> users;
  std::vector<MDOMAIN::RECORD::Group> groups;
};

// Refuses an internal account among `users`: no domain takes one. Users in `preview` are not looked
// up, because a preview leaves internal accounts out.
void RefuseInternal(const std::vector<MDOMAIN::RECORD::User>& users,
                    const std::vector<MDOMAIN::RECORD::DomainUser>& preview);

// The users and the groups' members, with the aliases that the domain's pattern gives them. Refuses
// an internal account among the users.
std::vector<MDOMAIN::RECORD::DomainUser> PreviewMembers(const KnownDomain& domain,
                                                        const Members& members);

// Adds them and prints who got which alias: those of PreviewMembers, or `aliases` if there are any.
void AddMembers(Call& call, const KnownDomain& domain, const Members& members,
                const std::vector<std::string>& aliases);

// Refuses a text that is not a role.
void RequireRole(const std::string& role);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_MEMBERS_H
