// Makes the members of one domain what a site says.
//
// The order is that in which nothing stands in the way of the next step: who leaves goes first, an
// entry is made once nobody has its name, and aliases that somebody else owns come last, so that
// the owners are those of the site.
#include <algorithm>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "tools/mdomain/site.h"
#include "tools/mdomain/site_words.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using MDOMAIN::API::DomainGroup;
using MDOMAIN::API::DomainUser;
using MDOMAIN::RECORD::DomainUserAlias;

// The alias of somebody who gives up all that they own, until the next step: nobody else's.
constexpr const char* kPlaceholder = "mdomain-apply-";

class Members {
 public:
  Members(int idx, const std::string& name, const SiteDomain& wanted, const SiteAccounts& accounts)
      : idx_(idx),
        name_(name),
        wanted_(wanted),
        accounts_(accounts),
        is_(ReadSiteDomain(idx, name, accounts)) {}

  void TakeOut() {
    std::vector<unsigned int> gids;
    for (const auto& group : is_.groups) {
      if (wanted_.groups.count(group.first) == 0) {
        gids.push_back(accounts_.groups.Id(group.first));
      }
    }
    if (!gids.empty()) {
      Require(DomainGroup().Delete(idx_, gids), "groups could not be taken out");
      is_ = ReadSiteDomain(idx_, name_, accounts_);
    }
    std::vector<unsigned int> uids;
    for (const auto& user : is_.users) {
      if (wanted_.users.count(user.first) == 0) {
        uids.push_back(accounts_.users.Id(user.first));
      }
    }
    Require(uids.empty() || DomainUser().Delete(idx_, uids), "users could not be taken out");
  }

  void TakeIn() {
    std::vector<std::string> users;
    std::vector<std::string> groups;
    std::vector<DomainUserAlias> aliases;
    for (const auto& [name, user] : wanted_.users) {
      if (is_.users.count(name) != 0) {
        continue;
      }
      if (user.role != kRoleOfGroups) {
        users.push_back(name);
      }
      AddAliases(name, user.aliases, aliases);
    }
    for (const auto& group : wanted_.groups) {
      if (is_.groups.count(group.first) == 0) {
        groups.push_back(group.first);
      }
    }
    Add(users, groups, aliases);
  }

  void SetRolesOfGroups() {
    std::vector<MDOMAIN::RECORD::DomainGroupRole> roles;
    for (const auto& [name, role] : wanted_.groups) {
      const auto known = is_.groups.find(name);
      if ((known == is_.groups.end() ? "normal" : known->second) != role) {
        roles.emplace_back(idx_, accounts_.groups.Id(name), role);
      }
    }
    Require(roles.empty() || DomainGroup().Set(roles), "the roles of groups could not be set");
  }

  void SetUsers() {
    std::vector<MDOMAIN::RECORD::DomainUser> users;
    for (const auto& [name, user] : wanted_.users) {
      const auto known = is_.users.find(name);
      const bool is_new = known == is_.users.end();
      if (is_new ? user.role.empty() || user.role == kRoleOfGroups : known->second == user) {
        continue;
      }
      // Without any alias the stored ones would stay, and with them the user their owner.
      const bool has_only_taken = user.aliases.empty() && !is_new;
      users.push_back(Record(
          name, has_only_taken ? std::vector<std::string>{kPlaceholder +
                                                          std::to_string(accounts_.users.Id(name))}
                               : user.aliases));
    }
    Set(users);
  }

  // Those whom a group of the domain would bring back.
  void Remove() {
    std::vector<unsigned int> uids;
    for (const std::string& name : wanted_.removed) {
      if (is_.removed.count(name) == 0) {
        uids.push_back(accounts_.users.Id(name));
      }
    }
    Require(uids.empty() || DomainUser().Delete(idx_, uids), "members could not be removed");
  }

  // Who was set has a role of their own since then.
  void AddTakenAliases() {
    std::vector<std::string> added;
    std::vector<DomainUserAlias> aliases;
    std::vector<MDOMAIN::RECORD::DomainUser> without_own;
    for (const auto& [name, user] : wanted_.users) {
      const auto known = is_.users.find(name);
      const bool is_new = known == is_.users.end();
      if (!is_new && known->second == user) {
        continue;
      }
      AddAliases(name, user.taken, aliases);
      if (!is_new && user.role.empty()) {
        added.push_back(name);
      }
      if (!is_new && user.aliases.empty()) {
        without_own.push_back(Record(name, user.taken));
      }
    }
    Add({}, {}, aliases);
    Set(without_own);
    aliases.clear();
    Add(added, {}, aliases);
  }

  const SiteDomain& is() const { return is_; }

 private:
  void Require(bool is_done, const std::string& what) const {
    if (!is_done) {
      throw Failure(kFailed, "domain " + name_ + ": " + what);
    }
  }

  void AddAliases(const std::string& name, const std::vector<std::string>& texts,
                  std::vector<DomainUserAlias>& aliases) const {
    for (const std::string& text : texts) {
      aliases.emplace_back(idx_, accounts_.users.Id(name), text, false);
    }
  }

  void Add(const std::vector<std::string>& users, const std::vector<std::string>& groups,
           std::vector<DomainUserAlias>& aliases) const {
    Require((users.empty() && groups.empty() && aliases.empty()) ||
                DomainUser().AddMembers(idx_, users, groups, aliases),
            "users and groups could not be taken in");
  }

  MDOMAIN::RECORD::DomainUser Record(const std::string& name,
                                     const std::vector<std::string>& texts) const {
    std::vector<std::pair<std::string, bool>> aliases;
    aliases.reserve(texts.size());
    for (const std::string& text : texts) {
      aliases.emplace_back(text, false);
    }
    const SiteAccount& account = *accounts_.users.Find(name);
    const std::string& role = wanted_.users.at(name).role;
    return {idx_, account.id, account.full_name, aliases, role.empty() ? "normal" : role};
  }

  void Set(std::vector<MDOMAIN::RECORD::DomainUser>& users) const {
    std::vector<MDOMAIN::RECORD::DomainUser> conflicts;
    Require(users.empty() || DomainUser().Set(users, conflicts), "users could not be set");
  }

  int idx_;
  const std::string& name_;
  const SiteDomain& wanted_;
  const SiteAccounts& accounts_;
  SiteDomain is_;
};

}  // namespace

void MakeSiteDomain(int idx, const std::string& name, const SiteDomain& wanted,
                    const SiteAccounts& accounts) {
  Members members(idx, name, wanted, accounts);
  std::map<std::string, SiteEntry> kept;  // of these addresses nobody is robbed before they go
  for (const auto& entry : members.is().entries) {
    if (wanted.entries.count(entry.first) != 0) {
      kept.insert(entry);
    }
  }
  MakeSiteEntries(idx, name, members.is().entries, kept, accounts);
  members.TakeOut();
  members.TakeIn();
  members.SetRolesOfGroups();
  members.SetUsers();
  members.Remove();
  MakeSiteEntries(idx, name, ReadSiteDomain(idx, name, accounts).entries, wanted.entries, accounts);
  members.AddTakenAliases();
}

}  // namespace mdomain
