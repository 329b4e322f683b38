// Listing domains for those who need no more than their names.
#ifndef LIB_DOMAIN_API_DOMAIN_INTERNAL_H
#define LIB_DOMAIN_API_DOMAIN_INTERNAL_H

#include <vector>

#include "lib-domain/record/domain.h"

namespace MDOMAIN::API::INTERNAL {

// As GetAllDomains, but with index, name and primary flag alone: no user is counted for it.
bool GetAllDomainNames(std::vector<RECORD::Domain>& domains);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DOMAIN_INTERNAL_H
