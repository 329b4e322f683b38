// The acceptance rules of roles, names, aliases and patterns. No state, no database.
#include "lib-domain/utils/domain_utils.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "platform/include/eai.h"

namespace MDOMAIN::UTILS {

namespace {

// The domain under which the package keeps its own alias-to-user map.
constexpr const char* kReservedDomain = "system.alias.to.user.postara";

// The next "<...>" at or after `from`. A "<" takes everything up to the first ">" behind it, other
// "<" included. By hand: the standard library's regular expressions recurse once per character.
bool FindToken(const std::string& pattern, size_t from, size_t& open, size_t& close) {
  open = pattern.find('<', from);
  if (open == std::string::npos) {
    return false;
  }
  close = pattern.find('>', open);
  return close != std::string::npos;
}

}  // namespace

bool CheckRoleValid(const std::string& role) {
  return role == "normal" || role == "domain_admin";
}

bool INTERNAL::IsDomainName(const std::string& name) {
  return name.find('.') != std::string::npos &&
         !korvmailserver::utils::Equals(name, kReservedDomain, true) &&
         KORV::POSTARA_SERVER::IsValidEaiDomain(name);
}

std::string INTERNAL::StorableDomainName(const std::string& given) {
  std::string name = given;
  if (!KORV::POSTARA_SERVER::IsValidEaiDomain(given)) {
    KORV::POSTARA_SERVER::ConvertToUTF8(given, name);  // leaves what is no domain as it is
  }
  return name;
}

bool IsDomainNameValid(const std::string& name) {
  if (name.find('.') == std::string::npos) {
    LOG_ERROR("Domain name [%s] without \".\" is not valid", name.c_str());
    return false;
  }
  if (korvmailserver::utils::Equals(name, kReservedDomain, true)) {
    LOG_ERROR("Domain name [%s] is reserved", name.c_str());
    return false;
  }
  return KORV::POSTARA_SERVER::IsValidEaiDomain(name);
}

bool IsAccountAliasValid(const std::string& alias) {
  return KORV::POSTARA_SERVER::IsValidEaiLocalPart(alias, true);
}

bool IsDomainDefaultAliasPatternValid(const std::string& pattern) {
  size_t open = 0;
  size_t close = 0;
  return FindToken(pattern, 0, open, close);
}

namespace INTERNAL {

std::vector<std::string> FindPatternTokens(const std::string& pattern) {
  std::vector<std::string> tokens;
  size_t open = 0;
  size_t close = 0;
  for (size_t from = 0; FindToken(pattern, from, open, close); from = close + 1) {
    tokens.push_back(pattern.substr(open + 1, close - open - 1));
  }
  return tokens;
}

}  // namespace INTERNAL
}  // namespace MDOMAIN::UTILS
