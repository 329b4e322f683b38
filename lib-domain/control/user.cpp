// The mirror of users has no logic above its store.
#include "lib-domain/control/user.h"

namespace MDOMAIN::CONTROL {

bool User::List(const DB::UserDBFilter& filter, std::vector<RECORD::User>& users) {
  return store_.List(filter, users);
}

bool User::ForEach(const DB::UserDBFilter& filter, const DB::User::UserVisitor& use) {
  return store_.ForEach(filter, use);
}

bool User::GetNames(const std::vector<unsigned int>& uids,
                    std::unordered_map<unsigned int, std::string>& names) {
  return store_.GetNames(uids, names);
}

bool User::Create(const std::vector<RECORD::User>& users) {
  return store_.Create(users);
}

bool User::Set(const std::vector<RECORD::User>& users) {
  return store_.Set(users);
}

bool User::Delete(const std::vector<unsigned int>& uids) {
  return store_.Delete(uids);
}

}  // namespace MDOMAIN::CONTROL
