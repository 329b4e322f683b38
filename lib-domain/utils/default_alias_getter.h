// Aliases from a domain's default alias pattern.
#ifndef LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H
#define LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H

#include <map>
#include <string>
#include <vector>

#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

class DefaultAliasGetter {
 public:
  explicit DefaultAliasGetter(const std::string& pattern);

  bool GetAliasFromUserShortNames(const std::vector<std::string>& user_short_names,
                                  std::map<std::string, std::string>& aliases);

 private:
  using AttrMap = std::map<std::string, std::string>;
  using UserAttrsMap = std::map<std::string, AttrMap>;

  void _GetPatternAttrMap();
  bool _GetUserAttrsValueMap(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _NeedToFetchAdditionalInfo() const;
  bool _FetchAttrsFromLocal(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _FetchAttrsFromLDAP(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _FetchAttrsFromDomain(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _ComposeUserAliasMap(const UserAttrsMap& attrs, std::map<std::string, std::string>& aliases);
  bool _DefaultPatternToAlias(const std::string& user_short_name, const AttrMap& attrs,
                              std::string& alias) const;

  AUTH_TYPE auth_type_ = AUTH_LOCAL;
  std::string pattern_;
  AttrMap pattern_attrs_;
};

namespace INTERNAL {

std::string StripBeginningInteger(const std::string& token);
std::string ParseValByPattern(const std::string& token, const std::string& value);
void ParseDomainAttrVal(const std::string& line, std::string& name, std::string& value);

}  // namespace INTERNAL
}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H
