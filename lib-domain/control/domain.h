// Whole operations on domains.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_H
#define LIB_DOMAIN_CONTROL_DOMAIN_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/db/domain.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/record/domain.h"

namespace MDOMAIN::CONTROL {

class Domain {
 public:
  bool Create(RECORD::Domain& domain, int& new_domain_idx);
  bool Set(const RECORD::Domain& domain);
  bool Delete(const std::vector<int>& domain_idxs, bool allow_primary);
  bool SetPrimaryDomain(const int& domain_idx);
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names,
                               bool skip_existing);
  bool SetAdditionalDomains(const int& domain_idx, const std::vector<std::string>& current_names,
                            const std::vector<std::string>& new_names);
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names);
  bool ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain);
  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::Domain>& domains);
  bool GetDomainCount(DB::DomainDBFilter& filter, int& count);
  bool GetAllDomainCount(int& count);
  bool GetPrimaryDomain(RECORD::Domain& domain);
  bool GetPrimaryDomainIdx(int& domain_idx);
  bool GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs);
  bool GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs);
  bool GetDomainNameByIdx(const int& domain_idx, std::string& name);
  bool IsAnyDomainsAdmin(const unsigned int& uid);
  bool IsDomainAdmin(const unsigned int& uid, const int& domain_idx);

 private:
  bool _InitDomainRelatedSettings(const int& domain_idx);
  bool _UpdatePrimaryDomainRelatedSettings(const int& domain_idx);
  bool _DeleteRelatedSettings(const std::vector<int>& domain_idxs);
  bool _DeleteAliasRelatedSettings(const int& domain_idx);
  bool _DeleteUsageLimitRelatedSettings(const int& domain_idx);
  bool _DeleteBCCRelatedSettings(const int& domain_idx);
  bool _DeleteDisclaimerSettings(const int& domain_idx);
  bool _DeleteDKIMSettings(const int& domain_idx);

  DB::Domain store_;
};

namespace INTERNAL {

bool IExists(const std::vector<std::string>& names, const std::string& name);
std::vector<std::string> EraseDuplicatedDomainNames(const std::vector<std::string>& names);

}  // namespace INTERNAL
}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_H
