// The maps that Postfix reads: which domains are ours, and where each address goes.
//
// Postfix folds all letters of Unicode, the model those of ASCII: of aliases of one domain that are
// one key then, the first in the order of their bytes has it.
#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/sync/address_follower.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/postfix_maps.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/eai.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

using DB::INTERNAL::SpecialAddresses;
using korvmailserver::FoldMapKey;
using korvmailserver::MapEntries;
using korvmailserver::PostfixMap;
using NamesByDomain = std::map<int, std::set<std::string>>;

// What a look-up of a domain gives; Postfix asks only whether it gives something.
constexpr const char* kDomainValue = "mdomain";

NamesByDomain ByDomain(const std::vector<RECORD::DomainPart>& names) {
  NamesByDomain by_domain;
  for (const RECORD::DomainPart& name : names) {
    if (!INTERNAL::IsTakenForAnother(name.GetDomainName())) {
      by_domain[name.GetDomainIdx()].insert(FoldMapKey(name.GetDomainName()));
    }
  }
  return by_domain;
}

bool IsLocalPart(const std::string& alias) {
  return !alias.empty() && KORV::POSTARA_SERVER::IsValidEaiLocalPart(alias, true);
}

// Fills the map of addresses.
class Addresses {
 public:
  explicit Addresses(const MailTarget& target) : target_(target) {}

  // One that nobody has until somebody is set.
  void Remove(const std::string& alias, const std::set<std::string>& names) {
    for (const std::string& name : names) {
      entries_.emplace(FoldMapKey(alias) + "@" + name, "");
    }
  }
  void Set(const RECORD::LocalPart& part, const std::set<std::string>& names) {
    const std::string address = target_.AddressOf(part.GetUserName());
    const std::string alias = BASE::ToLowerAscii(part.GetLocalPart());
    if (address.empty() || !IsLocalPart(part.GetLocalPart())) {
      return;
    }
    const std::string local_part = FoldMapKey(alias);
    const auto [first, is_new] =
        firsts_.emplace(std::make_pair(part.GetDomainIdx(), local_part), alias);
    if (!is_new && first->second < alias) {
      return;
    }
    first->second = alias;
    const std::string begin = local_part + "@";
    for (const std::string& name : names) {
      entries_[begin + name] = address;
    }
  }
  // Also in the place of a user, unless it gives way.
  void SetSpecial(const std::string& local_part, const DB::INTERNAL::Receivers& receivers,
                  const std::set<std::string>& names) {
    const std::string begin = local_part + "@";
    for (const std::string& name : names) {
      std::string& entry = entries_[begin + name];
      entry = entry.empty() || !receivers.gives_way ? receivers.addresses : entry;
    }
  }
  const MapEntries& Entries() const { return entries_; }

 private:
  const MailTarget& target_;
  MapEntries entries_;
  std::map<std::pair<int, std::string>, std::string> firsts_;
};

PostfixContent EntriesOf(const OwnerRegistryContent& owners, const SpecialAddresses& special,
                         const MailTarget& target) {
  Addresses addresses(target);
  PostfixContent content;
  const NamesByDomain names = ByDomain(owners.domains);
  for (const RECORD::LocalPart& part : owners.local_parts) {
    const auto of_domain = names.find(part.GetDomainIdx());
    if (of_domain != names.end()) {
      addresses.Set(part, of_domain->second);
    }
  }
  for (const auto& [key, address] : special) {
    const auto of_domain = names.find(key.first);
    if (of_domain != names.end()) {
      addresses.SetSpecial(key.second, address, of_domain->second);
    }
  }
  for (const auto& [domain_idx, of_domain] : names) {
    for (const std::string& name : of_domain) {
      content.domains.emplace(name, kDomainValue);
    }
  }
  content.addresses = addresses.Entries();
  return content;
}

// What both maps were left as, and what the addresses in them mean.
struct State {
  std::string addresses;
  std::string domains;
  std::string target;

  std::string Text() const { return addresses + " " + domains + " " + target; }
  bool operator==(const State& other) const { return Text() == other.Text(); }
};

State StateOf(const std::string& text) {
  State state;
  std::istringstream words(text);
  words >> state.addresses >> state.domains >> state.target;
  return state;
}

class PostfixMaps : public AddressFollower {
 public:
  const char* Name() const override { return "postfix"; }
  std::string Place() const override { return AddressMap().File(); }

  // Without them Postfix would put off all mail, so they are made again.
  bool IsLeftAlone(bool& is_left_alone) const override {
    is_left_alone = false;
    return true;
  }

  bool IsInState(const std::string& state, bool& is_in_state) const override {
    State found;
    MailTarget target;
    std::string error;
    if (!target.Read()) {
      return false;
    }
    // A map that cannot be read is made anew.
    is_in_state = ReadState(target, found, error) && found == StateOf(state);
    return true;
  }

