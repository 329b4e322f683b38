// The mirror of users, forwarded.
#ifndef LIB_DOMAIN_CONTROL_USER_H
#define LIB_DOMAIN_CONTROL_USER_H

#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/user.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::CONTROL {

class User {
 public:
  bool List(const DB::UserDBFilter& filter, std::vector<RECORD::User>& users);
  bool Create(const std::vector<RECORD::User>& users);
  bool Set(const std::vector<RECORD::User>& users);
  bool Delete(const std::vector<unsigned int>& uids);

 private:
  DB::User store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_USER_H
