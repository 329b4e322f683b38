// A mirrored group.
#include "lib-domain/record/group.h"

#include <utility>

namespace MDOMAIN::RECORD {

Group::Group(unsigned int gid, std::string group_name, std::string group_desc)
    : gid_(gid), group_name_(std::move(group_name)), group_desc_(std::move(group_desc)) {}

bool Group::IsValid() const {
  return gid_ != kUnsetId && !group_name_.empty();
}

}  // namespace MDOMAIN::RECORD
