// Accounts that are mirrored but not brought yet into a domain that adds accounts automatically.
//
// An account is new to one refresh alone, so what that could not finish would be lost. The two
// tables are no part of the schema: they are made with the first row and dropped with the last one.
#ifndef LIB_DOMAIN_DB_JOINING_H
#define LIB_DOMAIN_DB_JOINING_H

#include <map>
#include <set>

#include "lib-domain/db/database.h"

namespace MDOMAIN::DB {

// uids or gids by domain index. For users 0 stands for domains that were deleted meanwhile.
using IdsByDomain = std::map<int, std::set<unsigned int>>;

class Joining {
 public:
  Joining();

  // Adds what is remembered. Rows of accounts that are deleted go with them.
  bool List(IdsByDomain& uids, IdsByDomain& gids);
  // Remembers more. Ids that are not mirrored are left out; a domain that does not exist fails it.
  bool Add(const IdsByDomain& uids, const IdsByDomain& gids);
  // Replaces everything.
  bool Set(const IdsByDomain& uids, const IdsByDomain& gids);

 private:
  bool _HasTables(bool& has_tables);

  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_JOINING_H
