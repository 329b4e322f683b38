// The public interface for mirrored groups.
#ifndef LIB_DOMAIN_API_GROUP_H
#define LIB_DOMAIN_API_GROUP_H

#include "lib-domain/control/group.h"

namespace MDOMAIN::API {

class Group : public CONTROL::Group {
 public:
  bool List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups);
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_GROUP_H
