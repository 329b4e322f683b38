// Aliases from a domain's default alias pattern.
//
// A pattern is text with tokens "<...>". A token is an optional decimal length and a key: <a> is
// the account's short name, <m> the local part of its mail address; on a Windows domain <g>, <i>,
// <s> and <d> are given name, initials, surname and display name. Any other token names an
// attribute of the directory (<department>). A length takes the first bytes of the value: <1g>.<s>
// gives J.Smith.
#ifndef LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H
#define LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/include/export.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

namespace INTERNAL {
class AttributeAnswer;
}

class MDOMAIN_EXPORT DefaultAliasGetter {
 public:
  // Asks which account source is in force; local accounts when that cannot be read (one error
  // line).
  explicit DefaultAliasGetter(const std::string& pattern);

  // Adds an entry (short name, alias) for every given name to `aliases`; existing entries of other
  // names stay. A user for whom any attribute of the pattern has no value, or whom the source does
  // not know, gets the short name without the characters that may not stand in a local part, which
  // can be empty. The alias keeps its letter case and is not tested further.
  //
  // False, with `aliases` partly filled, when the directory could not be asked or answered only in
  // part, or when the pattern cannot be used (AliasComposer). Without names: true, and no source is
  // asked.
  //
  // Around look-ups other than of the short name the process's effective ids are 0 where the real
  // or saved ids allow it, which is logged to the system log's auth facility; they are restored
  // before this returns. Nothing else that depends on the ids may run meanwhile.
  bool GetAliasFromUserShortNames(const std::vector<std::string>& user_short_names,
                                  std::map<std::string, std::string>& aliases);
  // The same, and adds to `missing` those who get the short name because their account has no value
  // for a token: the first such token, by its bytes.
  bool GetAliasFromUserShortNames(const std::vector<std::string>& user_short_names,
                                  std::map<std::string, std::string>& aliases,
                                  std::map<std::string, std::string>& missing);

 private:
  friend class AttributeScope;
  using AttrMap = std::map<std::string, std::string>;
  using UserAttrsMap = std::map<std::string, AttrMap>;
  using AttrSet = std::set<std::string>;

  void _GetPatternAttrMap();
  void _GetTokenizedPatternToAttrMap(const std::vector<std::string>& tokens);
  bool _GetUserAttrsValueMap(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _NeedToFetchAdditionalInfo() const;
  bool _FetchAttrs(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _FetchAttrsFromLocal(const std::vector<std::string>& user_short_names, UserAttrsMap& attrs);
  bool _FetchAttrsFromLDAP(UserAttrsMap& attrs);
  bool _FetchAttrsFromDomain(UserAttrsMap& attrs);
  bool _ComposeUserAliasMap(const UserAttrsMap& attrs, std::map<std::string, std::string>& aliases);
  bool _ComposeFromNames(const std::vector<std::string>& user_short_names,
                         std::map<std::string, std::string>& aliases) const;
  void _FindMissing(const UserAttrsMap& attrs, std::map<std::string, std::string>& missing) const;
  AttrSet _NeededAttrs() const;

  AUTH_TYPE auth_type_ = AUTH_LOCAL;
  std::string pattern_;
  AttrMap pattern_attrs_;  // token to attribute
};

// While one lives, a directory is asked once for all attributes of the given patterns; getters of
// any of them are answered from that answer. A failed search is not kept: the next getter asks
// again. Scopes nest; the outermost counts.
class MDOMAIN_EXPORT AttributeScope {
 public:
  explicit AttributeScope(const std::vector<std::string>& patterns);
  ~AttributeScope();
  AttributeScope(const AttributeScope&) = delete;
  AttributeScope& operator=(const AttributeScope&) = delete;

 private:
  friend class DefaultAliasGetter;
  static AttributeScope* _current;

  std::unique_ptr<INTERNAL::AttributeAnswer> answer_;  // null in an inner scope
};

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DEFAULT_ALIAS_GETTER_H
