// The public interface for mirrored users.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_USER_H
#define LIB_DOMAIN_API_USER_H

#include "lib-domain/control/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT User : public CONTROL::User {
 public:
  // Appends the mirrored users that the filter selects. They are those of the last refresh, not of
  // this moment.
  bool List(const DB::UserDBFilter& filter, std::vector<RECORD::User>& users);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_USER_H
