// The fields of a domain user and the columns of the listings; flagged aliases are marked.
#include "tools/mdomain/user_output.h"

#include <algorithm>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/utils/domain_utils.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

// "a.smith, asmith (collides)"
std::string WriteAliases(const Json::Value& aliases) {
  std::string text;
  for (const Json::Value& alias : aliases) {
    text += (text.empty() ? "" : ", ") + alias["alias"].asString();
    text += alias["duplicated"].asBool() ? " (collides)" : "";
  }
  return text;
}

}  // namespace

Json::Value AliasJson(const std::string& alias, bool duplicated) {
  Json::Value json;
  json["alias"] = alias;
  json["duplicated"] = duplicated;
  return json;
}

Json::Value CandidateJson(unsigned int uid, const std::string& name) {
  Json::Value json = AccountJson(uid, name);
  json["aliases"] = Json::Value(Json::arrayValue);
  return json;
}

Json::Value UserJson(const MDOMAIN::RECORD::DomainUser& user) {
  Json::Value json = CandidateJson(user.GetUID(), user.GetUserName());
  json["role"] = user.GetRole();
  json["group_controlled"] = user.IsUnderGroupControl();
  for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
    json["aliases"].append(AliasJson(alias, duplicated));
  }
  return json;
}

Json::Value PreviewJson(const MDOMAIN::RECORD::DomainUser& user) {
  Json::Value json = CandidateJson(user.GetUID(), user.GetUserName());
  json["refused_alias"] = Json::Value();
  for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
    if (MDOMAIN::UTILS::IsAccountAliasValid(alias)) {
      json["aliases"].append(AliasJson(alias, duplicated));
    } else {
      json["refused_alias"] = alias;
    }
  }
  return json;
}

std::vector<Column> CandidateColumns() {
  return {{"uid", "UID"}, {"name", "NAME"}, {"aliases", "ALIASES", WriteAliases}};
}

std::vector<Column> PreviewColumns(const Json::Value& records) {
  std::vector<Column> columns = CandidateColumns();
  if (std::any_of(records.begin(), records.end(),
                  [](const Json::Value& record) { return !record["refused_alias"].isNull(); })) {
    columns.push_back({"refused_alias", "NO ADDRESS, AS THIS IS NO LOCAL PART"});
  }
  return columns;
}

std::vector<Column> UserColumns() {
  return {{"uid", "UID"},
          {"name", "NAME"},
          {"role", "ROLE"},
          {"group_controlled", "BY GROUP"},
          {"aliases", "ALIASES", WriteAliases}};
}

void ForEachDomainUser(int domain_idx, MDOMAIN::DB::DomainDBFilter filter,
                       const std::function<void(const MDOMAIN::RECORD::DomainUser&)>& use) {
  filter.SetDomainIdxs({domain_idx});
  if (!MDOMAIN::API::DomainUser().ForEach(filter, use)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
}

std::vector<MDOMAIN::RECORD::DomainUser> ListDomainUsers(int domain_idx,
                                                         MDOMAIN::DB::DomainDBFilter filter) {
  filter.SetDomainIdxs({domain_idx});
  std::vector<MDOMAIN::RECORD::DomainUser> users;
  if (!MDOMAIN::API::DomainUser().ListWithExtraInfo(filter, users)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  return users;
}

}  // namespace mdomain
