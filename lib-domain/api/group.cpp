#include "lib-domain/api/group.h"

namespace MDOMAIN::API {

bool Group::List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups) {
  return CONTROL::Group::List(filter, groups);
}

bool Group::ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids) {
  return CONTROL::Group::ListGroupToUsers(gid, uids);
}

}  // namespace MDOMAIN::API
