// A mirrored account: one row of user_table.
#ifndef LIB_DOMAIN_RECORD_USER_H
#define LIB_DOMAIN_RECORD_USER_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT User {
 public:
  User() = default;
  User(unsigned int uid, std::string user_name);

  unsigned int GetUID() const { return uid_; }
  void SetUID(const unsigned int& uid) { uid_ = uid; }
  std::string GetUserName() const { return user_name_; }
  void SetUserName(const std::string& user_name) { user_name_ = user_name; }

  // Whether the uid is set and the name is not empty.
  bool IsValid() const;

 private:
  unsigned int uid_ = kUnsetId;
  std::string user_name_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_USER_H
