// The rule by which a destination or an account without a domain becomes an address: an alias entry
// before an account, an account by its aliases, anything else by its own name.
//
// An alias that is flagged belongs to somebody else in the same domain, so it leads nowhere. Names
// that differ in case alone may be two accounts: the exact spelling wins, and another spelling
// counts only where it can mean one account.
#include "lib-domain/api/bcc/local_parts.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_user.h"
#include "platform/include/account.h"
#include "platform/include/alias.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

// Whether the account system has an account that is spelt so.
bool IsAccount(const std::string& name) {
  PKORVUser user = nullptr;
  if (KORVUserGet(name.c_str(), &user) < 0) {
    return false;
  }
  const bool exact = user->name == name;
  KORVUserFree(user);
  return exact;
}

}  // namespace

const LocalParts* LocalPartFinder::Find(const std::string& name) {
  const auto known = known_.find(name);
  if (known != known_.end()) {
    return &known->second;
  }
  if (alias_entries_.count(name) == 0 && !Load()) {
    return nullptr;
  }
  return &known_.emplace(name, PartsOf(name)).first->second;
}

bool LocalPartFinder::HasAddress(const std::string& local_part, bool& has) {
  if (!Load()) {
    return false;
  }
  has = addresses_.count(BASE::ToLowerAscii(local_part)) != 0;
  return true;
}

bool LocalPartFinder::Load() {
  if (loaded_) {
    return true;
  }
  loaded_ = DB::DomainUser().GetAllUserAliases(domain_id_, aliases_by_user_);
  for (const auto& [user, aliases] : aliases_by_user_) {
    users_by_folded_name_[FoldAccountName(user)].push_back(user);
    for (const std::string& alias : aliases) {
      addresses_.insert(BASE::ToLowerAscii(alias));
    }
  }
  for (const std::string& entry : alias_entries_) {
    addresses_.insert(BASE::ToLowerAscii(entry));
  }
  return loaded_;
}

LocalParts LocalPartFinder::PartsOf(const std::string& name) const {
  std::string account;
  if (alias_entries_.count(name) != 0 || !UTILS::ShortName2RealName(true, name, account)) {
    return {{name}, ""};
  }
  if (aliases_by_user_.count(account) != 0) {
    return PartsOfAccount(account, name);
  }
  const auto others = users_by_folded_name_.find(FoldAccountName(account));
  if (others == users_by_folded_name_.end()) {
    return {{name}, ""};
  }
  if (others->second.size() > 1 || IsAccount(account)) {
    return {
        {},
        "no address here for " + name + ", and " + others->second.front() + " is somebody else"};
  }
  return PartsOfAccount(others->second.front(), name);
}

LocalParts LocalPartFinder::PartsOfAccount(const std::string& account,
                                           const std::string& name) const {
  const std::vector<std::string>& aliases = aliases_by_user_.at(account);
  if (aliases.empty()) {
    return {{}, "every alias of " + name + " collides with another user's"};
  }
  return {aliases, ""};
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
  std::unordered_set<std::string> alias_entries;
  if (isAlias(bcc_to, domain_id)) {
    alias_entries.insert(bcc_to);
  }
  API::INTERNAL::LocalPartFinder finder(domain_id, std::move(alias_entries));
  const API::INTERNAL::LocalParts* found = finder.Find(bcc_to);
  return found == nullptr || found->parts.empty() ? "" : found->parts.front() + "@" + domain_name;
}

}  // namespace internal
