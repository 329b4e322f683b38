// The store of domain rows, additional domain names and the primary-domain marker.
//
// Operations return true on success. A failure is false and one error line that says what failed,
// after a line with SQLite's reason (of a write a warning, of a read an error too); out arguments
// may then be partly filled. Writes are one transaction each: all or nothing. Texts end at their
// first zero byte; one that makes a statement longer than 999,999 bytes fails the operation.
// No rule about names, duplicates or the primary domain is applied here but the one on additional
// names: that is control's.
#ifndef LIB_DOMAIN_DB_DOMAIN_H
#define LIB_DOMAIN_DB_DOMAIN_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

struct DomainNames;

namespace INTERNAL {
class Database;
}

class MDOMAIN_EXPORT Domain {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  Domain();

  // Inserts the row under the record's own index; a taken index fails.
  bool Create(const RECORD::Domain& domain);
  // Updates name, description, pattern and the adding flag. True also when there is no such row.
  bool Set(const RECORD::Domain& domain);
  // Deletes the rows; whatever hangs on them in the database (additional names, primary marker,
  // roles, aliases, removals) goes with them. Unknown indexes and an empty list are no failure.
  bool Delete(const std::vector<int>& domain_idxs);
  // Appends the matching domains, each with its number of users that have a role.
  bool List(DomainDBFilter& filter, std::vector<RECORD::Domain>& domains);
  // Index, name and primary flag of every domain, in the order in which List gives them; the other
  // members keep their defaults. Reads no user: what is published or addressed needs no more.
  bool ListNames(std::vector<RECORD::Domain>& domains);
  // The same, of which there is no copy while nobody changes a name. Never null; what was read
  // before a failure, ascending by index.
  bool ShareNamedDomains(std::shared_ptr<const std::vector<RECORD::Domain>>& domains);
  // The same with all additional names. False, with nothing logged, where the two operations tell
  // more: when they cannot be read, or in a transaction that writes. While nobody changes a name
  // nothing is read, and the object is the same.
  bool ShareNames(std::shared_ptr<const DomainNames>& names);
  // The number of matching domains, whatever the filter's page.
  bool GetDomainCount(DomainDBFilter& filter, int& count);
  // The number of all domains, -1 when it cannot be read; true in either case.
  bool GetAllDomainCount(int& count);
  // One more than the highest index, 1 without any. A deleted highest index is given out again.
  bool GetNextDomainIDX(int& domain_idx);
  // Whether a domain or an additional name has this name in its U-label or A-label spelling, ASCII
  // case ignored. False also when the query fails.
  bool IsDomainNameExist(const std::string& name);
  // The same, with a failed query told apart: false, `taken` untouched.
  bool FindName(const std::string& name, bool& taken);
  // The name of a domain, untouched without such a domain.
  bool GetName(const int& domain_idx, std::string& name);
  // Whether the stored name of the record's index is another one, byte by byte: a change of case is
  // one. False without such a row and when the query fails.
  bool IsDomainNameChanged(const RECORD::Domain& domain);
  // Untouched without such a domain. An index below -1 fails.
  bool GetDefaultAliasPattern(const int& domain_idx, std::string& pattern);
  // Untouched when no domain is primary, as in GetPrimaryDomainIdx.
  bool GetPrimaryDomain(RECORD::Domain& domain);
  bool GetPrimaryDomainIdx(int& domain_idx);
  // Makes this domain, which must exist, the only primary one.
  bool SetPrimaryDomain(const int& domain_idx);
  // Adds the valid names to a domain, which must exist; an invalid one is a warning and left out,
  // one that is there already is no failure.
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  // Adds names that were stored before, whatever the rule for names says today.
  bool RestoreAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  // Removes names, spelled exactly as stored; unknown ones are no failure. A name of more than 2048
  // bytes is logged and left out.
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  // Appends the names; none for an unknown domain. An index below -1 fails.
  bool ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names);
  // Every domain's additional names with one statement, each list in ListAdditionalDomains' order;
  // domains without any are not in the map.
  bool ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain);
  // Appends the domains in which the user's effective role is "domain_admin", once per alias of the
  // user there: a domain can stand more than once.
  bool GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs);
  // Appends the domains that add new accounts.
  bool GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs);
  // Appends every uid with an alias in one of the domains, once, with a role or without.
  bool GetBelongedUsers(const std::vector<int>& domain_idxs, std::vector<unsigned int>& uids);

 private:
  bool _InsertAdditional(const int& domain_idx, const std::vector<std::string>& names);
  bool _FetchDomainsUserNum(std::vector<RECORD::Domain>& domains);

  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_H
