// Makes the members of one domain what a site says.
//
// Who owns an alias that several have follows from who had it first. So everybody who has one that
// somebody gets or gives up here lets it go before; then the owners get theirs, entries their
// names, and the others theirs at the end.
#include <algorithm>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/document/site.h"
#include "lib-domain/document/words.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::DOCUMENT {
namespace {

using API::DomainGroup;
using API::DomainUser;
using korvmailserver::FoldMapKey;
using RECORD::DomainUserAlias;

// The alias of somebody who gives up all that they own, until the next step: nobody else's.
constexpr const char* kPlaceholder = "mdomain-apply-";

using Holders = std::map<std::string, std::set<std::string>>;  // of an alias, by its key

void AddHolders(const std::map<std::string, SiteUser>& users, Holders& holders) {
  for (const auto& [name, user] : users) {
    for (const auto* aliases : {&user.aliases, &user.taken}) {
      for (const std::string& alias : *aliases) {
        holders[FoldMapKey(alias)].insert(name);
      }
    }
  }
}

}  // namespace

SiteMembers::SiteMembers(int domain_idx, const std::string& name, const SiteDomain& is,
                         const SiteDomain& wanted, const SiteAccounts& accounts)
    : idx_(domain_idx), name_(name), is_(is), wanted_(wanted), accounts_(accounts) {}

void SiteMembers::Make() {
  FindMoving();
  TakeOut();
  TakeInGroups();
  GiveUpAliases();
  TakeInUsers();
  SetRolesOfGroups();
  SetUsers();
  Remove();
}

// From those who change, over the aliases that several have, to whoever an owner's step may touch.
void SiteMembers::FindMoving() {
  Holders holders;
  AddHolders(is_.users, holders);
  AddHolders(wanted_.users, holders);
  std::map<std::string, std::set<std::string>> shared;  // keys by user
  for (const auto& [key, names] : holders) {
    for (const std::string& name : names) {
      if (names.size() > 1) {
        shared[name].insert(key);
      }
    }
  }
  std::vector<std::string> next;
  const auto add = [&](const std::string& name) {
    if (moving_.insert(name).second) {
      next.push_back(name);
    }
  };
  for (const auto& [name, user] : wanted_.users) {
    const auto known = is_.users.find(name);
    if (known == is_.users.end() || !(known->second == user)) {
      changed_.insert(name);
      add(name);
    }
  }
  for (const auto& user : is_.users) {
    if (wanted_.users.count(user.first) == 0) {
      add(user.first);
    }
  }
  for (const auto& entry : wanted_.entries) {
    const auto named = holders.find(FoldMapKey(entry.first));
    if (named != holders.end() && is_.entries.count(entry.first) == 0) {
      std::for_each(named->second.begin(), named->second.end(), add);
    }
  }
  while (!next.empty()) {
    const std::string name = next.back();
    next.pop_back();
    for (const std::string& key : shared[name]) {
      std::for_each(holders[key].begin(), holders[key].end(), add);
    }
  }
  for (const std::string& name : moving_) {
    if (wanted_.users.count(name) != 0) {
      changed_.insert(name);
    }
  }
}

void SiteMembers::TakeOut() {
  std::vector<unsigned int> gids;
  for (const auto& group : is_.groups) {
    if (wanted_.groups.count(group.first) == 0) {
      gids.push_back(accounts_.groups.Id(group.first));
    }
  }
  if (!gids.empty()) {
    Require(DomainGroup().Delete(idx_, gids), "groups could not be taken out");
    SiteDomain left;
    SiteReader(accounts_).ReadMembers(idx_, name_, left);
    is_.groups = left.groups;
    is_.users = left.users;
    is_.removed = left.removed;
  }
  std::vector<unsigned int> uids;
  for (const auto& user : is_.users) {
    if (wanted_.users.count(user.first) == 0) {
      uids.push_back(accounts_.users.Id(user.first));
    }
  }
  Require(uids.empty() || DomainUser().Delete(idx_, uids), "users could not be taken out");
}

void SiteMembers::TakeInGroups() {
  std::vector<std::string> groups;
  for (const auto& group : wanted_.groups) {
    if (is_.groups.count(group.first) == 0) {
      groups.push_back(group.first);
    }
  }
  std::vector<DomainUserAlias> none;
  Add({}, groups, none);
}

