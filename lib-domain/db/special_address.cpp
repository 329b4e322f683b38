#include "lib-domain/db/special_address.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// A row of an own role hides the roles of groups.
constexpr const char* kSelectAdministrators =
    "SELECT own.domain_idx, user_name FROM domain_user_role_table AS own CROSS JOIN user_table "
    "USING (uid) WHERE own.role = 'domain_admin' UNION SELECT granted.domain_idx, user_name FROM "
    "domain_group_role_table AS granted CROSS JOIN group_to_user_table AS member ON member.gid = "
    "granted.gid CROSS JOIN user_table ON user_table.uid = member.uid WHERE granted.role = "
    "'domain_admin' AND NOT EXISTS (SELECT 1 FROM domain_user_role_table AS own WHERE "
    "own.domain_idx = granted.domain_idx AND own.uid = member.uid) AND NOT EXISTS (SELECT 1 FROM "
    "domain_group_removed_user_table AS removal WHERE removal.domain_idx = granted.domain_idx AND "
    "removal.gid = member.gid AND removal.uid = member.uid) ORDER BY 1, 2";
constexpr const char* kSelectMembers =
    "SELECT DISTINCT user_name FROM group_to_user_table CROSS JOIN user_table USING (uid) WHERE "
    "gid "
    "= (SELECT gid FROM group_table WHERE group_name = '%q' COLLATE NOCASE ORDER BY group_name = "
    "'%q' DESC LIMIT 1) ORDER BY 1";
constexpr const char* kSelectAccount =
    "SELECT user_name FROM user_table WHERE user_name = '%q' COLLATE NOCASE ORDER BY user_name = "
    "'%q' DESC LIMIT 1";
constexpr const char* kSelectKept =
    "SELECT domain_idx, local_part, address, gives_way FROM mdomain_special_address_table";
constexpr const char* kDelete = "DELETE FROM mdomain_special_address_table";
constexpr const char* kInsert =
    "INSERT INTO mdomain_special_address_table(domain_idx, local_part, address, gives_way) "
    "VALUES('%d', '%q', '%q', '%d')";

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

}  // namespace

bool ListAdministrators(std::map<int, std::vector<std::string>>& names_by_domain) {
  return DomainDb().Query<Columns<Int, Text>>(
      kSelectAdministrators, [&names_by_domain](int domain_idx, std::string&& name) {
        names_by_domain[domain_idx].push_back(std::move(name));
      });
}

bool ListMembersOfGroup(const std::string& group_name, std::vector<std::string>& names) {
  return DomainDb().Append<Columns<Text>>(
      FormatStatement(kSelectMembers, group_name.c_str(), group_name.c_str()), names);
}

bool FindAccount(const std::string& text, std::string& name) {
  name.clear();
  return DomainDb().GetText(FormatStatement(kSelectAccount, text.c_str(), text.c_str()), 0, name);
}

bool ListKeptAddresses(SpecialAddresses& kept) {
  return DomainDb().Query<Columns<Int, Text, Text, Flag>>(
      kSelectKept,
      [&kept](int domain_idx, std::string&& local_part, std::string&& address, bool gives_way) {
        kept[{domain_idx, std::move(local_part)}] = {std::move(address), gives_way};
      });
}

bool KeepAddresses(const SpecialAddresses& addresses) {
  StatementBatch batch;
  batch.Add(kDelete);
  for (const auto& [key, receivers] : addresses) {
    batch.Add(FormatStatement(kInsert, key.first, key.second.c_str(), receivers.addresses.c_str(),
                              receivers.gives_way ? 1 : 0));
  }
  return DomainDb().Run(batch, "fail to insert mdomain_special_address_table");
}

}  // namespace MDOMAIN::DB::INTERNAL
