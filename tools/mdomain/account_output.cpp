#include "tools/mdomain/account_output.h"

#include <unordered_map>

#include "tools/mdomain/lookup.h"

namespace mdomain {

using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;

Json::Value AccountJson(unsigned int uid, const std::string& name) {
  Json::Value json;
  json["uid"] = uid;
  json["name"] = name;
  return json;
}

Json::Value AccountJson(const User& user) {
  return AccountJson(user.GetUID(), user.GetUserName());
}

Json::Value AccountJson(const Group& group) {
  Json::Value json;
  json["gid"] = group.GetGID();
  json["name"] = group.GetGroupName();
  return json;
}

Json::Value MirroredUsersJson(const std::vector<unsigned int>& uids) {
  std::unordered_map<unsigned int, std::string> names;
  for (const User& user : uids.empty() ? std::vector<User>() : ListUsers({})) {
    names.emplace(user.GetUID(), user.GetUserName());
  }
  Json::Value array(Json::arrayValue);
  for (const unsigned int uid : uids) {
    array.append(AccountJson(uid, names[uid]));
  }
  return array;
}

std::vector<Column> AccountColumns() {
  return {{"uid", "UID"}, {"name", "NAME"}};
}

}  // namespace mdomain
