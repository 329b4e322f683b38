// The mirror of the account system's users.
//
// Operations return true on success. A failure is false and one error line that says what failed,
// after a line with SQLite's reason (of a write a warning, of a read an error too); out arguments
// may then be partly filled. Writes are one transaction each: all or nothing. Texts end at their
// first zero byte; one that makes a statement longer than 999,999 bytes fails the operation.
#ifndef LIB_DOMAIN_DB_USER_H
#define LIB_DOMAIN_DB_USER_H

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
}  // namespace INTERNAL

class MDOMAIN_EXPORT User {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  User();

  // The uid of a full name, ASCII case ignored. Untouched when the name is not mirrored: preset it.
  bool GetUID(const std::string& name, unsigned int& uid);
  // Untouched when the uid is not mirrored.
  bool GetName(const unsigned int& uid, std::string& name);
  // GetName for many users with one read; uids that are not mirrored are not in the map.
  bool GetNames(const std::vector<unsigned int>& uids,
                std::unordered_map<unsigned int, std::string>& names);
  // Appends the groups of the user.
  bool FindBelongingGroups(const unsigned int& uid, std::vector<unsigned int>& gids);
  // Adds the users that are not there yet; a uid that is there keeps its name. Invalid records are
  // left out silently, here and in Set.
  bool Create(const std::vector<RECORD::User>& users);
  // Renames; unknown uids are no failure.
  bool Set(const std::vector<RECORD::User>& users);
  // Deletes the users with their memberships, roles, aliases and removal records in all domains.
  bool Delete(const std::vector<unsigned int>& uids);
  // False in every case, whatever is stored.
  bool IsExists(const RECORD::User& user);
  // Appends the matching users.
  bool List(const UserDBFilter& filter, std::vector<RECORD::User>& users);
  // List, one after the other, for a listing of any length; `use` must not change the database.
  // Before a failure some were handed out.
  using UserVisitor = std::function<void(const RECORD::User& user)>;
  bool ForEach(const UserDBFilter& filter, const UserVisitor& use);

 private:
  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_USER_H
