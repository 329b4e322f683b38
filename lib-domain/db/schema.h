// Where the domain database lies and the scripts that bring it from version to version.
#ifndef LIB_DOMAIN_DB_SCHEMA_H
#define LIB_DOMAIN_DB_SCHEMA_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// The domain database of the account domain in force: one file per account source, so that
// switching the source and back finds the old one. False, `path` untouched, when the account
// domain cannot be read or is empty (one log line).
MDOMAIN_EXPORT bool GetUserGroupDomainConfigPath(std::string& path);

// Replaces `cmds` by the scripts: script N (from 1) brings a file from version N-1 to N. Each is a
// list of statements separated by ";". True.
MDOMAIN_EXPORT bool DomainUtilGetSqliteCmds(std::vector<std::string>& cmds);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_DB_SCHEMA_H
