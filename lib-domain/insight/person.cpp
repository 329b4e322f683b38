#include "lib-domain/insight/person.h"

#include <algorithm>
#include <optional>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/user.h"
#include "lib-domain/insight/account_state.h"
#include "lib-domain/insight/alias_owner.h"
#include "lib-domain/insight/explanation.h"
#include "lib-domain/insight/fitting_disclaimers.h"
#include "lib-domain/insight/rule_name.h"
#include "lib-domain/insight/stored_copies.h"
#include "platform/include/account.h"

namespace MDOMAIN::INSIGHT {

namespace {

using mdomain::Person;
using mdomain::PersonAddress;
using mdomain::PersonAlias;
using mdomain::PersonDomain;
using mdomain::Role;
using RECORD::DomainUser;

// Why somebody else gets the mail for an alias of a user who has this role.
std::string WhyTaken(int domain_idx, Role role, const AliasOwner& owner) {
  if (owner.is_entry) {
    return "an address with several members comes before accounts";
  }
  if (owner.name.empty()) {
    return "nobody who has it has a role in the domain";
  }
  const std::vector<DomainUser> others = FindInDomain(domain_idx, owner.uid);
  const bool is_stronger = role != Role::kDomainAdmin && !others.empty() &&
                           RoleOf(others.front().GetRole()) == Role::kDomainAdmin;
  return is_stronger ? owner.name + " is an administrator of the domain, who comes first"
                     : owner.name + " has the same role and came first";
}

PersonAlias AliasOf(const DomainUser& user, Role role, const std::string& alias, bool is_taken,
                    const AliasOwners& owners) {
  PersonAlias told;
  told.local_part = alias;
  told.is_taken = is_taken;
  told.owner = is_taken ? "" : user.GetUserName();
  const AliasOwner* owner = owners.Find(user.GetDomainIdx(), alias);
  if (owner == nullptr) {
    return told;
  }
  told.others = owner->holders;
  if (!owner->name.empty()) {
    told.others.insert(told.others.begin(), owner->name);
  }
  told.others.erase(std::remove(told.others.begin(), told.others.end(), user.GetUserName()),
                    told.others.end());
  if (is_taken) {
    told.owner = owner->name;
    told.is_entry = owner->is_entry;
    told.why = WhyTaken(user.GetDomainIdx(), role, *owner);
  }
  return told;
}

// What the user is in one domain; none for nothing.
std::optional<PersonDomain> InDomain(const KnownDomain& domain, unsigned int uid,
                                     const std::vector<DomainUser>& with_aliases) {
  std::vector<DomainUser> found = FindInDomain(domain.idx, uid);
  PersonDomain told;
  told.domain = NameOf(domain);
  if (!found.empty()) {
    told.role = RoleOf(found.front().GetRole());
    told.has_own_role = !found.front().IsUnderGroupControl();
  } else {
    std::copy_if(with_aliases.begin(), with_aliases.end(), std::back_inserter(found),
                 [&](const DomainUser& one) { return one.GetDomainIdx() == domain.idx; });
  }
  if (found.empty()) {
    return std::nullopt;
  }
  told.groups = ListRoleGroups(domain.idx, uid);
  std::vector<std::string> aliases;
  for (const auto& pair : found.front().GetAliasDuplicatedPairs()) {
    aliases.push_back(pair.first);
  }
  AliasOwners owners;
  owners.Read(domain.idx, aliases);
  for (const auto& [alias, is_taken] : found.front().GetAliasDuplicatedPairs()) {
    told.aliases.push_back(AliasOf(found.front(), told.role, alias, is_taken, owners));
  }
  return told;
}

std::vector<PersonAddress> AddressesOf(const Person& person,
                                       const std::vector<KnownDomain>& domains) {
  std::vector<std::string> addresses;
  RequireRead(API::DomainUser().GetMailAddrIncludingAdditionalDomain(person.name, addresses),
              "the addresses of the user");
  const AddressOwners owners(domains, person.uid);
  std::vector<PersonAddress> told;
  for (const std::string& address : addresses) {
    if (!owners.HasDomainOf(address)) {
      continue;
    }
    const AliasOwner* other = owners.FindOther(person.name, address);
    told.push_back({address, other == nullptr ? person.name : other->name,
                    other != nullptr && other->is_entry});
  }
  return told;
}

// Whether a name or destination of a rule in the domain means the user: the account, an alias of
// that domain, or an address that is the user's own.
bool IsNamed(const Person& person, int domain_idx, const std::string& text) {
  if (text.find('@') != std::string::npos) {
    return std::any_of(
        person.addresses.begin(), person.addresses.end(), [&](const PersonAddress& one) {
          return one.owner == person.name && SameRuleName(BCC_RECIPIENT, one.address, text);
        });
  }
  for (const PersonDomain& domain : person.domains) {
    for (const PersonAlias& alias : domain.aliases) {
      if (domain.domain.idx == domain_idx && !alias.is_taken &&
          BASE::EqualsIgnoreCase(alias.local_part, text)) {
        return true;
      }
    }
  }
  return SameRuleName(BCC_RECIPIENT, person.name, text);
}

const PersonDomain* FindDomain(const Person& person, int domain_idx) {
  const auto found =
      std::find_if(person.domains.begin(), person.domains.end(),
                   [&](const PersonDomain& one) { return one.domain.idx == domain_idx; });
  return found == person.domains.end() ? nullptr : &*found;
}

void AddOwnAddresses(const KnownDomain& domain, const PersonDomain& in_domain,
                     mdomain::OwnView& own) {
  std::vector<std::string> names = {domain.name};
  names.insert(names.end(), domain.additional_names.begin(), domain.additional_names.end());
  for (const std::string& name : names) {
    for (const PersonAlias& alias : in_domain.aliases) {
      const std::string address = alias.local_part + "@" + name;
      if (alias.is_taken) {
        own.taken.push_back({address, alias.owner});
      } else {
        own.addresses.push_back(address);
      }
    }
  }
}

void AddCopies(const std::vector<KnownDomain>& domains, Person& person) {
  for (const KnownDomain& domain : domains) {
    ForEachCopy(domain.idx, [&](const BccInfo& rule) {
      const bool is_name = rule.type != BCC_DOMAIN && IsNamed(person, domain.idx, rule.name);
      if (is_name || IsNamed(person, domain.idx, rule.bcc_to)) {
        person.copies.push_back({NameOf(domain), CopyOf(rule)});
      }
    });
  }
}

// Without copies.
Person Describe(const RECORD::User& user, const std::vector<KnownDomain>& domains) {
  Person person;
  person.uid = user.GetUID();
  person.name = user.GetUserName();
  std::vector<unsigned int> gids;
  RequireRead(DB::User().FindBelongingGroups(person.uid, gids), "the groups of the user");
  person.groups = ListGroupsOf(gids);
  const std::vector<DomainUser> with_aliases = DomainsOfUser(person.uid);
  std::vector<int> taken_out_of;
  RequireRead(DB::INTERNAL::ListTakenOutOf(person.uid, taken_out_of), "the removed users");
  for (const KnownDomain& domain : domains) {
    if (std::optional<PersonDomain> in_domain = InDomain(domain, person.uid, with_aliases)) {
      person.domains.push_back(std::move(*in_domain));
    }
    if (std::find(taken_out_of.begin(), taken_out_of.end(), domain.idx) != taken_out_of.end()) {
      person.taken_out_of.push_back(NameOf(domain));
    }
  }
  person.addresses = AddressesOf(person, domains);
  return person;
}

}  // namespace

Person DescribePerson(const RECORD::User& user, const std::vector<KnownDomain>& domains) {
  Person person = Describe(user, domains);
  AddCopies(domains, person);
  return person;
}

void AddReasons(Person& person) {
  std::vector<std::string> addresses;
  for (const PersonAddress& address : person.addresses) {
    if (address.owner == person.name) {
      addresses.push_back(address.address);
    }
  }
  for (PersonDomain& domain : person.domains) {
    if (!PullsDomains()) {
      domain.by_pattern = AliasByPattern(domain.domain.idx, TrimDomainName(person.name));
    }
    RequireRead(AddFittingDisclaimers(domain.domain.idx, person.uid, addresses, person.disclaimers),
                "the disclaimers");
  }
}

mdomain::OwnView DescribeOwn(const RECORD::User& user, const std::vector<KnownDomain>& domains) {
  const Person person = Describe(user, domains);
  mdomain::OwnView own;
  own.uid = person.uid;
  own.name = person.name;
  for (const KnownDomain& domain : domains) {
    const PersonDomain* in_domain = FindDomain(person, domain.idx);
    if (in_domain == nullptr || in_domain->role == Role::kNone) {
      continue;
    }
    AddOwnAddresses(domain, *in_domain, own);
    ForEachCopy(domain.idx, [&](const BccInfo& rule) {
      if (rule.type == BCC_DOMAIN || IsNamed(person, domain.idx, rule.name)) {
        own.copies.push_back({domain.name, CopyOf(rule).of, rule.bcc_to});
      }
    });
  }
  return own;
}

}  // namespace MDOMAIN::INSIGHT
