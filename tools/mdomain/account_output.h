// How users and groups of the account system are shown.
#ifndef TOOLS_MDOMAIN_ACCOUNT_OUTPUT_H
#define TOOLS_MDOMAIN_ACCOUNT_OUTPUT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "tools/mdomain/output.h"

namespace mdomain {

// "uid", "name".
Json::Value AccountJson(unsigned int uid, const std::string& name);
Json::Value AccountJson(const MDOMAIN::RECORD::User& user);
// "gid", "name".
Json::Value AccountJson(const MDOMAIN::RECORD::Group& group);

template <typename Record>
Json::Value AccountsJson(const std::vector<Record>& records) {
  Json::Value array(Json::arrayValue);
  for (const Record& record : records) {
    array.append(AccountJson(record));
  }
  return array;
}

// Lists users by uid, in the order given; a uid that the mirror does not know has an empty name.
void ListMirroredUsers(Output& out, const std::vector<unsigned int>& uids);

// "gid", "name", "description": a mirrored group, or a group of a domain.
template <typename Group>
Json::Value DescribedGroupJson(const Group& group) {
  Json::Value json;
  json["gid"] = group.GetGID();
  json["name"] = group.GetGroupName();
  json["description"] = group.GetGroupDesc();
  return json;
}

// The names of accounts or domains, for a cell: the first ten and how many more.
std::string WriteNames(const Json::Value& records);

// The columns of users.
std::vector<Column> AccountColumns();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_ACCOUNT_OUTPUT_H
