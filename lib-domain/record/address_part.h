// The two halves of a mail address with the domain and the account that own them.
#ifndef LIB_DOMAIN_RECORD_ADDRESS_PART_H
#define LIB_DOMAIN_RECORD_ADDRESS_PART_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

// A domain name and the index of the domain that it belongs to. Not validated.
class MDOMAIN_EXPORT DomainPart {
 public:
  // Index 1: a registry of a single domain needs no other.
  DomainPart() = default;
  DomainPart(const std::string& domain_name, const int& domain_idx);

  const std::string& GetDomainName() const { return domain_name_; }
  void SetDomainName(const std::string& domain_name) { domain_name_ = domain_name; }
  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }

 private:
  std::string domain_name_;
  int domain_idx_ = 1;
};

// A local part, the index of its domain, and the account that owns it. Not validated.
class MDOMAIN_EXPORT LocalPart {
 public:
  // Index 1: a registry of a single domain needs no other.
  LocalPart() = default;
  LocalPart(const std::string& local_part, const int& domain_idx, const std::string& user_name);

  const std::string& GetLocalPart() const { return local_part_; }
  void SetLocalPart(const std::string& local_part) { local_part_ = local_part; }
  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  const std::string& GetUserName() const { return user_name_; }
  void SetUserName(const std::string& user_name) { user_name_ = user_name; }

 private:
  std::string local_part_;
  int domain_idx_ = 1;
  std::string user_name_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_ADDRESS_PART_H
