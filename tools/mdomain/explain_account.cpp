#include "tools/mdomain/explain_account.h"

#include <algorithm>
#include <unordered_set>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/account.h"
#include "platform/include/nodes.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::BASE::EqualsIgnoreCase;
using MDOMAIN::BASE::Join;
using MDOMAIN::RECORD::DomainUser;
using MDOMAIN::RECORD::User;

bool PullsAccounts() {
  korvmailserver::NodeStanding standing;
  return korvmailserver::ReadNodeStanding(standing) &&
         (standing.role == korvmailserver::NodeRole::kMember ||
          standing.role == korvmailserver::NodeRole::kReplaced);
}

std::vector<std::string> AliasesOf(const DomainUser& user) {
  std::vector<std::string> aliases;
  for (const auto& pair : user.GetAliasDuplicatedPairs()) {
    aliases.push_back(pair.first);
  }
  return aliases;
}

std::vector<User> Mirrored(const std::string& name) {
  std::vector<User> users;
  if (!MDOMAIN::DB::INTERNAL::ListNamed({name}, users)) {
    throw Failure(kFailed, "the mirror could not be read");
  }
  const auto has_other_name = [&](const User& user) {
    return !EqualsIgnoreCase(ShortNames(std::vector<User>{user}).front(), name);
  };
  users.erase(std::remove_if(users.begin(), users.end(), has_other_name), users.end());
  return users;
}

// ", and the pattern would give it a.smith"; empty where that cannot be told.
std::string ByPattern(int domain_idx, const std::string& name) {
  std::vector<DomainUser> users;
  if (!MDOMAIN::API::DomainUser().Preview(domain_idx, {{"user", name}}, users) || users.empty()) {
    return "";
  }
  const std::string aliases = Join(AliasesOf(users.front()), ", ");
  return aliases.empty() ? "" : "; the pattern would give it " + aliases;
}

std::string WhyNot(const KnownDomain& domain, const User& user, const std::string& name,
                   bool was_taken_out) {
  std::vector<DomainUser> found;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUser(domain.idx, user.GetUID(), found)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  const std::string account = "account " + user.GetUserName();
  const std::string typed = domain.name + " " + user.GetUserName();
  if (!found.empty()) {
    return account + " is in the domain as " + Join(AliasesOf(found.front()), ", ") +
           " (mdomain user set " + typed + " --add-alias " + name + ")";
  }
  const std::string add = " (mdomain user add " + typed + ")" +
                          ByPattern(domain.idx, ShortNames(std::vector<User>{user}).front());
  return account +
         (was_taken_out ? " was taken out of the domain by name"
                        : " is known and not in the domain") +
         add;
}

}  // namespace

std::string WhatBecameOf(const std::string& full_name) {
  PKORVUser account = nullptr;
  if (PullsAccounts() || KORVUserGet(full_name.c_str(), &account) == 0) {
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
  std::unordered_set<unsigned int> removed;
  if (!MDOMAIN::API::DomainUser().GetAllRemovedUIDs(domain.idx, removed)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  std::vector<std::string> sentences;
  for (const User& user : Mirrored(name)) {
    sentences.push_back(WhyNot(domain, user, name, removed.count(user.GetUID()) != 0));
  }
  if (sentences.empty() && !PullsAccounts() && IsUserOfAccountSystem(name)) {
    sentences.push_back("account " + name +
                        " is in the account system, and no refresh has found it yet (mdomain "
                        "refresh)");
  } else if (sentences.empty()) {
    sentences.emplace_back(
        "nobody has the alias, and no account that the last refresh found has this name");
  }
  return sentences;
}

std::string RoleGivers(int domain_idx, unsigned int uid) {
  std::vector<unsigned int> gids;
  if (!MDOMAIN::DB::DomainUser().FindBeingEffectedGroups(domain_idx, uid, gids)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  if (gids.empty()) {
    return "from a group";
  }
  MDOMAIN::DB::GroupDBFilter filter;
  filter.SetGIDs(gids);
  const std::vector<std::string> names = ShortNames(ListGroups(filter));
  return (names.size() == 1 ? "from group " : "from groups ") + FirstOf(names);
}

}  // namespace mdomain
