#include "lib-domain/insight/alias_owner.h"

#include <algorithm>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"

namespace MDOMAIN::INSIGHT {

namespace {

using BASE::ToLowerAscii;
using RECORD::DomainUser;

bool IsEntry(int domain_idx, const std::string& alias) {
  bool found = false;
  ::Alias::Entry entry;
  RequireRead(API::AliasEntry().Find(domain_idx, alias, found, entry),
              "the addresses with several members");
  return found;
}

}  // namespace

std::string AliasOwner::Text() const {
  if (!name.empty()) {
    return name;
  }
  return is_entry ? "an address with several members" : "nobody";
}

void AliasOwners::Read(int domain_idx, const std::vector<std::string>& aliases) {
  if (aliases.empty()) {
    return;
  }
  std::vector<DomainUser> users;
  RequireRead(DB::INTERNAL::ListHoldersOf(domain_idx, aliases, users), "the aliases of the domain");
  for (const std::string& alias : aliases) {
    owners_[{domain_idx, ToLowerAscii(alias)}];
  }
  for (const DomainUser& user : users) {
    for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
      const auto owner = owners_.find({domain_idx, ToLowerAscii(alias)});
      if (owner == owners_.end()) {
        continue;
      }
      if (is_flagged) {
        owner->second.holders.push_back(user.GetUserName());
      } else {
        owner->second.name = user.GetUserName();
        owner->second.uid = user.GetUID();
      }
    }
  }
  for (const std::string& alias : aliases) {
    AliasOwner& owner = owners_[{domain_idx, ToLowerAscii(alias)}];
    owner.is_entry = owner.name.empty() && IsEntry(domain_idx, alias);
  }
}

void AliasOwners::ReadFlagged(int domain_idx) {
  std::vector<std::string> aliases;
  RequireRead(API::DomainUser().ListDuplicatedEmail(domain_idx, aliases), "the colliding aliases");
  Read(domain_idx, aliases);
}

const AliasOwner* AliasOwners::Find(int domain_idx, const std::string& alias) const {
  const auto owner = owners_.find({domain_idx, ToLowerAscii(alias)});
  return owner == owners_.end() ? nullptr : &owner->second;
}

AddressOwners::AddressOwners(const std::vector<KnownDomain>& domains,
                             std::optional<unsigned int> uid) {
  for (const KnownDomain& domain : domains) {
    primary_idx_ = domain.is_primary ? domain.idx : primary_idx_;
    idx_by_name_[domain.name] = domain.idx;
    for (const std::string& name : domain.additional_names) {
      idx_by_name_[name] = domain.idx;
    }
    if (!uid) {
      owners_.ReadFlagged(domain.idx);
    }
  }
  if (uid) {
    for (const DomainUser& user : DomainsOfUser(*uid)) {
      owners_.Read(user.GetDomainIdx(), FlaggedAliases(user));
    }
  }
}

bool AddressOwners::HasDomainOf(const std::string& address) const {
  return idx_by_name_.count(address.substr(address.rfind('@') + 1)) != 0;
}

const AliasOwner* AddressOwners::FindOther(const std::string& user_name,
                                           const std::string& address) const {
  const size_t at = address.rfind('@');
  const auto domain = idx_by_name_.find(address.substr(at + 1));
  const AliasOwner* owner =
      domain == idx_by_name_.end() ? nullptr : owners_.Find(domain->second, address.substr(0, at));
  return owner == nullptr || owner->name == user_name ? nullptr : owner;
}

void AddressOwners::PutPrimaryFirst(std::vector<std::string>& addresses) const {
  std::stable_partition(addresses.begin(), addresses.end(), [this](const std::string& address) {
    const auto domain = idx_by_name_.find(address.substr(address.rfind('@') + 1));
    return domain != idx_by_name_.end() && domain->second == primary_idx_;
  });
}

std::vector<DomainUser> DomainsOfUser(unsigned int uid) {
  std::vector<DomainUser> users;
  RequireRead(DB::DomainUser().ListDomainsOfUsers({uid}, users), "the aliases of the user");
  return users;
}

std::vector<std::string> FlaggedAliases(const DomainUser& user) {
  std::vector<std::string> aliases;
  for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
    if (is_flagged) {
      aliases.push_back(alias);
    }
  }
  return aliases;
}

}  // namespace MDOMAIN::INSIGHT
