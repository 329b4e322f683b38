// Who gets the mail for aliases, also of those that are flagged because several want them.
#ifndef LIB_DOMAIN_INSIGHT_ALIAS_OWNER_H
#define LIB_DOMAIN_INSIGHT_ALIAS_OWNER_H

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/insight/reading.h"
#include "lib-domain/record/domain_user.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

struct MDOMAIN_EXPORT AliasOwner {
  std::string name;                  // account; empty where no account owns it
  unsigned int uid = 0;              // of it
  bool is_entry = false;             // an address with several members has it
  std::vector<std::string> holders;  // accounts whose flagged alias it is

  // "erik", "an address with several members", "nobody"
  std::string Text() const;
};

class MDOMAIN_EXPORT AliasOwners {
 public:
  // Of these aliases of a domain. One statement, and one for each that no account owns.
  void Read(int domain_idx, const std::vector<std::string>& aliases);
  // Of all flagged aliases of a domain.
  void ReadFlagged(int domain_idx);
  // Null for an alias that was not read.
  const AliasOwner* Find(int domain_idx, const std::string& alias) const;

 private:
  std::map<std::pair<int, std::string>, AliasOwner> owners_;  // by folded alias
};

// Addresses with whose they are, for one user or for all.
class MDOMAIN_EXPORT AddressOwners {
 public:
  // Reads whose the user's flagged aliases are, without a uid everybody's.
  AddressOwners(const std::vector<KnownDomain>& domains, std::optional<unsigned int> uid);
  // Whether the address is one of these domains.
  bool HasDomainOf(const std::string& address) const;
  // Null where the address is the user's own.
  const AliasOwner* FindOther(const std::string& user_name, const std::string& address) const;
  // Those of the primary domain first, the others in the order given.
  void PutPrimaryFirst(std::vector<std::string>& addresses) const;

 private:
  std::map<std::string, int> idx_by_name_;  // as stored
  int primary_idx_ = -1;
  AliasOwners owners_;
};

// What the user has in each domain, also where without a role.
MDOMAIN_EXPORT std::vector<RECORD::DomainUser> DomainsOfUser(unsigned int uid);

std::vector<std::string> FlaggedAliases(const RECORD::DomainUser& user);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_ALIAS_OWNER_H
