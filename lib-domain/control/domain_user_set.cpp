// Changing roles and aliases of a domain's users.

#include <set>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/alias_conflict.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/domain_user_flags.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL {

namespace {

using DomainUserKeys = std::vector<std::pair<int, unsigned int>>;

DomainUserKeys KeysOf(const std::vector<RECORD::DomainUser>& users) {
  DomainUserKeys keys;
  keys.reserve(users.size());
  for (const RECORD::DomainUser& user : users) {
    keys.emplace_back(user.GetDomainIdx(), user.GetUID());
  }
  return keys;
}

// The users themselves, and whoever may have one of their aliases or be called like it.
bool ListConcerned(const std::vector<RECORD::DomainUser>& users,
                   std::vector<RECORD::DomainUser>& stored) {
  const std::vector<RECORD::DomainUserAlias> aliases = INTERNAL::AliasesOf(users);
  DB::INTERNAL::HolderSearch search(INTERNAL::DomainsOf(users));
  return search.AddUsers(KeysOf(users)) && search.AddHolders(aliases) && search.AddNamed(aliases) &&
         search.List(stored);
}

std::vector<RECORD::DomainUserAlias> AliasesBeforeAndAfter(
    const std::vector<RECORD::DomainUser>& stored, const std::vector<RECORD::DomainUser>& users) {
  const DomainUserKeys keys = KeysOf(users);
  const std::set<DomainUserKeys::value_type> changed(keys.begin(), keys.end());
  std::vector<RECORD::DomainUserAlias> aliases = INTERNAL::AliasesOf(users);
  for (const RECORD::DomainUser& user : stored) {
    if (changed.count({user.GetDomainIdx(), user.GetUID()}) != 0) {
      const std::vector<RECORD::DomainUserAlias> own = user.ExtractDomainUserAliases();
      aliases.insert(aliases.end(), own.begin(), own.end());
    }
  }
  return aliases;
}

void FindConflicts(const std::vector<RECORD::DomainUser>& stored,
                   std::vector<RECORD::DomainUser>& users,
                   std::vector<RECORD::DomainUser>& conflicts) {
  INTERNAL::AliasIndex others;
  others.Add(stored);
  const INTERNAL::AccountNameIndex names(stored);
  INTERNAL::AliasIndex batch;
  for (RECORD::DomainUser& user : users) {
    if (INTERNAL::CheckAndFlagPairs(others, batch, user)) {
      conflicts.push_back(user);
    }
    if (INTERNAL::SetConflictingNames(names, true, user)) {
      conflicts.push_back(user);
    }
  }
}

// Nobody is given the name of an entry; whoever has it already, flagged, keeps it.
bool RefuseNewEntryNames(const std::vector<RECORD::DomainUser>& stored,
                         const std::vector<RECORD::DomainUser>& users) {
  INTERNAL::EntryNames entries;
  if (!entries.Read()) {
    return false;
  }
  INTERNAL::AliasIndex had;
  had.Add(stored);
  for (const RECORD::DomainUser& user : users) {
    for (const auto& pair : user.GetAliasDuplicatedPairs()) {
      const std::string& alias = pair.first;
      if (entries.Has(user.GetDomainIdx(), alias) &&
          !had.IsHeldBy(user.GetDomainIdx(), user.GetUID(), alias)) {
        LOG_ERROR("The alias has several members: [%s], domain_id: [%d]", alias.c_str(),
                  user.GetDomainIdx());
        return false;
      }
    }
  }
  return true;
}

// The aliases to store. FindConflicts flags every alias that another user has, too, even when this
// user owns it and the other one's is the flagged copy. If it were stored like that, both would be
// flagged, and UpdateDuplicateAlias could give the address to the other user. So an alias that the
// user has unflagged now is stored unflagged.
std::vector<RECORD::DomainUserAlias> ComposeAliases(const std::vector<RECORD::DomainUser>& stored,
                                                    const std::vector<RECORD::DomainUser>& users) {
  INTERNAL::AliasIndex clean;
  for (const RECORD::DomainUser& user : stored) {
    for (const auto& [alias, is_duplicated] : user.GetAliasDuplicatedPairs()) {
      if (!is_duplicated) {
        clean.Add(user.GetDomainIdx(), user.GetUID(), alias);
      }
    }
  }
  std::vector<RECORD::DomainUserAlias> all;
  for (const RECORD::DomainUser& user : users) {
    std::vector<RECORD::DomainUserAlias> aliases = user.ExtractDomainUserAliases();
    INTERNAL::_CheckAndEraseDupAlias(aliases);
    for (RECORD::DomainUserAlias& alias : aliases) {
      if (clean.IsHeldBy(alias.GetDomainIdx(), alias.GetUID(), alias.GetAccountAlias())) {
        alias.SetIsDuplicated(false);
      }
      all.push_back(std::move(alias));
    }
  }
  return all;
}

}  // namespace

bool DomainUser::Set(std::vector<RECORD::DomainUser>& users,
                     std::vector<RECORD::DomainUser>& conflicts) {
  std::vector<RECORD::DomainUser> stored;
  if (!ListConcerned(users, stored)) {
    LOG_ERROR("Failed to _GetCompareDBDomainUsers");
    return false;
  }
  if (!RefuseNewEntryNames(stored, users)) {
    return false;
  }
  const std::vector<RECORD::DomainUserAlias> aliases = AliasesBeforeAndAfter(stored, users);
  FindConflicts(stored, users, conflicts);

  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!_WriteRoles(users)) {
    return false;
  }
  if (!store_.SetUsersAliases(ComposeAliases(stored, users))) {
    LOG_ERROR("Failed to SetUsersAliases");
    return false;
  }

  std::vector<unsigned int> uids;
  uids.reserve(users.size());
  for (const RECORD::DomainUser& user : users) {
    uids.push_back(user.GetUID());
  }
  if (!INTERNAL::Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  if (!INTERNAL::UpdateFlags(INTERNAL::DomainsOf(users), aliases) || scope.Commit() != 0) {
    LOG_ERROR("Failed to UpdateDuplicateAlias");
    return false;
  }
  return true;
}

bool DomainUser::_WriteRoles(const std::vector<RECORD::DomainUser>& users) {
  std::map<int, std::vector<unsigned int>> uids_of_groups;
  std::vector<RECORD::DomainUserRole> roles;
  for (const RECORD::DomainUser& user : users) {
    if (user.GetRole() == kRoleOfGroups) {
      uids_of_groups[user.GetDomainIdx()].push_back(user.GetUID());
    } else {
      roles.push_back(user.ExtractDomainUserRole());
    }
  }
  for (const auto& [domain_idx, uids] : uids_of_groups) {
    if (!store_.DeleteUsersRoles(domain_idx, uids)) {
      LOG_ERROR("Failed to DeleteUsersRoles, domain_id: [%d]", domain_idx);
      return false;
    }
  }
  if (!store_.SetUsersRoles(roles)) {
    LOG_ERROR("Failed to SetUsersRoles");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
