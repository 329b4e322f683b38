// Who has a role in a domain, gathered once: for whoever asks about all its users.
//
// To look up each of them by indexes costs several times what it costs to read own roles, members
// of groups and removals in the order in which they are stored.
#ifndef LIB_DOMAIN_DB_ROLE_HOLDERS_H
#define LIB_DOMAIN_DB_ROLE_HOLDERS_H

#include <sqlite3.h>

#include <limits>
#include <map>
#include <string>
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
  // The place of the role among all by their bytes, of the uid for which Has just gave true.
  unsigned int RolePlace() const { return holders_[next_].second; }
  // False where a role is stored that is no text.
  bool AreTexts() const { return are_texts_; }

 private:
  // Of a uid, with the place of its role.
  using Holders = std::vector<std::pair<sqlite3_int64, unsigned int>>;
  static constexpr unsigned int kNone = std::numeric_limits<unsigned int>::max();

  bool _ReadOwn(const Database& db, int domain_idx, Holders& own);
  bool _ReadMembers(const Database& db, int domain_idx, Holders& members);
  unsigned int _NumberOf(const Cells& row, int column);
  void _PutInOrder(Holders& holders) const;

  Holders holders_;  // ascending
  size_t next_ = 0;
  std::map<std::string, unsigned int, std::less<>> numbers_;  // by role, as they were met
  bool are_texts_ = true;
};

// The number of users with aliases and a role in the domain. False, with nothing logged, when they
// cannot be read at once.
bool CountWithRole(DomainDBHandler* handler, int domain_idx, int& count);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_ROLE_HOLDERS_H
