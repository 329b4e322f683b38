// What the answers of this folder are read with. A call that cannot read what it needs ends with
// Unreadable, which names that; what the stores have logged says why.
#ifndef LIB_DOMAIN_INSIGHT_READING_H
#define LIB_DOMAIN_INSIGHT_READING_H

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/insight/known_domain.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

class Unreadable : public std::runtime_error {
 public:
  explicit Unreadable(const std::string& what) : std::runtime_error(what + " could not be read") {}
};

inline void RequireRead(bool is_read, const char* what) {
  if (!is_read) {
    throw Unreadable(what);
  }
}

inline mdomain::DomainName NameOf(const KnownDomain& domain) {
  return {domain.idx, domain.name};
}

mdomain::Role RoleOf(const std::string& text);
MDOMAIN_EXPORT std::string TextOf(mdomain::Role role);  // "" for kNone

// The user of the domain with role and aliases; empty for somebody without a role there.
std::vector<RECORD::DomainUser> FindInDomain(int domain_idx, unsigned int uid);

// The mirrored groups of these ids, by name; none for an empty list.
std::vector<mdomain::Account> ListGroupsOf(const std::vector<unsigned int>& gids);
// Those that give the user a role in the domain.
std::vector<mdomain::Account> ListRoleGroups(int domain_idx, unsigned int uid);

// Whether the user was taken out of the domain by name.
bool WasTakenOut(int domain_idx, unsigned int uid);

// The names that the mail services read, by index; none where they cannot be read.
std::map<int, std::string> PublishedDomains();

// Whether this machine pulls the domains from another one: then it mirrors no accounts.
bool PullsDomains();

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_READING_H
