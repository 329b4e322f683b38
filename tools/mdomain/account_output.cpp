#include "tools/mdomain/account_output.h"

#include <algorithm>
#include <unordered_map>

#include "lib-domain/api/user.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {

using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;

namespace {

constexpr size_t kUsersPerRead = 1000;

}  // namespace

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

void ListMirroredUsers(Output& out, const std::vector<unsigned int>& uids) {
  Listing listing(out, AccountColumns());
  for (size_t begin = 0; begin < uids.size(); begin += kUsersPerRead) {
    const size_t end = std::min(begin + kUsersPerRead, uids.size());
    const std::vector<unsigned int> some(&uids[begin], &uids[begin] + (end - begin));
    std::unordered_map<unsigned int, std::string> names;
    if (!MDOMAIN::API::User().GetNames(some, names)) {
      throw Failure(kFailed, "the users could not be read");
    }
    for (const unsigned int uid : some) {
      listing.Add(AccountJson(uid, names[uid]));
    }
  }
  listing.End();
}

std::string WriteNames(const Json::Value& records) {
  std::vector<std::string> names;
  for (const Json::Value& record : records) {
    names.push_back(record["name"].asString());
  }
  return FirstOf(names);
}

std::vector<Column> AccountColumns() {
  return {{"uid", "UID"}, {"name", "NAME"}};
}

}  // namespace mdomain
