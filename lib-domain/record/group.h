// A mirrored group: one row of group_table.
#ifndef LIB_DOMAIN_RECORD_GROUP_H
#define LIB_DOMAIN_RECORD_GROUP_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT Group {
 public:
  Group() = default;
  Group(unsigned int gid, std::string group_name, std::string group_desc);

  unsigned int GetGID() const { return gid_; }
  void SetGID(const unsigned int& gid) { gid_ = gid; }
  std::string GetGroupName() const { return group_name_; }
  void SetGroupName(const std::string& group_name) { group_name_ = group_name; }
  std::string GetGroupDesc() const { return group_desc_; }
  void SetGroupDesc(const std::string& group_desc) { group_desc_ = group_desc; }

  // Whether the gid is set and the name is not empty.
  bool IsValid() const;

 private:
  unsigned int gid_ = kUnsetId;
  std::string group_name_;
  std::string group_desc_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_GROUP_H
