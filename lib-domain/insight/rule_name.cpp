#include "lib-domain/insight/rule_name.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/base/domain_name.h"
#include "lib-domain/base/text.h"
#include "platform/include/account.h"

namespace MDOMAIN::INSIGHT {

namespace {

// The name under which the account system has an account; empty when it has none or cannot tell.
std::string AccountName(const std::string& name) {
  std::string full_name;
  PKORVUser user = nullptr;
  if (!UTILS::ShortName2RealName(true, name, full_name) ||
      KORVUserGet(full_name.c_str(), &user) < 0) {
    return "";
  }
  std::string account = user->name;
  KORVUserFree(user);
  return account;
}

// The account system is asked about names that may be one account only.
bool SameAccount(const std::string& a, const std::string& b) {
  if (a == b) {
    return true;
  }
  if (FoldAccountName(TrimDomainName(a)) != FoldAccountName(TrimDomainName(b))) {
    return false;
  }
  const std::string account_a = AccountName(a);
  const std::string account_b = AccountName(b);
  return account_a.empty() || account_b.empty() || account_a == account_b;
}

}  // namespace

std::string DomainPart(const std::string& name) {
  const size_t at = name.rfind('@');
  return at == std::string::npos ? name : name.substr(at + 1);
}

bool SameRuleName(int type, const std::string& a, const std::string& b) {
  if (type == BCC_DOMAIN) {
    return BASE::SameDomainName(a, b);
  }
  const size_t at_a = a.rfind('@');
  const size_t at_b = b.rfind('@');
  if (at_a == std::string::npos && at_b == std::string::npos) {
    return SameAccount(a, b);
  }
  return at_a != std::string::npos && at_b != std::string::npos &&
         BASE::EqualsIgnoreCase(a.substr(0, at_a), b.substr(0, at_b)) &&
         BASE::SameDomainName(DomainPart(a), DomainPart(b));
}

}  // namespace MDOMAIN::INSIGHT
