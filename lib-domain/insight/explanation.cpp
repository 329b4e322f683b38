#include "lib-domain/insight/explanation.h"

#include <algorithm>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/email_owner.h"
#include "lib-domain/base/domain_name.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/sentence.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/insight/account_state.h"
#include "lib-domain/insight/fitting_disclaimers.h"
#include "lib-domain/insight/stored_copies.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/account.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::INSIGHT {

namespace {

using mdomain::Explanation;
using RECORD::DomainUser;

// "from group books", "from groups books, sales"
std::string WriteGroups(const std::vector<mdomain::Account>& groups) {
  std::vector<std::string> names;
  names.reserve(groups.size());
  for (const mdomain::Account& group : groups) {
    names.push_back(TrimDomainName(group.name));
  }
  return names.empty()
             ? "from a group"
             : (names.size() == 1 ? "from group " : "from groups ") + BASE::FirstOf(names);
}

// Sentences in the order in which the answer is found.
class Explainer {
 public:
  Explainer(const std::string& address, const std::vector<KnownDomain>& domains)
      : domains_(domains) {
    told_.address = address;
    SplitAddress(address, local_part_, domain_name_);
  }

  Explanation Run();

 private:
  void _Say(const char* step, const std::string& text) { told_.steps.push_back({step, text}); }
  bool _FindDomain();
  void _TellGone();
  void _TellSpelling();
  void _TellPublished();
  void _TellReceivers();
  void _TellEntry();
  void _TellHolders();
  void _TellHolder(const DomainUser& user, bool is_taken);
  std::string _SpecialReceivers() const;
  void _TellRoleAddress();
  void _TellCopies();
  void _TellDisclaimers();
  void _TellRegistry();
  void _TellMap();
  bool _IsLocalPart(const std::string& alias) const {
    return korvmailserver::FoldMapKey(alias) == korvmailserver::FoldMapKey(local_part_);
  }
  std::string _Counted() const { return local_part_ + "@" + domain_name_; }

  const std::vector<KnownDomain>& domains_;
  std::string local_part_;  // what of it counts
  std::string domain_name_;
  const KnownDomain* domain_ = nullptr;
  Explanation told_;
};

bool Explainer::_FindDomain() {
  domain_ = FindNamed(domains_, domain_name_);
  if (domain_ == nullptr) {
    _Say("domain", "no domain of this host has the name " + domain_name_);
    _TellGone();
    return false;
  }
  const bool is_own = BASE::SameDomainName(domain_->name, domain_name_);
  _Say("domain", domain_name_ +
                     (is_own ? " is the name of domain " : " is a further name of domain ") +
                     domain_->Title());
  told_.domain = NameOf(*domain_);
  return true;
}

// A deletion that was interrupted leaves it so.
void Explainer::_TellGone() {
  for (const auto& [idx, name] : PublishedDomains()) {
    if (BASE::SameDomainName(name, domain_name_)) {
      _Say("published", "the mail services still take it for domain " + std::to_string(idx) +
                            ", which is gone: mdomain doctor tells what it left");
    }
  }
}

void Explainer::_TellSpelling() {
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(domain_name_, other) == 0 &&
      !BASE::EqualsIgnoreCase(other, domain_name_)) {
    told_.other_spelling = local_part_ + "@" + other;
    _Say("spelling", "it is the same address as " + told_.other_spelling);
  }
  if (!KORV::POSTARA_SERVER::IsValidEaiLocalPart(local_part_, true)) {
    _Say("spelling", "\"" + local_part_ + "\" cannot be a local part: nobody can have it");
  }
}

void Explainer::_TellPublished() {
  std::string published;
  RequireRead(mailConfGet("virtual_multiple_domain", published) >= 0, "what is published");
  const std::string wanted = ", " + std::to_string(domain_->idx) + "/";
  told_.is_published = (", " + published).find(wanted) != std::string::npos;
  if (!told_.is_published) {
    _Say("published", "the domain is not published: mdomain publish");
  }
}

