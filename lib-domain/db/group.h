// The mirror of the account system's groups and their members.
//
// Operations return true on success. A failure is false and one error line that says what failed,
// after a line with SQLite's reason (of a write a warning, of a read an error too); out arguments
// may then be partly filled. Writes are one transaction each: all or nothing. Texts end at their
// first zero byte; one that makes a statement longer than 999,999 bytes fails the operation.
#ifndef LIB_DOMAIN_DB_GROUP_H
#define LIB_DOMAIN_DB_GROUP_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
}

class MDOMAIN_EXPORT Group {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  Group();

  // Untouched when the gid is not mirrored.
  bool GetName(const unsigned int& gid, std::string& name);
  // Appends the members of a group; none for an unknown one.
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);
  // Members of every group with one read, each list in ListGroupToUsers' order; groups without
  // members are not in the map.
  bool ListAllGroupToUsers(std::map<unsigned int, std::vector<unsigned int>>& uids_by_gid);
  // Adds the groups that are not there yet; a gid that is there stays as it is. Invalid records are
  // left out silently, here and in Set.
  bool Create(const std::vector<RECORD::Group>& groups);
  // Changes name and description; unknown gids are no failure.
  bool Set(const std::vector<RECORD::Group>& groups);
  // Adds memberships; those that are there already are no failure. Group and user must be mirrored,
  // else nothing is written.
  bool SetGroupToUsers(const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs);
  // Deletes the groups with their memberships, roles and removal records in all domains.
  bool Delete(const std::vector<unsigned int>& gids);
  // Deletes all memberships of the groups, which stay.
  bool DeleteGroupToUsers(const std::vector<unsigned int>& gids);
  // Appends the matching groups.
  bool List(const GroupDBFilter& filter, std::vector<RECORD::Group>& groups);

 private:
  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_GROUP_H
