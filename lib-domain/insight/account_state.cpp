#include "lib-domain/insight/account_state.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/account.h"

namespace MDOMAIN::INSIGHT {

namespace {

using RECORD::DomainUser;
using RECORD::User;

std::string AliasesOf(const DomainUser& user) {
  std::vector<std::string> aliases;
  for (const auto& pair : user.GetAliasDuplicatedPairs()) {
    aliases.push_back(pair.first);
  }
  return BASE::Join(aliases, ", ");
}

std::vector<User> ListMirrored(const std::string& name) {
  std::vector<User> users;
  RequireRead(DB::INTERNAL::ListNamed({name}, users), "the mirror");
  const auto has_other_name = [&](const User& user) {
    return !BASE::EqualsIgnoreCase(TrimDomainName(user.GetUserName()), name);
  };
  users.erase(std::remove_if(users.begin(), users.end(), has_other_name), users.end());
  return users;
}

std::string WhyNot(const KnownDomain& domain, const User& user, const std::string& name,
                   bool was_taken_out) {
  const std::vector<DomainUser> found = FindInDomain(domain.idx, user.GetUID());
  const std::string account = "account " + user.GetUserName();
  const std::string typed = domain.name + " " + user.GetUserName();
  if (!found.empty()) {
    return account + " is in the domain as " + AliasesOf(found.front()) + " (mdomain user set " +
           typed + " --add-alias " + name + ")";
  }
  const std::string by_pattern = AliasByPattern(domain.idx, TrimDomainName(user.GetUserName()));
  return account +
         (was_taken_out ? " was taken out of the domain by name"
                        : " is known and not in the domain") +
         " (mdomain user add " + typed + ")" +
         (by_pattern.empty() ? "" : "; the pattern would give it " + by_pattern);
}

// Whether the account system, which may be asked, knows a user of this short or full name.
bool IsUserOfAccountSystem(const std::string& name) {
  std::string full_name;
  PKORVUser user = nullptr;
  const bool is_known = UTILS::ShortName2RealName(true, name, full_name) &&
                        KORVUserGet(full_name.c_str(), &user) == 0;
  KORVUserFree(user);
  return is_known;
}

}  // namespace

std::string AliasByPattern(int domain_idx, const std::string& short_name) {
  std::vector<DomainUser> users;
  const bool is_told = API::DomainUser().Preview(domain_idx, {{"user", short_name}}, users);
  return is_told && !users.empty() ? AliasesOf(users.front()) : "";
}

std::string WhatBecameOf(const std::string& full_name) {
  PKORVUser account = nullptr;
  if (PullsDomains() || KORVUserGet(full_name.c_str(), &account) == 0) {
    KORVUserFree(account);
    return "";
  }
  return KLIBCErrGet() == KLIB_ERR_NO_SUCH_USER
             ? "account " + full_name +
                   " is gone from the account system, and its mail may come back: the next mdomain "
                   "refresh removes it"
             : "whether account " + full_name +
                   " still exists cannot be told: mdomain account check says why";
}

std::vector<std::string> WhyNobody(const KnownDomain& domain, const std::string& name) {
  std::vector<std::string> sentences;
  for (const User& user : ListMirrored(name)) {
    sentences.push_back(WhyNot(domain, user, name, WasTakenOut(domain.idx, user.GetUID())));
  }
  if (sentences.empty() && !PullsDomains() && IsUserOfAccountSystem(name)) {
    sentences.push_back("account " + name +
                        " is in the account system, and no refresh has found it yet (mdomain "
                        "refresh)");
  } else if (sentences.empty()) {
    sentences.emplace_back(
        "nobody has the alias, and no account that the last refresh found has this name");
  }
  return sentences;
}

}  // namespace MDOMAIN::INSIGHT
