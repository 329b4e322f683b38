// All aliases of a domain's users in one read, for those who would else ask for one user at a time.
#define MDOMAIN_LOG_SOURCE "lib-domain/db/domain_user.cpp"

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_user.h"

namespace MDOMAIN::DB {

bool DomainUser::GetAllUserAliases(
    const int& domain_idx,
    std::unordered_map<std::string, std::vector<std::string>>& aliases_by_user) {
  if (status_ != 0) {
    LOG_ERROR("Open domainDBHandler cannot open before");
    return false;
  }
  const std::string query =
      "SELECT user_table.user_name, domain_user_alias_table.account_alias"
      " FROM domain_user_alias_table INNER JOIN user_table"
      " ON domain_user_alias_table.uid = user_table.uid"
      " WHERE domain_user_alias_table.domain_idx = " +
      std::to_string(domain_idx) + " ORDER BY domain_user_alias_table.rowid";
  std::unordered_map<std::string, std::vector<std::string>> found;
  try {
    for (const std::vector<std::string>& row : handler_->ExecSelectCmd(query)) {
      if (row.size() >= 2) {
        found[BASE::ToLowerAscii(row[0])].push_back(row[1]);
      }
    }
  } catch (const korvmailserver::LogException&) {
    LOG_ERROR("failed to ExecSelectCmd");
    return false;
  }
  aliases_by_user.swap(found);
  return true;
}

}  // namespace MDOMAIN::DB
