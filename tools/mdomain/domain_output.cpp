// The fields of a domain and the columns of its listing.
#include "tools/mdomain/domain_output.h"

#include "lib-domain/utils/domain_utils.h"
#include "tools/mdomain/status.h"

namespace mdomain {

Json::Value DomainJson(const KnownDomain& domain) {
  Json::Value json;
  json["id"] = domain.idx();
  json["name"] = domain.name();
  json["description"] = domain.record.GetDomainDesc();
  json["alias_pattern"] = domain.record.GetDefaultAliasPattern();
  json["auto_add"] = domain.record.IsAutomaticallyAddingUsers();
  json["primary"] = domain.record.IsPrimary();
  json["has_duplicates"] = domain.record.IsDuplicatedAliasExist();
  json["users"] = domain.record.GetUserNum();
  json["additional_names"] = JsonTexts(domain.names);
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

void RequireDomainNames(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (!MDOMAIN::UTILS::IsDomainNameValid(name)) {
      throw Failure(kRefused, "\"" + name + "\" is not a valid domain name");
    }
  }
}

}  // namespace mdomain
