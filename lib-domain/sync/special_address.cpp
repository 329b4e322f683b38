#include "lib-domain/sync/special_address.h"

#include <algorithm>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/sync/mail_target.h"
#include "platform/include/alias.h"
#include "platform/include/mail_conf.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

using DB::INTERNAL::SpecialAddresses;

namespace {

constexpr const char* kRoleNames[] = {"postmaster", "abuse"};

// Accounts and addresses, each once, in order.
class ReceiverList {
 public:
  explicit ReceiverList(const MailTarget& target) : target_(target) {}

  void AddAccount(const std::string& name) { _Add(target_.AddressOf(name)); }
  void AddAddress(const std::string& address) { _Add(address); }
  std::string Text() const { return BASE::Join(addresses_, kSeparator); }

 private:
  void _Add(const std::string& address) {
    if (!address.empty() && known_.insert(address).second) {
      addresses_.push_back(address);
    }
  }

  const MailTarget& target_;
  std::vector<std::string> addresses_;
  std::set<std::string> known_;
};

bool AddMember(const Alias::Member& member, ReceiverList& receivers) {
  std::vector<std::string> names;
  if (member.kind == Alias::MemberKind::Address) {
    receivers.AddAddress(member.name);
    return true;
  }
  if (member.kind == Alias::MemberKind::Group) {
    if (!DB::INTERNAL::ListMembersOfGroup(member.name, names)) {
      return false;
    }
  } else {
    names.emplace_back();
    if (!DB::INTERNAL::FindAccount(member.name, names.back())) {
      return false;
    }
  }
  for (const std::string& name : names) {
    receivers.AddAccount(name);
  }
  return true;
}

bool AddEntries(const MailTarget& target, const std::set<int>& domain_idxs,
                SpecialAddresses& addresses) {
  Alias table(PATHS::AliasDb());
  if (table.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  for (const Alias::Entry& entry : table.list()) {
    std::string text;
    if (domain_idxs.count(entry.domain_id) == 0) {
      continue;
    }
    if (!ReceiversOf(target, entry, text)) {
      return false;
    }
    if (!text.empty()) {
      addresses.emplace(std::make_pair(entry.domain_id, korvmailserver::FoldMapKey(entry.name)),
                        DB::INTERNAL::Receivers{text, false});
    }
  }
  return true;
}

// Whom the mail configuration names.
bool ReadPostmaster(const MailTarget& target, std::string& address) {
  std::string name;
  std::string account;
  if (mailConfGet(kPostmasterKey, name) < 0) {
    LOG_ERROR("Failed to mailConfGet, key: [%s]", kPostmasterKey);
    return false;
  }
  if (!name.empty() && !DB::INTERNAL::FindAccount(name, account)) {
    return false;
  }
  const bool is_address = account.empty() && name.find('@') != std::string::npos;
  address = is_address ? name : target.AddressOf(account);
  return true;
}

bool AddRoleAddresses(const MailTarget& target, const std::set<int>& domain_idxs,
                      SpecialAddresses& addresses) {
  std::map<int, std::vector<std::string>> administrators;
  std::string postmaster;
  if (!DB::INTERNAL::ListAdministrators(administrators) || !ReadPostmaster(target, postmaster)) {
    return false;
  }
  for (const int domain_idx : domain_idxs) {
    ReceiverList receivers(target);
    for (const std::string& name : administrators[domain_idx]) {
      receivers.AddAccount(name);
    }
    const std::string text = receivers.Text().empty() ? postmaster : receivers.Text();
    for (const char* name : kRoleNames) {
      if (!text.empty()) {
        addresses.emplace(std::make_pair(domain_idx, name), DB::INTERNAL::Receivers{text, true});
      }
    }
  }
  return true;
}

}  // namespace

bool ReceiversOf(const MailTarget& target, const ::Alias::Entry& entry, std::string& receivers) {
  ReceiverList list(target);
  for (const ::Alias::Member& member : entry.members) {
    if (!AddMember(member, list)) {
      return false;
    }
  }
  receivers = list.Text();
  return true;
}

bool CollectSpecialAddresses(const MailTarget& target, SpecialAddresses& addresses) {
  std::vector<RECORD::Domain> domains;
  std::set<int> domain_idxs;
  if (!DB::Domain().ListNames(domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.insert(domain.GetDomainIdx());
  }
  // An entry comes before a role address.
  return AddEntries(target, domain_idxs, addresses) &&
         AddRoleAddresses(target, domain_idxs, addresses);
}

}  // namespace MDOMAIN::UTILS
