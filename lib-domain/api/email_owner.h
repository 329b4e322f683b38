// Whose address is this?
#ifndef LIB_DOMAIN_API_EMAIL_OWNER_H
#define LIB_DOMAIN_API_EMAIL_OWNER_H

#include <string>
#include <vector>

#include "lib-domain/control/email_owner.h"

namespace MDOMAIN::API {

// As DB::EmailOwner, whose comments hold here: files, keys that stay, results. One object can
// answer any number of questions and should: opening the file costs more than asking. A registry
// that is replaced meanwhile is noticed.
class EmailOwner {
 public:
  EmailOwner() = default;
  explicit EmailOwner(const std::string& path) : control_(path) {}

  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);
  // The account that owns an address, which is split at its first "@". True with `user_name` empty
  // when nobody does. False without an "@" (nothing logged, `user_name` untouched) and when the
  // registry could not be asked.
  bool GetOwner(const std::string& address, std::string& user_name);

 private:
  CONTROL::EmailOwner control_;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_EMAIL_OWNER_H
