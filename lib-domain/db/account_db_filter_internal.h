// The SQL texts that the filters of accounts stand for: what the stores of users and groups run.
#ifndef LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_INTERNAL_H
#define LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_INTERNAL_H

#include <string>

#include "lib-domain/db/account_db_filter.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB::INTERNAL {

// The query for one row per account. Ids that are listed go into one statement, however many.
MDOMAIN_EXPORT std::string ComposeQueryCmd(const UserDBFilter& filter);
MDOMAIN_EXPORT std::string ComposeQueryCmd(const GroupDBFilter& filter);
// Whether the filter leaves any row out: a query, ids or names are set.
MDOMAIN_EXPORT bool HasQueryInput(const UserDBFilter& filter);
MDOMAIN_EXPORT bool HasQueryInput(const GroupDBFilter& filter);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_INTERNAL_H
