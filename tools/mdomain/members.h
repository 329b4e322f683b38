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

// The users and the groups' members, with the aliases that the domain's pattern gives them. Refuses
// an internal account among the users.
std::vector<MDOMAIN::RECORD::DomainUser> PreviewMembers(const KnownDomain& domain,
                                                        const Members& members);

// Adds them and prints who got which alias: those of `preview`, which is PreviewMembers', or
// `aliases` if there are any.
void AddMembers(Call& call, const KnownDomain& domain, const Members& members,
                const std::vector<MDOMAIN::RECORD::DomainUser>& preview,
                const std::vector<std::string>& aliases);

// Refuses a text that is not a role.
void RequireRole(const std::string& role);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_MEMBERS_H
