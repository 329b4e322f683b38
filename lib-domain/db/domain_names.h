// The names of all domains, as they were read in one moment.
#ifndef LIB_DOMAIN_DB_DOMAIN_NAMES_H
#define LIB_DOMAIN_DB_DOMAIN_NAMES_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/record/domain.h"

namespace MDOMAIN::DB {

struct DomainNames {
  std::vector<RECORD::Domain> domains;                 // as Domain::ListNames gives them
  std::map<int, std::vector<std::string>> additional;  // as Domain::ListAllAdditionalDomains does
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_NAMES_H
