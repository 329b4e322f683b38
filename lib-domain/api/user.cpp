#include "lib-domain/api/user.h"

namespace MDOMAIN::API {

bool User::List(const DB::UserDBFilter& filter, std::vector<RECORD::User>& users) {
  return CONTROL::User::List(filter, users);
}

}  // namespace MDOMAIN::API
