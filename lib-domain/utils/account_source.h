// Reading the account system: enumeration, real names, group members, membership maps.
#ifndef LIB_DOMAIN_UTILS_ACCOUNT_SOURCE_H
#define LIB_DOMAIN_UTILS_ACCOUNT_SOURCE_H

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

bool DomainMailConfWinDomainShortNameGet(std::string& name);
bool DomainMailConfCurrentAuthTypeGet(AUTH_TYPE& type);
bool DomainMailConfAccDomainNameGet(std::string& name);

bool TryToGetAllZelmUsers(std::vector<RECORD::User>& users, bool& complete);
bool TryToGetAllZelmGroups(std::vector<RECORD::Group>& groups, bool& complete);
bool ShortName2RealName(bool is_user, const std::string& short_name, std::string& real_name);
void GetUserShortNamesFromGroupShortNames(const std::vector<std::string>& group_short_names,
                                          std::vector<std::string>& user_short_names);
void MergeAndDedupeUserShortNames(const std::vector<std::string>& a,
                                  const std::vector<std::string>& b,
                                  std::vector<std::string>& merged);

namespace INTERNAL {

using Gid2UidsMap = std::map<unsigned int, std::unordered_set<unsigned int>>;
using Domain2GidsMap = std::map<int, std::vector<unsigned int>>;

bool _DomainShortName2FullName(const std::string& short_name, std::string& full_name);
bool _LDAPShortname2FullName(const std::string& short_name, std::string& full_name);
bool _AppendUserShortNamesBelongToGroupRealName(const std::string& group_real_name,
                                                std::vector<std::string>& user_short_names);
Gid2UidsMap GetGid2UidsMap();
Domain2GidsMap GetDomain2GidsMap(const std::vector<int>& domain_idxs);
Domain2GidsMap GetAllDomain2GidsMap();
std::unordered_set<unsigned int> GetUidsBelongedToGroups(const std::vector<unsigned int>& gids,
                                                         const Gid2UidsMap& uids_by_gid);
std::unordered_set<unsigned int> GetUidsBelongedToGroups(const std::vector<RECORD::Group>& groups,
                                                         const Gid2UidsMap& uids_by_gid);
bool IsUserBelongsToGroups(const std::vector<unsigned int>& gids, const Gid2UidsMap& uids_by_gid,
                           unsigned int uid);
bool IsBelongingGroupsInDomain(const int& domain_idx, const unsigned int& uid, bool& result);

// Forgets the configuration values kept for the life of the process. For tests only.
void ResetAccountConfigurationForTest();

}  // namespace INTERNAL
}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_ACCOUNT_SOURCE_H
