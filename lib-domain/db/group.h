// The mirror of the account system's groups and of who belongs to them.
#ifndef LIB_DOMAIN_DB_GROUP_H
#define LIB_DOMAIN_DB_GROUP_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/group.h"

namespace MDOMAIN::DB {

class Group {
 public:
  Group();

  bool GetName(const unsigned int& gid, std::string& name);
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);
  // Members of every group with one read, each list in ListGroupToUsers' order; groups without
  // members are not in the map.
  bool ListAllGroupToUsers(std::map<unsigned int, std::vector<unsigned int>>& uids_by_gid);
  bool Create(const std::vector<RECORD::Group>& groups);
  bool Set(const std::vector<RECORD::Group>& groups);
  bool SetGroupToUsers(const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs);
  bool Delete(const std::vector<unsigned int>& gids);
  bool DeleteGroupToUsers(const std::vector<unsigned int>& gids);
  bool List(const GroupDBFilter& filter, std::vector<RECORD::Group>& groups);

 private:
  DomainDBHandler* handler_;
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_GROUP_H
