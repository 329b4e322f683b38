// The pattern's tokens and the choice of the source. lib-domain/accounts asks the sources and
// composes the text.
#include "lib-domain/utils/default_alias_getter.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/alias_composer.h"
#include "lib-domain/accounts/alias_fetch.h"
#include "lib-domain/accounts/critical_section.h"
#include "lib-domain/accounts/net_output.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

namespace MDOMAIN::UTILS {

namespace {

using KeyTable = std::map<std::string, std::string>;

const KeyTable& KeysOf(AUTH_TYPE type) {
  static const auto& tables = *new std::map<AUTH_TYPE, KeyTable>{
      {AUTH_LOCAL, {{"a", INTERNAL::kAccountAttr}, {"m", "mail"}}},
      {AUTH_LDAP, {{"a", INTERNAL::kAccountAttr}, {"m", "mail"}}},
      {AUTH_WIN,
       {{"a", INTERNAL::kAccountAttr},
        {"g", "givenName"},
        {"i", "initials"},
        {"s", "sn"},
        {"d", "displayName"},
        {"m", "mailNickname"}}},
  };
  static const auto& none = *new KeyTable();
  const auto table = tables.find(type);
  return table == tables.end() ? none : table->second;
}

}  // namespace

DefaultAliasGetter::DefaultAliasGetter(const std::string& pattern) : pattern_(pattern) {
  if (!DomainMailConfCurrentAuthTypeGet(auth_type_)) {
    LOG_ERROR("cannot get current auth type");
    auth_type_ = AUTH_LOCAL;
  }
  _GetPatternAttrMap();
}

void DefaultAliasGetter::_GetPatternAttrMap() {
  _GetTokenizedPatternToAttrMap(INTERNAL::FindPatternTokens(pattern_));
}

void DefaultAliasGetter::_GetTokenizedPatternToAttrMap(const std::vector<std::string>& tokens) {
  const KeyTable& keys = KeysOf(auth_type_);
  for (const std::string& token : tokens) {
    const auto key = keys.find(INTERNAL::StripBeginningInteger(token));
    pattern_attrs_[token] = key == keys.end() ? token : key->second;
  }
}

bool DefaultAliasGetter::GetAliasFromUserShortNames(
    const std::vector<std::string>& user_short_names, std::map<std::string, std::string>& aliases) {
  std::map<std::string, std::string> missing;
  return GetAliasFromUserShortNames(user_short_names, aliases, missing);
}

bool DefaultAliasGetter::GetAliasFromUserShortNames(
    const std::vector<std::string>& user_short_names, std::map<std::string, std::string>& aliases,
    std::map<std::string, std::string>& missing) {
  if (user_short_names.empty()) {
    return true;
  }
  if (!_NeedToFetchAdditionalInfo() &&
      std::is_sorted(user_short_names.begin(), user_short_names.end())) {
    return _ComposeFromNames(user_short_names, aliases);
  }
  UserAttrsMap attrs;
  if (!_GetUserAttrsValueMap(user_short_names, attrs)) {
    LOG_ERROR("Failed to _GetUserAttrsValueMap");
    return false;
  }
  if (!_ComposeUserAliasMap(attrs, aliases)) {
    LOG_ERROR("Failed to _ComposeUserAliasMap");
    return false;
  }
  _FindMissing(attrs, missing);
  return true;
}

void DefaultAliasGetter::_FindMissing(const UserAttrsMap& attrs,
                                      std::map<std::string, std::string>& missing) const {
  for (const auto& [name, values] : attrs) {
    const AttrMap& of_user = values;
    const auto token =
        std::find_if(pattern_attrs_.begin(), pattern_attrs_.end(),
                     [&](const auto& entry) { return of_user.count(entry.second) == 0; });
    if (token != pattern_attrs_.end()) {
      missing[name] = token->first;
    }
  }
}

DefaultAliasGetter::AttrSet DefaultAliasGetter::_NeededAttrs() const {
  AttrSet needed;
  for (const auto& [token, attribute] : pattern_attrs_) {
    needed.insert(attribute);
  }
  return needed;
}

bool DefaultAliasGetter::_NeedToFetchAdditionalInfo() const {
  return std::any_of(pattern_attrs_.begin(), pattern_attrs_.end(),
                     [](const auto& entry) { return entry.second != INTERNAL::kAccountAttr; });
}

bool DefaultAliasGetter::_GetUserAttrsValueMap(const std::vector<std::string>& user_short_names,
                                               UserAttrsMap& attrs) {
  for (const std::string& name : user_short_names) {
    attrs[name][INTERNAL::kAccountAttr] = name;
  }
  if (!_NeedToFetchAdditionalInfo()) {
    return true;
  }
  const INTERNAL::CriticalSection section;
  return _FetchAttrs(user_short_names, attrs);
}

bool DefaultAliasGetter::_FetchAttrs(const std::vector<std::string>& user_short_names,
                                     UserAttrsMap& attrs) {
  switch (auth_type_) {
    case AUTH_WIN:
      return _FetchAttrsFromDomain(attrs);
    case AUTH_LDAP:
      return _FetchAttrsFromLDAP(attrs);
    default:
      return _FetchAttrsFromLocal(user_short_names, attrs);
  }
}

bool DefaultAliasGetter::_FetchAttrsFromLocal(const std::vector<std::string>& user_short_names,
                                              UserAttrsMap& attrs) {
  INTERNAL::FetchLocalAttributes(user_short_names, _NeededAttrs(), attrs);
  return true;
}

bool DefaultAliasGetter::_FetchAttrsFromLDAP(UserAttrsMap& attrs) {
  const AttributeScope alone({pattern_});  // no effect within a caller's scope
  INTERNAL::AttributeAnswer& answer = *AttributeScope::_current->answer_;
  if (!answer.Ask(&INTERNAL::QueryLdap, _NeededAttrs())) {
    return false;
  }
  answer.CopyTo(attrs);
  return true;
}

// The names of a Windows domain come from the account system in lower case, and from the domain as
// they were typed.
bool DefaultAliasGetter::_FetchAttrsFromDomain(UserAttrsMap& attrs) {
  const AttributeScope alone({pattern_});
  INTERNAL::AttributeAnswer& answer = *AttributeScope::_current->answer_;
  if (!answer.Ask(&INTERNAL::QueryWindowsDomain, _NeededAttrs())) {
    return false;
  }
  answer.CopyToIgnoringCase(attrs);
  return true;
}

bool DefaultAliasGetter::_ComposeUserAliasMap(const UserAttrsMap& attrs,
                                              std::map<std::string, std::string>& aliases) {
  const INTERNAL::AliasComposer composer(pattern_, pattern_attrs_);
  return std::all_of(attrs.begin(), attrs.end(), [&](const auto& user) {
    return composer.Compose(user.first, user.second, aliases[user.first]);
  });
}

// Names are everything that the pattern needs, and come in the order of a map of all of them.
bool DefaultAliasGetter::_ComposeFromNames(const std::vector<std::string>& user_short_names,
                                           std::map<std::string, std::string>& aliases) const {
  const INTERNAL::AliasComposer composer(pattern_, pattern_attrs_);
  AttrMap attrs;
  std::string& account = attrs[INTERNAL::kAccountAttr];
  for (const std::string& name : user_short_names) {
    account = name;
    if (!composer.Compose(name, attrs, aliases.try_emplace(aliases.end(), name)->second)) {
      LOG_ERROR("Failed to _ComposeUserAliasMap");
      return false;
    }
  }
  return true;
}

AttributeScope* AttributeScope::_current = nullptr;

AttributeScope::AttributeScope(const std::vector<std::string>& patterns) {
  if (_current != nullptr) {
    return;
  }
  INTERNAL::AttributeNames needed;
  for (const std::string& pattern : patterns) {
    needed.merge(DefaultAliasGetter(pattern)._NeededAttrs());
  }
  answer_ = std::make_unique<INTERNAL::AttributeAnswer>(std::move(needed));
  _current = this;
}

AttributeScope::~AttributeScope() {
  if (_current == this) {
    _current = nullptr;
  }
}

}  // namespace MDOMAIN::UTILS
