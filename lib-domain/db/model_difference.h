// Whose addresses differ between two model files.
#ifndef LIB_DOMAIN_DB_MODEL_DIFFERENCE_H
#define LIB_DOMAIN_DB_MODEL_DIFFERENCE_H

#include <set>
#include <string>

namespace MDOMAIN::DB::INTERNAL {

// Adds the uids of those who have another alias, role or flag of collision in one file than in the
// other, or a domain of another name or with other further names. Somebody without a role has no
// address. A file that is missing or empty has nobody, so everybody of the other one is added. Both
// are only read. False with one log line when one of them cannot be read as a model; then nobody is
// added.
bool ListChangedAddresses(const std::string& before, const std::string& after,
                          std::set<unsigned int>& uids);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_MODEL_DIFFERENCE_H
