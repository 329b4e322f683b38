// The public interface for mail domains.
#ifndef LIB_DOMAIN_API_DOMAIN_H
#define LIB_DOMAIN_API_DOMAIN_H

#include <string>
#include <vector>

#include "lib-domain/control/domain.h"
#include "lib-domain/record/domain.h"

namespace MDOMAIN::API {

class Domain : public CONTROL::Domain {
 public:
  bool Create(RECORD::Domain& domain, int& new_domain_idx);
  bool Set(const RECORD::Domain& domain);
  bool SetPrimary(const int& domain_idx);
  bool Delete(const std::vector<int>& domain_idxs);
  bool CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool SetAdditionalDomains(const int& domain_idx, const std::vector<std::string>& old_names,
                            const std::vector<std::string>& new_names);
  bool DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names);
  bool CreatePrimary(RECORD::Domain& domain, int& new_domain_idx);
  bool Migrate(RECORD::Domain& domain, const std::vector<std::string>& additional_domains);
  unsigned int GetErrorCode() const { return error_code_; }

 private:
  bool _CreatePrimaryImp(RECORD::Domain& domain, int& new_domain_idx);

  unsigned int error_code_ = 0;
};

namespace INTERNAL {

bool GetAllDomains(std::vector<RECORD::Domain>& domains);
void MovePrimaryDomainToFront(std::vector<RECORD::Domain>& domains);

}  // namespace INTERNAL
}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_H
