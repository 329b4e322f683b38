// Names of entries of the alias table beside the aliases of users: an address is one or the other.
//
// An entry keeps its address: an alias that comes to equal its name, by a pattern or a new account,
// is flagged, as one that somebody else has. Postfix folds all letters of Unicode, so names are
// equal here that the rules about aliases tell apart.
#ifndef LIB_DOMAIN_CONTROL_ENTRY_NAMES_H
#define LIB_DOMAIN_CONTROL_ENTRY_NAMES_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

class EntryNames {
 public:
  // False with a log line when the alias table cannot be read.
  bool Read();

  bool Has(int domain_idx, const std::string& alias) const;
  // Flags the aliases that are names of entries. Flags that were set before stay.
  void Flag(std::vector<RECORD::DomainUserAlias>& aliases) const;
  void Flag(RECORD::DomainUser& user) const;
  // Adds those who have such an alias, in ascending order and each once with those given. False
  // with a log line when they cannot be read.
  bool AddHolders(std::vector<unsigned int>& uids) const;

 private:
  std::map<int, std::set<std::string>> names_;  // folded
};

// Adds those aliases of the domain's users that are the same address as one of these for Postfix.
// False with a log line when they cannot be read.
MDOMAIN_EXPORT bool AddSameAddresses(int domain_idx, std::vector<std::string>& aliases);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_ENTRY_NAMES_H
