// The e-mail owner registry, forwarded.
#ifndef LIB_DOMAIN_CONTROL_EMAIL_OWNER_H
#define LIB_DOMAIN_CONTROL_EMAIL_OWNER_H

#include <string>
#include <vector>

#include "lib-domain/db/email_owner.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

// As DB::EmailOwner, whose comments hold here: files, keys that stay, results.
class MDOMAIN_EXPORT EmailOwner {
 public:
  EmailOwner() = default;
  explicit EmailOwner(const std::string& path) : store_(path) {}

  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);
  bool GetOwner(const std::string& local_part, const std::string& domain_name,
                std::string& user_name);

 private:
  DB::EmailOwner store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_EMAIL_OWNER_H
