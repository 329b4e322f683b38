// How a user of a domain is shown.
#ifndef TOOLS_MDOMAIN_USER_OUTPUT_H
#define TOOLS_MDOMAIN_USER_OUTPUT_H

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "tools/mdomain/output.h"

namespace mdomain {

// "uid", "name", "role", "group_controlled", "aliases".
Json::Value UserJson(const MDOMAIN::RECORD::DomainUser& user);
// "uid", "name", "aliases": a user who has no role yet.
Json::Value CandidateJson(unsigned int uid, const std::string& name);
Json::Value AliasJson(const std::string& alias, bool duplicated);

// A candidate with "refused_alias": what the pattern gives and is no local part, else null.
Json::Value PreviewJson(const MDOMAIN::RECORD::DomainUser& user);

std::vector<Column> UserColumns();
std::vector<Column> CandidateColumns();
// With the refused aliases if there are any.
std::vector<Column> PreviewColumns(const Json::Value& records);

// The users of one domain whom the filter's query and page select, one after the other, without
// the roles that groups give them; or at once, with these.
void ForEachDomainUser(int domain_idx, MDOMAIN::DB::DomainDBFilter filter,
                       const std::function<void(const MDOMAIN::RECORD::DomainUser&)>& use);
std::vector<MDOMAIN::RECORD::DomainUser> ListDomainUsers(int domain_idx,
                                                         MDOMAIN::DB::DomainDBFilter filter);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_USER_OUTPUT_H
