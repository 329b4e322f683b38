// The public interface for mirrored groups.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_GROUP_H
#define LIB_DOMAIN_API_GROUP_H

#include "lib-domain/control/group.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT Group : public CONTROL::Group {
 public:
  // Appends the mirrored groups that the filter selects, as of the last refresh.
  bool List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups);
  // Appends the uids of a mirrored group's members; an unknown group has none.
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_GROUP_H
