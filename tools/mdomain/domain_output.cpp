// The fields of a domain and the columns of its listing.
#include "tools/mdomain/domain_output.h"

#include "lib-domain/utils/domain_utils.h"
#include "platform/include/eai.h"
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

std::string StorableName(const std::string& typed) {
  std::string mapped = typed;
  if (!KORV::POSTARA_SERVER::IsValidEaiDomain(typed)) {
    KORV::POSTARA_SERVER::ConvertToUTF8(typed, mapped);  // leaves what is no domain as it is
  }
  return mapped;
}

std::vector<std::string> StorableNames(const std::vector<std::string>& typed) {
  std::vector<std::string> names;
  for (const std::string& text : typed) {
    names.push_back(StorableName(text));
    if (!MDOMAIN::UTILS::IsDomainNameValid(names.back())) {
      throw Failure(kRefused, "\"" + text + "\" is not a valid domain name");
    }
  }
  return names;
}

}  // namespace mdomain
