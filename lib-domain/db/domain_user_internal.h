// How rows of the user list, one per alias, become users.
#ifndef LIB_DOMAIN_DB_DOMAIN_USER_INTERNAL_H
#define LIB_DOMAIN_DB_DOMAIN_USER_INTERNAL_H

#include <string>
#include <utility>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB::INTERNAL {

// Duplicated before not duplicated.
MDOMAIN_EXPORT bool _CompareAliasDuplicatedPairByIsDuplicated(
    const std::pair<std::string, bool>& a, const std::pair<std::string, bool>& b);
// Adds the aliases of `rows` to the first entry of `users` with the same domain and uid; a row
// without one becomes a new entry at the end. Then sorts every entry's aliases, duplicated ones
// first, else in the order in which they came. Linear but for the sorting.
MDOMAIN_EXPORT void _MergeDomainUsers(const std::vector<RECORD::DomainUser>& rows,
                                      std::vector<RECORD::DomainUser>& users);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_DOMAIN_USER_INTERNAL_H