void Explainer::_TellEntry() {
  ::Alias::Entry entry;
  RequireRead(API::AliasEntry().Find(domain_->idx, local_part_, told_.is_entry, entry),
              "the addresses with several members");
  if (!told_.is_entry) {
    return;
  }
  for (const auto& member : entry.members) {
    told_.members.push_back((member.kind == ::Alias::MemberKind::Group ? "group " : "") +
                            member.name);
  }
  told_.receiver = _SpecialReceivers();
  _Say("entry", "it is an address with several members: " +
                    (told_.members.empty() ? "none" : BASE::Join(told_.members, ", ")));
  if (told_.receiver.empty() && !told_.members.empty()) {
    _Say("entry", "none of the members has an address any more");
  }
}

void Explainer::_TellHolder(const DomainUser& user, bool is_taken) {
  const std::vector<DomainUser> in_domain = FindInDomain(domain_->idx, user.GetUID());
  const std::string& name = user.GetUserName();
  const std::string role_text = in_domain.empty() ? "" : in_domain.front().GetRole();
  told_.holders.push_back({user.GetUID(), name, RoleOf(role_text), is_taken});
  const std::string has = name + " has the alias";
  if (in_domain.empty()) {
    _Say("holder", has + ", but no role in the domain: an alias without a role gets no mail");
    return;
  }
  const std::string role = "role " + role_text +
                           (in_domain.front().IsUnderGroupControl()
                                ? ", " + WriteGroups(ListRoleGroups(domain_->idx, user.GetUID()))
                                : ", of the account's own");
  if (is_taken) {
    _Say("holder", has + " (" + role + "), but it is flagged: " +
                       (told_.is_entry ? "the address with several members comes first"
                                       : "another account owns it"));
    return;
  }
  told_.receiver = told_.receiver.empty() ? name : told_.receiver;
  _Say("holder", has + " (" + role + ")");
  const std::string trouble = WhatBecameOf(name);
  if (!trouble.empty()) {
    _Say("account", trouble);
  }
}

void Explainer::_TellHolders() {
  std::vector<std::string> same = {local_part_};
  std::vector<DomainUser> users;
  RequireRead(CONTROL::INTERNAL::AddSameAddresses(domain_->idx, same) &&
                  DB::INTERNAL::ListHoldersOf(domain_->idx, same, users),
              "the aliases of the domain");
  // Whoever owns it first.
  for (const bool is_taken : {false, true}) {
    for (const DomainUser& user : users) {
      for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
        if (_IsLocalPart(alias) && is_flagged == is_taken) {
          _TellHolder(user, is_taken);
        }
      }
    }
  }
  if (told_.holders.size() > 1) {
    _Say("collision", std::to_string(told_.holders.size()) +
                          " accounts have this alias: of several the stronger role owns it, else "
                          "whoever had it first (mdomain user duplicates " +
                          domain_->name + ")");
  }
}

// Who gets the mail of an address that no single user has; empty for nobody.
std::string Explainer::_SpecialReceivers() const {
  UTILS::MailTarget target;
  DB::INTERNAL::SpecialAddresses addresses;
  RequireRead(target.Read() && UTILS::CollectSpecialAddresses(target, addresses),
              "the addresses that go to several");
  for (const auto& [key, receivers] : addresses) {
    if (key.first == domain_->idx && _IsLocalPart(key.second)) {
      return receivers.addresses;
    }
  }
  return "";
}

// By the address, then by what stands before its "+", where nobody has it as a whole.
void Explainer::_TellReceivers() {
  _TellEntry();
  _TellHolders();
  const size_t plus = local_part_.find('+');
  if (!told_.is_entry && told_.holders.empty() && plus != std::string::npos && plus != 0) {
    local_part_.resize(plus);
    _Say("extension", "nobody has it as a whole: what stands behind \"+\" does not count, " +
                          local_part_ + " does");
    _TellEntry();
    _TellHolders();
  }
  if (told_.receiver.empty() && !told_.is_entry && told_.holders.empty()) {
    for (const std::string& sentence : WhyNobody(*domain_, local_part_)) {
      _Say("account", sentence);
    }
  }
  _TellRoleAddress();
}

void Explainer::_TellRoleAddress() {
  const std::string name = BASE::ToLowerAscii(local_part_);
  if (!told_.receiver.empty() || (name != "postmaster" && name != "abuse")) {
    return;
  }
  told_.receiver = _SpecialReceivers();
  _Say("role",
       "every domain answers it: its administrators get it, else whom mdomain config get "
       "postmaster names, else nobody");
}

