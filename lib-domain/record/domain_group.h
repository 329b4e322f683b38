// A group with its role in a domain: one row of domain_group_view.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_GROUP_H
#define LIB_DOMAIN_RECORD_DOMAIN_GROUP_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT DomainGroup {
 public:
  DomainGroup() = default;
  DomainGroup(int domain_idx, unsigned int gid, std::string group_name, std::string group_desc,
              std::string role);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  unsigned int GetGID() const { return gid_; }
  void SetGID(const unsigned int& gid) { gid_ = gid; }
  std::string GetGroupName() const { return group_name_; }
  void SetGroupName(const std::string& group_name) { group_name_ = group_name; }
  std::string GetGroupDesc() const { return group_desc_; }
  void SetGroupDesc(const std::string& group_desc) { group_desc_ = group_desc; }
  std::string GetRole() const { return role_; }
  void SetRole(const std::string& role) { role_ = role; }

  // Whether it has an index of at least 0, a gid, a name and a valid role. The default role is
  // empty, so it has to be set. Logs nothing.
  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  unsigned int gid_ = kUnsetId;
  std::string group_name_;
  std::string group_desc_;
  std::string role_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_GROUP_H
