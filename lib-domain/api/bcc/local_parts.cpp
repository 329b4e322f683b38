// The rule by which a destination or an account without a domain becomes an address: an alias entry
// before an account, an account by its aliases, anything else by its own name.
#include "lib-domain/api/bcc/local_parts.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/domain_user.h"
#include "platform/include/alias.h"

namespace MDOMAIN::API::INTERNAL {

const std::vector<std::string>* LocalPartFinder::LocalParts(const std::string& name) {
  const auto known = known_.find(name);
  if (known != known_.end()) {
    return &known->second;
  }
  std::vector<std::string> parts;
  if (alias_entries_.count(name) == 0) {
    if (!Load()) {
      return nullptr;
    }
    parts = AccountAliases(name);
  }
  if (parts.empty()) {
    parts.push_back(name);
  }
  return &known_.emplace(name, std::move(parts)).first->second;
}

bool LocalPartFinder::Load() {
  if (!loaded_) {
    loaded_ = DB::DomainUser().GetAllUserAliases(domain_id_, aliases_by_user_);
  }
  return loaded_;
}

std::vector<std::string> LocalPartFinder::AccountAliases(const std::string& name) const {
  std::string real_name;
  if (!UTILS::ShortName2RealName(true, name, real_name)) {
    return {};
  }
  const auto user = aliases_by_user_.find(BASE::ToLowerAscii(real_name));
  return user == aliases_by_user_.end() ? std::vector<std::string>() : user->second;
}

}  // namespace MDOMAIN::API::INTERNAL

namespace internal {

using namespace MDOMAIN;  // NOLINT(google-build-using-namespace)

bool isAlias(const std::string& name, int domain_id) {
  Alias table(PATHS::AliasDb());
  return table.load() >= 0 && table.isAlias(name, domain_id);
}

std::string GetBccToConfigValue(const std::string& bcc_to, const std::string& domain_name,
                                int domain_id) {
  if (domain_name.empty() || bcc_to.find('@') != std::string::npos) {
    return bcc_to;
  }
  std::string real_name;
  std::vector<std::string> aliases;
  if (!isAlias(bcc_to, domain_id) && UTILS::ShortName2RealName(true, bcc_to, real_name)) {
    CONTROL::DomainUser().GetDomainUserAlias(domain_id, real_name, aliases);
  }
  return (aliases.empty() ? bcc_to : aliases.front()) + "@" + domain_name;
}

}  // namespace internal