// Rules that hold for the address, its account or the domain.
void Explainer::_TellCopies() {
  ForEachCopy(domain_->idx, [this](const BccInfo& rule) {
    const std::string name = rule.name.substr(0, rule.name.rfind('@'));
    if (rule.type == BCC_DOMAIN || BASE::EqualsIgnoreCase(name, local_part_) ||
        (!told_.receiver.empty() && BASE::EqualsIgnoreCase(rule.name, told_.receiver))) {
      told_.copies.push_back(CopyOf(rule));
      const char* of = rule.type == BCC_SENDER   ? "mail from it"
                       : rule.type == BCC_DOMAIN ? "all mail of the domain"
                                                 : "mail to it";
      _Say("copy", std::string(of) + " is copied to " + rule.bcc_to);
    }
  });
}

void Explainer::_TellDisclaimers() {
  const bool has_owner = !told_.holders.empty() && !told_.holders.front().is_taken;
  const std::optional<unsigned int> uid =
      has_owner ? std::make_optional(told_.holders.front().uid) : std::nullopt;
  if (!AddFittingDisclaimers(domain_->idx, uid, {_Counted()}, told_.disclaimers)) {
    _Say("disclaimer", "the disclaimers of the domain cannot be read");
  }
  for (const mdomain::FittingDisclaimer& disclaimer : told_.disclaimers) {
    const std::string whose = !disclaimer.fits_recipient ? "mail from it"
                              : !disclaimer.fits_sender  ? "mail to it"
                                                         : "mail from it and to it";
    _Say("disclaimer", "a rule of disclaimer " + std::to_string(disclaimer.id) + " (" +
                           disclaimer.name + ") fits " + whose);
  }
}

void Explainer::_TellRegistry() {
  if (!postara::sdk::Exist(PATHS::EmailOwnerDb())) {
    return;
  }
  std::string owner;
  RequireRead(API::EmailOwner().GetOwner(_Counted(), owner), "the owner registry");
  told_.registry = owner;
  _Say("registry", owner.empty() ? "the registry of owners has nobody for it"
                                 : "the registry of owners has " + owner);
}

void Explainer::_TellMap() {
  const korvmailserver::PostfixMap map(PATHS::PostfixAddresses());
  if (!postara::sdk::Exist(map.File())) {
    _Say("postfix", "there are no maps for Postfix on this machine");
    return;
  }
  bool found = false;
  std::string value;
  std::string error;
  if (!map.Get(_Counted(), found, value, error)) {
    throw std::runtime_error("the map for Postfix cannot be read: " + error);
  }
  told_.postfix = value;
  _Say("postfix", found ? "Postfix delivers it to " + value : "Postfix refuses it: no such user");
}

Explanation Explainer::Run() {
  _TellSpelling();
  if (!_FindDomain()) {
    return std::move(told_);
  }
  _TellPublished();
  _TellReceivers();
  _TellCopies();
  _TellDisclaimers();
  _TellRegistry();
  _TellMap();
  if (!told_.is_published) {
    told_.receiver.clear();  // no mail arrives for a domain that the mail services do not know
    told_.postfix.reset();
  }
  return std::move(told_);
}

}  // namespace

bool SplitAddress(const std::string& address, std::string& local_part, std::string& domain) {
  const size_t at = address.rfind('@');
  if (at == std::string::npos || at == 0 || at + 1 == address.size()) {
    return false;
  }
  local_part = address.substr(0, at);
  domain = address.substr(at + 1);
  return true;
}

const KnownDomain* FindNamed(const std::vector<KnownDomain>& domains, const std::string& name) {
  const auto found =
      std::find_if(domains.begin(), domains.end(),
                   [&name](const KnownDomain& domain) { return domain.HasName(name); });
  return found == domains.end() ? nullptr : &*found;
}

Explanation Explain(const std::string& address, const std::vector<KnownDomain>& domains) {
  return Explainer(address, domains).Run();
}

}  // namespace MDOMAIN::INSIGHT
