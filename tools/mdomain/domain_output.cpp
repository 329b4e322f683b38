// The fields of a domain and the columns of its listing.
#include "tools/mdomain/domain_output.h"

namespace mdomain {

Json::Value DomainJson(const MDOMAIN::RECORD::Domain& record,
                       const std::vector<std::string>& additional_names) {
  Json::Value json;
  json["id"] = record.GetDomainIdx();
  json["name"] = record.GetDomainName();
  json["description"] = record.GetDomainDesc();
  json["alias_pattern"] = record.GetDefaultAliasPattern();
  json["auto_add"] = record.IsAutomaticallyAddingUsers();
  json["primary"] = record.IsPrimary();
  json["has_duplicates"] = record.IsDuplicatedAliasExist();
  json["users"] = record.GetUserNum();
  json["additional_names"] = JsonTexts(additional_names);
  return json;
}

Json::Value DomainJson(const KnownDomain& domain) {
  return DomainJson(DomainRecords({domain.idx}).front(), domain.additional_names);
}

Json::Value DomainNameJson(const KnownDomain& domain) {
  return DomainNameJson(domain.idx, domain.name);
}

Json::Value DomainNameJson(int idx, const std::string& name) {
  Json::Value json;
  json["id"] = idx;
  json["name"] = name;
  return json;
}

std::vector<Column> DomainColumns() {
  return {{"id", "ID"},
          {"name", "NAME"},
          {"alias_pattern", "PATTERN"},
          {"auto_add", "AUTO-ADD"},
          {"primary", "PRIMARY"},
          {"users", "USERS"},
          {"has_duplicates", "COLLISIONS"},
          {"additional_names", "ADDITIONAL NAMES"},
          {"description", "DESCRIPTION"}};
}

}  // namespace mdomain
