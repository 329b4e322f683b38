// Parts of what the registry of address owners should hold.
#ifndef LIB_DOMAIN_SYNC_OWNER_CONTENT_H
#define LIB_DOMAIN_SYNC_OWNER_CONTENT_H

#include <string>
#include <vector>

#include "lib-domain/record/address_part.h"

namespace MDOMAIN::UTILS {

// Adds every name of every domain in both spellings; false when they cannot be read.
bool CollectDomainNames(std::vector<RECORD::DomainPart>& names);
// Adds the local parts of these domains with their owners, where that is told by flags and roles
// alone; where it is not `is_clear` is false. False with a log line when they cannot be read.
bool CollectOwnersOf(const std::vector<int>& domain_idxs, std::vector<RECORD::LocalPart>& owners,
                     bool& is_clear);
// Adds one name and, where there is one, its other spelling.
void AddDomainName(const std::string& name, int domain_idx, std::vector<RECORD::DomainPart>& names);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_OWNER_CONTENT_H
