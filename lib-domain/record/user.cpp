// A mirrored account.
#include "lib-domain/record/user.h"

#include <utility>

namespace MDOMAIN::RECORD {

User::User(unsigned int uid, std::string user_name) : uid_(uid), user_name_(std::move(user_name)) {}

bool User::IsValid() const {
  return uid_ != kUnsetId && !user_name_.empty();
}

}  // namespace MDOMAIN::RECORD