  bool Apply(const ChangedAddresses& changes, bool /*exactly*/, std::string& state) const override {
    State found;
    MailTarget target;
    std::string error;
    if (!target.Read() || !ReadState(target, found, error) || !(found == StateOf(state))) {
      return false;
    }
    Addresses addresses(target);
    MapEntries domains;
    if (!FindEntries(changes, addresses, domains) ||
        !AddressMap().Change(addresses.Entries(), found.addresses, error) ||
        !DomainMap().Change(domains, found.domains, error)) {
      return false;
    }
    state = found.Text();
    return true;
  }

  bool Build(const OwnerRegistryContent& content, const SpecialAddresses& special,
             std::string& state) const override {
    State made;
    MailTarget target;
    std::string error;
    if (!target.Read()) {
      return false;
    }
    made.target = target.Text();
    const PostfixContent entries = EntriesOf(content, special, target);
    // A domain without its addresses refuses mail, addresses without their domain do nothing.
    if (!AddressMap().Replace(entries.addresses, made.addresses, error) ||
        !DomainMap().Replace(entries.domains, made.domains, error)) {
      LOG_ERROR("Failed to write a map for Postfix: %s", error.c_str());
      return false;
    }
    state = made.Text();
    return true;
  }

 private:
  static PostfixMap AddressMap() { return PostfixMap(PATHS::PostfixAddresses()); }
  static PostfixMap DomainMap() { return PostfixMap(PATHS::PostfixDomains()); }

  static bool ReadState(const MailTarget& target, State& state, std::string& error) {
    state.target = target.Text();
    return AddressMap().GetState(state.addresses, error) &&
           DomainMap().GetState(state.domains, error);
  }

  static bool FindEntries(const ChangedAddresses& changes, Addresses& addresses,
                          MapEntries& domains) {
    NamesByDomain names = ByDomain(changes.all_names);
    for (const auto& [domain_idx, alias] : changes.aliases) {
      addresses.Remove(alias, names[domain_idx]);
    }
    for (const RECORD::LocalPart& owner : changes.owners) {
      addresses.Set(owner, names[owner.GetDomainIdx()]);
    }
    for (const auto& [domain_idx, alias] : changes.aliases) {
      const auto found = changes.special.find({domain_idx, FoldMapKey(alias)});
      if (found != changes.special.end()) {
        addresses.SetSpecial(found->first.second, found->second, names[domain_idx]);
      }
    }
    for (const auto& [domain_idx, changed] : ByDomain(changes.names)) {
      if (!FindEntriesOfNames(domain_idx, changed, names[domain_idx], changes, addresses)) {
        return false;
      }
      for (const std::string& name : changed) {
        const bool is_name = std::any_of(
            names.begin(), names.end(),
            [&name](const auto& of_domain) { return of_domain.second.count(name) != 0; });
        domains[name] = is_name ? kDomainValue : "";
      }
    }
    return true;
  }

  // The addresses of a domain at names that it got or lost: all of its aliases there.
  static bool FindEntriesOfNames(int domain_idx, const std::set<std::string>& changed,
                                 const std::set<std::string>& now, const ChangedAddresses& changes,
                                 Addresses& addresses) {
    std::vector<RECORD::LocalPart> owners;
    bool is_clear = false;
    if (!CollectOwnersOf({domain_idx}, owners, is_clear) || !is_clear) {
      return false;
    }
    std::set<std::string> got;
    std::set<std::string> lost;
    for (const std::string& name : changed) {
      (now.count(name) != 0 ? got : lost).insert(name);
    }
    for (const RECORD::LocalPart& owner : owners) {
      addresses.Set(owner, got);
      addresses.Remove(owner.GetLocalPart(), lost);
    }
    for (auto special = changes.special.lower_bound({domain_idx, ""});
         special != changes.special.end() && special->first.first == domain_idx; ++special) {
      addresses.SetSpecial(special->first.second, special->second, got);
      addresses.Remove(special->first.second, lost);
    }
    for (const auto& [of_domain, alias] : changes.aliases) {
      if (of_domain == domain_idx) {
        addresses.Remove(alias, lost);
      }
    }
    return true;
  }
};

}  // namespace

std::unique_ptr<AddressFollower> PostfixFollower() {
  return std::make_unique<PostfixMaps>();
}

}  // namespace MDOMAIN::UTILS::INTERNAL

namespace MDOMAIN::UTILS {

bool CollectPostfixMaps(const OwnerRegistryContent& owners, PostfixContent& content) {
  MailTarget target;
  DB::INTERNAL::SpecialAddresses special;
  if (!target.Read() || !CollectSpecialAddresses(target, special)) {
    return false;
  }
  content = INTERNAL::EntriesOf(owners, special, target);
  return true;
}

bool INTERNAL::IsTakenForAnother(const std::string& name) {
  std::string own;
  std::string folded;
  return KORV::POSTARA_SERVER::ConvertToPunycode(name, own) >= 0 &&
         KORV::POSTARA_SERVER::ConvertToPunycode(FoldMapKey(name), folded) >= 0 && own != folded;
}

}  // namespace MDOMAIN::UTILS