void SiteMembers::GiveUpAliases() {
  std::vector<RECORD::DomainUser> users;
  for (const std::string& name : moving_) {
    if (!IsNew(name) && wanted_.users.count(name) != 0) {
      users.push_back(Record(name, {}));
    }
  }
  Set(users);
}

void SiteMembers::TakeInUsers() {
  std::vector<std::string> users;
  std::vector<DomainUserAlias> aliases;
  for (const auto& [name, user] : wanted_.users) {
    if (!IsNew(name)) {
      continue;
    }
    if (user.role != kRoleOfGroups) {
      users.push_back(name);
    }
    AddAliases(name, user.aliases, aliases);
  }
  Add(users, {}, aliases);
}

void SiteMembers::SetRolesOfGroups() {
  std::vector<RECORD::DomainGroupRole> roles;
  for (const auto& [name, role] : wanted_.groups) {
    const auto known = is_.groups.find(name);
    if ((known == is_.groups.end() ? "normal" : known->second) != role) {
      roles.emplace_back(idx_, accounts_.groups.Id(name), role);
    }
  }
  Require(roles.empty() || DomainGroup().Set(roles), "the roles of groups could not be set");
}

void SiteMembers::SetUsers() {
  std::vector<RECORD::DomainUser> users;
  for (const std::string& name : changed_) {
    const SiteUser& user = wanted_.users.at(name);
    if (!IsNew(name) || (!user.role.empty() && user.role != kRoleOfGroups)) {
      users.push_back(Record(name, user.aliases));
    }
  }
  Set(users);
}

// Those whom a group of the domain would bring back.
void SiteMembers::Remove() {
  std::vector<unsigned int> uids;
  for (const std::string& name : wanted_.removed) {
    if (is_.removed.count(name) == 0) {
      uids.push_back(accounts_.users.Id(name));
    }
  }
  Require(uids.empty() || DomainUser().Delete(idx_, uids), "members could not be removed");
}

// Who was set has a role of their own since then.
void SiteMembers::AddTakenAliases() {
  std::vector<std::string> added;
  std::vector<DomainUserAlias> aliases;
  std::vector<RECORD::DomainUser> without_own;
  for (const std::string& name : changed_) {
    const SiteUser& user = wanted_.users.at(name);
    AddAliases(name, user.taken, aliases);
    if (!IsNew(name) && user.role.empty()) {
      added.push_back(name);
    }
    if (user.aliases.empty() && !IsNew(name)) {
      without_own.push_back(Record(name, user.taken));
    }
  }
  Add({}, {}, aliases);
  Set(without_own);
  aliases.clear();
  Add(added, {}, aliases);
}

void SiteMembers::Require(bool is_done, const std::string& what) const {
  if (!is_done) {
    throw Problem(Problem::kFailed, "domain " + name_ + ": " + what);
  }
}

void SiteMembers::AddAliases(const std::string& name, const std::vector<std::string>& texts,
                             std::vector<DomainUserAlias>& aliases) const {
  for (const std::string& text : texts) {
    aliases.emplace_back(idx_, accounts_.users.Id(name), text, false);
  }
}

void SiteMembers::Add(const std::vector<std::string>& users, const std::vector<std::string>& groups,
                      std::vector<DomainUserAlias>& aliases) const {
  Require((users.empty() && groups.empty() && aliases.empty()) ||
              DomainUser().AddMembers(idx_, users, groups, aliases),
          "users and groups could not be taken in");
}

// Without any alias the stored ones would stay, and with them the user their owner.
RECORD::DomainUser SiteMembers::Record(const std::string& name,
                                       std::vector<std::string> texts) const {
  const SiteAccount& account = *accounts_.users.Find(name);
  if (texts.empty() && !IsNew(name)) {
    texts = {kPlaceholder + std::to_string(account.id)};
  }
  std::vector<std::pair<std::string, bool>> aliases;
  aliases.reserve(texts.size());
  for (const std::string& text : texts) {
    aliases.emplace_back(text, false);
  }
  const std::string& role = wanted_.users.at(name).role;
  return {idx_, account.id, account.full_name, aliases, role.empty() ? "normal" : role};
}

void SiteMembers::Set(std::vector<RECORD::DomainUser>& users) const {
  std::vector<RECORD::DomainUser> conflicts;
  Require(users.empty() || DomainUser().Set(users, conflicts), "users could not be set");
}

}  // namespace MDOMAIN::DOCUMENT
