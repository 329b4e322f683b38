// The two halves of a mail address.
#include "lib-domain/record/address_part.h"

namespace MDOMAIN::RECORD {

DomainPart::DomainPart(const std::string& domain_name, const int& domain_idx)
    : domain_name_(domain_name), domain_idx_(domain_idx) {}

LocalPart::LocalPart(const std::string& local_part, const int& domain_idx,
                     const std::string& user_name)
    : local_part_(local_part), domain_idx_(domain_idx), user_name_(user_name) {}

}  // namespace MDOMAIN::RECORD
