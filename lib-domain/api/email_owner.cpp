// Splits the address and hands everything to the layer below.
#include "lib-domain/api/email_owner.h"

namespace MDOMAIN::API {

bool EmailOwner::CreateLocalPart(const std::vector<RECORD::LocalPart>& parts) {
  return control_.CreateLocalPart(parts);
}

bool EmailOwner::CreateDomainPart(const std::vector<RECORD::DomainPart>& parts) {
  return control_.CreateDomainPart(parts);
}

bool EmailOwner::GetOwner(const std::string& address, std::string& user_name) {
  const size_t at = address.find('@');
  if (at == std::string::npos) {
    return false;
  }
  return control_.GetOwner(address.substr(0, at), address.substr(at + 1), user_name);
}

}  // namespace MDOMAIN::API
