// The public interface to the registry that says whose an address is.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_EMAIL_OWNER_H
#define LIB_DOMAIN_API_EMAIL_OWNER_H

#include <string>
#include <vector>

#include "lib-domain/control/email_owner.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

// Files, keys and results are those of DB::EmailOwner. Keep one object for many look-ups: opening
// the file costs more than a look-up. It notices when the registry is replaced.
class MDOMAIN_EXPORT EmailOwner {
 public:
  EmailOwner() = default;
  explicit EmailOwner(const std::string& path) : control_(path) {}

  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);
  // The account that owns an address, which is split at its first "@". True with `user_name` empty
  // when nobody does. False without an "@" (nothing logged, `user_name` untouched) and when the
  // registry cannot be read.
  bool GetOwner(const std::string& address, std::string& user_name);

 private:
  CONTROL::EmailOwner control_;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_EMAIL_OWNER_H
