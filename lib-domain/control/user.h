// The mirror of users, forwarded to its store as it is.
#ifndef LIB_DOMAIN_CONTROL_USER_H
#define LIB_DOMAIN_CONTROL_USER_H

#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/user.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

class MDOMAIN_EXPORT User {
 public:
  // Appends the mirrored users that the filter lets through.
  bool List(const DB::UserDBFilter& filter, std::vector<RECORD::User>& users);
  // Calls `use` for each of them, one after the other; it must not change the database.
  bool ForEach(const DB::UserDBFilter& filter, const DB::User::UserVisitor& use);
  // The names of many users with one read; uids that are not mirrored are not in the map.
  bool GetNames(const std::vector<unsigned int>& uids,
                std::unordered_map<unsigned int, std::string>& names);
  // Adds users; one whose uid is mirrored already keeps its old name. Invalid records are skipped.
  bool Create(const std::vector<RECORD::User>& users);
  // Renames mirrored users; unknown uids and invalid records are skipped.
  bool Set(const std::vector<RECORD::User>& users);
  // Deletes users with their memberships and everything that they have in any domain.
  bool Delete(const std::vector<unsigned int>& uids);

 private:
  DB::User store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_USER_H
