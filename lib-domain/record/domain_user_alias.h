// A local part of a user in a domain: one row of domain_user_alias_table.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_USER_ALIAS_H
#define LIB_DOMAIN_RECORD_DOMAIN_USER_ALIAS_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT DomainUserAlias {
 public:
  DomainUserAlias() = default;
  DomainUserAlias(int domain_idx, unsigned int uid, std::string account_alias, bool is_duplicated);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  unsigned int GetUID() const { return uid_; }
  void SetUID(const unsigned int& uid) { uid_ = uid; }
  std::string GetAccountAlias() const { return account_alias_; }
  void SetAccountAlias(const std::string& account_alias) { account_alias_ = account_alias; }
  bool IsDuplicated() const { return is_duplicated_; }
  void SetIsDuplicated(const bool& is_duplicated) { is_duplicated_ = is_duplicated; }

  // Whether it has an index of at least 0, a uid and a valid local part. Logs nothing.
  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  unsigned int uid_ = kUnsetId;
  std::string account_alias_;
  bool is_duplicated_ = false;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_USER_ALIAS_H
