// The store of domain rows, additional domain names and the primary-domain marker.
#ifndef LIB_DOMAIN_DB_DOMAIN_H
#define LIB_DOMAIN_DB_DOMAIN_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain.h"

namespace MDOMAIN::DB {

class Domain {
 public:
  Domain();

  bool Create(const RECORD::Domain& domain);
  bool Set(const RECORD::Domain& domain);
  bool Delete(const std::vector<int>& domain_idxs);
  bool List(DomainDBFilter& filter, std::vector<RECORD::Domain>& domains);
  // Index, name and primary flag of every domain, in the order in which List gives them; the other
  // members keep their defaults. Reads no user: what is published or addressed needs no more.
  bool ListNames(std::vector<RECORD::Domain>& domains);
  bool GetDomainCount(DomainDBFilter& filter, int& count);
  bool GetAllDomainCount(int& count);
  bool GetNextDomainIDX(int& domain_idx);
  bool IsDomainNameExist(const std::string& name);
  bool IsDomainNameChanged(const RECORD::Domain& domain);
  bool GetDefaultAliasPattern(const int& domain_idx, std::string& pattern);
  bool GetPrimaryDomain(RECORD::Domain& domain);
  bool GetPrimaryDomainIdx(int& domain_idx);
  bool SetPrimaryDomain(const int& domain_idx);
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names);
  // Every domain's additional names with one statement, each list in ListAdditionalDomains' order;
  // domains without any are not in the map.
  bool ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain);
  bool GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs);
  bool GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs);
  bool GetBelongedUsers(const std::vector<int>& domain_idxs, std::vector<unsigned int>& uids);

 private:
  bool _FetchDomainsUserNum(std::vector<RECORD::Domain>& domains);

  DomainDBHandler* handler_;
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_H
