// From what an administrator types to domains, users and groups: domains by index or any of their
// names in either spelling, users and groups by full name, short name or id. What is not there ends
// the command with kNotFound and a message that names it.
#ifndef TOOLS_MDOMAIN_LOOKUP_H
#define TOOLS_MDOMAIN_LOOKUP_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "lib-domain/record/domain.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"

namespace mdomain {

struct KnownDomain {
  MDOMAIN::RECORD::Domain record;
  std::vector<std::string> names;  // additional names, as stored
  int idx() const { return record.GetDomainIdx(); }
  std::string name() const { return record.GetDomainName(); }
  // "2 (example.org)", for messages.
  std::string Title() const;
};

// Every domain with its additional names, the primary one first, read when it is built.
class Domains {
 public:
  Domains();
  const KnownDomain& Find(const std::string& text) const;
  const std::vector<KnownDomain>& all() const { return domains_; }

 private:
  std::vector<KnownDomain> domains_;
};

// True when both spell the same domain name: ASCII case and punycode do not matter.
bool SameDomainName(const std::string& a, const std::string& b);

// In the order of `texts`, each once.
std::vector<MDOMAIN::RECORD::User> FindUsers(const std::vector<std::string>& texts);
std::vector<MDOMAIN::RECORD::Group> FindGroups(const std::vector<std::string>& texts);
MDOMAIN::RECORD::User FindUser(const std::string& text);
MDOMAIN::RECORD::Group FindGroup(const std::string& text);

std::vector<std::string> ShortNames(const std::vector<MDOMAIN::RECORD::User>& users);
std::vector<std::string> ShortNames(const std::vector<MDOMAIN::RECORD::Group>& groups);
std::vector<unsigned int> Ids(const std::vector<MDOMAIN::RECORD::User>& users);
std::vector<unsigned int> Ids(const std::vector<MDOMAIN::RECORD::Group>& groups);

// Names of all mirrored users.
std::map<unsigned int, std::string> UserNames();
// [{"uid": .., "name": ..}], in the order given; a uid that the mirror does not know has no name.
Json::Value NamedUsers(const std::vector<unsigned int>& uids);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOOKUP_H
