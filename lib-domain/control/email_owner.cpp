// Hands everything to the store.
#include "lib-domain/control/email_owner.h"

namespace MDOMAIN::CONTROL {

bool EmailOwner::CreateLocalPart(const std::vector<RECORD::LocalPart>& parts) {
  return store_.CreateLocalPart(parts);
}

bool EmailOwner::CreateDomainPart(const std::vector<RECORD::DomainPart>& parts) {
  return store_.CreateDomainPart(parts);
}

bool EmailOwner::GetOwner(const std::string& local_part, const std::string& domain_name,
                          std::string& user_name) {
  return store_.GetOwner(local_part, domain_name, user_name);
}

}  // namespace MDOMAIN::CONTROL
