// The mirror of the account system's users.
#ifndef LIB_DOMAIN_DB_USER_H
#define LIB_DOMAIN_DB_USER_H

#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::DB {

class User {
 public:
  User();

  bool GetUID(const std::string& name, unsigned int& uid);
  bool GetName(const unsigned int& uid, std::string& name);
  // GetName for many users with one read; uids that are not mirrored are not in the map.
  bool GetNames(const std::vector<unsigned int>& uids,
                std::unordered_map<unsigned int, std::string>& names);
  bool FindBelongingGroups(const unsigned int& uid, std::vector<unsigned int>& gids);
  bool Create(const std::vector<RECORD::User>& users);
  bool Set(const std::vector<RECORD::User>& users);
  bool Delete(const std::vector<unsigned int>& uids);
  // False in every case, whatever is stored.
  bool IsExists(const RECORD::User& user);
  bool List(const UserDBFilter& filter, std::vector<RECORD::User>& users);

 private:
  DomainDBHandler* handler_;
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_USER_H
