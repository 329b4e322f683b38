// The public interface for the groups of domains and their members' status.
#ifndef LIB_DOMAIN_API_DOMAIN_GROUP_H
#define LIB_DOMAIN_API_DOMAIN_GROUP_H

#include <string>
#include <tuple>
#include <vector>

#include "lib-domain/control/domain_group.h"

namespace MDOMAIN::API {

class DomainGroup : public CONTROL::DomainGroup {
 public:
  bool GetMemberStatus(const int& domain_idx, const unsigned int& gid,
                       std::vector<std::tuple<unsigned int, std::string, std::string>>& members);
  bool Set(const std::vector<RECORD::DomainGroupRole>& roles);
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool RestoreMemberStatus(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool RestoreMemberStatus(const int& domain_idx, const unsigned int& gid,
                           const std::vector<unsigned int>& uids);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_GROUP_H
