// Who left which domain and whose settings outside the domain database are still to be removed.
//
// The rows are written in the transaction that deletes the rows of those who leave, and go when the
// clean-up has succeeded. So a run that is killed in between, or whose clean-up fails, is finished
// by a later one. The table is ours: it is made when the first row needs it, and a database from
// which nobody left has the schema alone.
//
// Operations return true on success. A failure is false and one error line.
#ifndef LIB_DOMAIN_DB_DEPARTURE_H
#define LIB_DOMAIN_DB_DEPARTURE_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
}

// What is to be cleaned up in one domain.
struct DomainDepartures {
  // The domain itself was deleted, under this name.
  bool is_domain_deleted = false;
  std::string domain_name;
  // Ids with names. A name is empty when another account of that name stays in the domain: what
  // stands under the name is that one's.
  std::vector<std::pair<unsigned int, std::string>> users;
  std::vector<std::pair<unsigned int, std::string>> groups;
  // Those of the users whose rows may still be there: taking them out began and did not end.
  std::vector<unsigned int> removals;
  // The aliases of the users that nobody else had in the domain.
  std::vector<std::string> aliases;
};

class Departure {
 public:
  // In place of a domain index: every domain in which the users (groups) are.
  static constexpr int kEveryDomain = -1;

  // Borrows the process-wide handler; without one every operation fails.
  Departure();

  // Records who is about to leave: called before the rows are deleted, which it reads. Ids that are
  // not mirrored are left out; nothing happens for none.
  bool AddUsers(int domain_idx, const std::vector<unsigned int>& uids);
  bool AddGroups(int domain_idx, const std::vector<unsigned int>& gids);
  bool AddDomains(const std::vector<int>& domain_idxs);
  // AddUsers, and that their rows are still to go. EndRemovals: they are gone now.
  bool BeginRemovals(int domain_idx, const std::vector<unsigned int>& uids);
  bool EndRemovals(int domain_idx, const std::vector<unsigned int>& uids);

  // Forgets what was recorded: the clean-up is done, or they stayed. A record must have been made
  // before.
  bool DeleteUsers(int domain_idx, const std::vector<unsigned int>& uids);
  bool DeleteGroups(int domain_idx, const std::vector<unsigned int>& gids);
  // Both, of one domain.
  bool DeleteFinished(int domain_idx, const std::vector<unsigned int>& uids,
                      const std::vector<unsigned int>& gids);
  // All that is recorded, of all domains.
  bool DeleteAll();
  // Everything about the domains.
  bool DeleteDomains(const std::vector<int>& domain_idxs);

  // Adds what is recorded, by domain.
  bool List(std::map<int, DomainDepartures>& departures);

 private:
  bool _AddUsers(int domain_idx, const std::vector<unsigned int>& uids, bool has_rows);
  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DEPARTURE_H
