// Whose address is this?
#ifndef LIB_DOMAIN_API_EMAIL_OWNER_H
#define LIB_DOMAIN_API_EMAIL_OWNER_H

#include <string>
#include <vector>

#include "lib-domain/control/email_owner.h"

namespace MDOMAIN::API {

class EmailOwner {
 public:
  EmailOwner() = default;
  explicit EmailOwner(const std::string& path) : control_(path) {}

  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);
  // `address` is split at its first "@"; without one: false.
  bool GetOwner(const std::string& address, std::string& user_name);

 private:
  CONTROL::EmailOwner control_;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_EMAIL_OWNER_H
