// The public interface for the users of domains, their aliases and addresses.
#ifndef LIB_DOMAIN_API_DOMAIN_USER_H
#define LIB_DOMAIN_API_DOMAIN_USER_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/control/domain_user.h"

namespace MDOMAIN::API {

class DomainUser : public CONTROL::DomainUser {
 public:
  bool Preview(const int& domain_idx, std::vector<std::pair<std::string, std::string>> entries,
               std::vector<RECORD::DomainUser>& preview);
  bool GetAliasUser(const int& domain_idx, const std::string& alias, std::string& user_name);
  bool ListWithExtraInfo(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);
  bool AddMembers(const int& domain_idx, const std::vector<std::string>& user_names,
                  const std::vector<std::string>& group_names,
                  std::vector<RECORD::DomainUserAlias>& aliases);
  bool Set(std::vector<RECORD::DomainUser>& users, std::vector<RECORD::DomainUser>& conflicts);
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool GetMailAddresses(const unsigned int& uid, std::vector<std::string>& addresses);
  bool GetMailAddresses(const std::string& user_name, std::vector<std::string>& addresses);
  bool GetMailAddrIncludingAdditionalDomain(const std::string& user_name,
                                            std::vector<std::string>& addresses);
  bool GetUser2AliasesMap(const int& domain_idx,
                          std::map<std::string, std::vector<std::string>>& aliases_by_user);
  bool GetAllUser2EmailsMap(const bool& include_additional,
                            std::map<std::string, std::vector<std::string>>& emails_by_user);

 private:
  bool _IsBelongingGroupsInDomain(const int& domain_idx, const unsigned int& uid, bool& result);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_USER_H
