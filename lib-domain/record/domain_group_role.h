// The role of a group in a domain: one row of domain_group_role_table.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_GROUP_ROLE_H
#define LIB_DOMAIN_RECORD_DOMAIN_GROUP_ROLE_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT DomainGroupRole {
 public:
  DomainGroupRole() = default;
  DomainGroupRole(int domain_idx, unsigned int gid, std::string role);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  unsigned int GetGID() const { return gid_; }
  void SetGID(const unsigned int& gid) { gid_ = gid; }
  std::string GetRole() const { return role_; }
  void SetRole(const std::string& role) { role_ = role; }

  // Whether it has an index of at least 0, a gid and a valid role. The default role is empty, so it
  // has to be set. Logs nothing.
  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  unsigned int gid_ = kUnsetId;
  std::string role_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_GROUP_ROLE_H
