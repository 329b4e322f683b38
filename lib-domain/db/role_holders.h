// Who has a role in a domain, gathered once: for whoever asks about all its users.
//
// To look up each of them by indexes costs several times what it costs to read own roles, members
// of groups and removals in the order in which they are stored.
#ifndef LIB_DOMAIN_DB_ROLE_HOLDERS_H
#define LIB_DOMAIN_DB_ROLE_HOLDERS_H

#include <sqlite3.h>

#include <utility>
#include <vector>

#include "lib-domain/db/database.h"

namespace MDOMAIN::DB::INTERNAL {

class RoleHolders {
 public:
  // Within a ReadScope, where what is read beside it matters. False, with nothing logged, when it
  // cannot be read at once.
  bool Read(const Database& db, int domain_idx);
  // To be asked for ascending uids.
  bool Has(sqlite3_int64 uid);

 private:
  bool _ReadOwn(const Database& db, int domain_idx, std::vector<sqlite3_int64>& without);
  bool _ReadMembers(const Database& db, int domain_idx);

  std::vector<sqlite3_int64> uids_;  // ascending
  size_t next_ = 0;
};

// The number of users with aliases and a role in the domain. False, with nothing logged, when they
// cannot be read at once.
bool CountWithRole(DomainDBHandler* handler, int domain_idx, int& count);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_ROLE_HOLDERS_H
