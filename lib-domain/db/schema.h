// Where the domain database lies and the scripts that bring it from version to version.
#ifndef LIB_DOMAIN_DB_SCHEMA_H
#define LIB_DOMAIN_DB_SCHEMA_H

#include <string>
#include <vector>

namespace MDOMAIN::UTILS {

bool GetUserGroupDomainConfigPath(std::string& path);
bool DomainUtilGetSqliteCmds(std::vector<std::string>& cmds);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_DB_SCHEMA_H
