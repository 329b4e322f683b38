// From what an administrator types to domains, users and groups: domains by index or any of their
// names in either spelling, users and groups by full name, short name or id, with or without regard
// to letter case. A text that names nothing ends the command with kNotFound and a message that
// holds it; one that could mean several accounts ends it with kRefused.
#ifndef TOOLS_MDOMAIN_LOOKUP_H
#define TOOLS_MDOMAIN_LOOKUP_H

#include <functional>
#include <string>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/insight/known_domain.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::RECORD {
class Domain;
}

namespace mdomain {

using MDOMAIN::INSIGHT::KnownDomain;

// Every domain by its names, the primary one first, read when it is built. No user is counted for
// it.
class Domains {
 public:
  const KnownDomain& Find(const std::string& text) const;
  const std::vector<KnownDomain>& all() const { return domains_; }

 private:
  const std::vector<KnownDomain> domains_ = MDOMAIN::INSIGHT::ListKnownDomains();
};

// The whole records of domains, in the order of their indexes given. Counts the users of these
// domains: for what shows or rewrites a record.
std::vector<MDOMAIN::RECORD::Domain> DomainRecords(const std::vector<int>& idxs);
// Of all domains.
std::vector<MDOMAIN::RECORD::Domain> AllDomainRecords();

// The mirrored accounts that the filter selects.
std::vector<MDOMAIN::RECORD::User> ListUsers(const MDOMAIN::DB::UserDBFilter& filter);
void ForEachUser(const MDOMAIN::DB::UserDBFilter& filter,
                 const std::function<void(const MDOMAIN::RECORD::User&)>& use);
std::vector<MDOMAIN::RECORD::Group> ListGroups(const MDOMAIN::DB::GroupDBFilter& filter);

// In the order of `texts`, each once.
std::vector<MDOMAIN::RECORD::User> FindUsers(const std::vector<std::string>& texts);
std::vector<MDOMAIN::RECORD::Group> FindGroups(const std::vector<std::string>& texts);
MDOMAIN::RECORD::User FindUser(const std::string& text);
MDOMAIN::RECORD::Group FindGroup(const std::string& text);

// Names without the directory's part.
std::vector<std::string> ShortNames(const std::vector<MDOMAIN::RECORD::User>& users);
std::vector<std::string> ShortNames(const std::vector<MDOMAIN::RECORD::Group>& groups);
std::vector<unsigned int> Ids(const std::vector<MDOMAIN::RECORD::User>& users);
std::vector<unsigned int> Ids(const std::vector<MDOMAIN::RECORD::Group>& groups);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOOKUP_H
