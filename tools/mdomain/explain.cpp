// mdomain explain: who gets the mail for an address, and why, or why nobody does.
#include <algorithm>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/email_owner.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/account.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/postfix_map.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/explain_account.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/suggestion.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::BASE::EqualsIgnoreCase;
using MDOMAIN::RECORD::DomainUser;

struct Asked {
  std::string address;
  std::string local_part;  // what of it counts
  std::string domain;

  std::string Counted() const { return local_part + "@" + domain; }
};

Asked Split(const std::string& address) {
  RequirePlainText("the address", address);
  const size_t at = address.rfind('@');
  if (at == std::string::npos || at == 0 || at + 1 == address.size()) {
    throw Failure(kRefused, "\"" + address + "\" is not an address");
  }
  return {address, address.substr(0, at), address.substr(at + 1)};
}

// Sentences in the order in which the answer is found, and the answer.
class Explanation {
 public:
  explicit Explanation(Call& call) : call_(call), asked_(Split(call.Text("ADDRESS"))) {}

  void Print();

 private:
  bool _FindDomain();
  void _TellSpelling();
  void _TellPublished();
  bool _TellEntry();
  void _TellHolders();
  void _TellHolder(const DomainUser& user, bool is_flagged);
  std::string _SpecialReceivers() const;
  void _TellRoleAddress();
  void _TellCopies();
  void _TellRegistry();
  void _TellMap();
  void _Say(const std::string& step, const std::string& sentence);

  Call& call_;
  Asked asked_;
  const Domains domains_;
  const KnownDomain* domain_ = nullptr;
  Json::Value record_;
  std::vector<std::string> sentences_;
  std::string receiver_;  // account, or members; empty: nobody
  std::vector<DomainUser> holders_;
};

void Explanation::_Say(const std::string& step, const std::string& sentence) {
  Json::Value line;
  line["step"] = step;
  line["text"] = sentence;
  record_["steps"].append(line);
  sentences_.push_back(sentence);
}

bool Explanation::_FindDomain() {
  for (const KnownDomain& domain : domains_.all()) {
    const auto further = std::find_if(
        domain.additional_names.begin(), domain.additional_names.end(),
        [this](const std::string& name) { return SameDomainName(name, asked_.domain); });
    const bool is_own = SameDomainName(domain.name, asked_.domain);
    if (is_own || further != domain.additional_names.end()) {
      domain_ = &domain;
      _Say("domain", asked_.domain +
                         (is_own ? " is the name of domain " : " is a further name of domain ") +
                         domain.Title());
      return true;
    }
  }
  std::vector<std::string> names;
  for (const KnownDomain& domain : domains_.all()) {
    names.push_back(domain.name);
    names.insert(names.end(), domain.additional_names.begin(), domain.additional_names.end());
  }
  _Say("domain",
       "no domain of this host has the name " + asked_.domain + DidYouMean(asked_.domain, names));
  return false;
}

void Explanation::_TellSpelling() {
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(asked_.domain, other) == 0 &&
      !EqualsIgnoreCase(other, asked_.domain)) {
    record_["other_spelling"] = asked_.local_part + "@" + other;
    _Say("spelling", "it is the same address as " + asked_.local_part + "@" + other);
  }
  if (!KORV::POSTARA_SERVER::IsValidEaiLocalPart(asked_.local_part, true)) {
    _Say("spelling", "\"" + asked_.local_part + "\" cannot be a local part: nobody can have it");
  }
}

void Explanation::_TellPublished() {
  std::string published;
  if (mailConfGet("virtual_multiple_domain", published) < 0) {
    throw Failure(kFailed, "what is published could not be read");
  }
  const std::string wanted = std::to_string(domain_->idx) + "/";
  const std::string list = ", " + published;
  record_["published"] = list.find(", " + wanted) != std::string::npos;
  if (!record_["published"].asBool()) {
    _Say("published", "the domain is not published: mdomain publish");
  }
}

bool Explanation::_TellEntry() {
  bool found = false;
  ::Alias::Entry entry;
  if (!MDOMAIN::API::AliasEntry().Find(domain_->idx, asked_.local_part, found, entry)) {
    throw Failure(kFailed, "the addresses with several members could not be read");
  }
  if (!found) {
    return false;
  }
  std::vector<std::string> members;
  for (const auto& member : entry.members) {
    members.push_back((member.kind == ::Alias::MemberKind::Group ? "group " : "") + member.name);
  }
  record_["members"] = JsonTexts(members);
  receiver_ = _SpecialReceivers();
  _Say("entry", "it is an address with several members: " +
                    (members.empty() ? "none" : MDOMAIN::BASE::Join(members, ", ")));
  if (receiver_.empty() && !members.empty()) {
    _Say("entry", "none of the members has an address any more");
  }
  return true;
}

void Explanation::_TellHolder(const DomainUser& user, bool is_flagged) {
  std::vector<DomainUser> in_domain;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUser(domain_->idx, user.GetUID(), in_domain)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  Json::Value holder;
  holder["name"] = user.GetUserName();
  holder["uid"] = user.GetUID();
  holder["flagged"] = is_flagged;
  holder["role"] = in_domain.empty() ? "" : in_domain.front().GetRole();
  record_["holders"].append(holder);
  const std::string has = user.GetUserName() + " has the alias";
  if (in_domain.empty()) {
    _Say("holder", has + ", but no role in the domain: an alias without a role gets no mail");
    return;
  }
  const std::string role =
      "role " + in_domain.front().GetRole() +
      (in_domain.front().IsUnderGroupControl() ? ", " + RoleGivers(domain_->idx, user.GetUID())
                                               : ", of the account's own");
  if (is_flagged) {
    _Say("holder", has + " (" + role + "), but it is flagged: " +
                       (record_.isMember("members") ? "the address with several members comes first"
                                                    : "another account owns it"));
    return;
  }
  receiver_ = receiver_.empty() ? user.GetUserName() : receiver_;
  _Say("holder", has + " (" + role + ")");
  const std::string trouble = WhatBecameOf(user.GetUserName());
  if (!trouble.empty()) {
    _Say("account", trouble);
  }
}

void Explanation::_TellHolders() {
  std::vector<std::string> same = {asked_.local_part};
  if (!MDOMAIN::CONTROL::INTERNAL::AddSameAddresses(domain_->idx, same) ||
      !MDOMAIN::DB::INTERNAL::ListHoldersOf(domain_->idx, same, holders_)) {
    throw Failure(kFailed, "the aliases of the domain could not be read");
  }
  // Whoever owns it first.
  for (const bool is_flagged : {false, true}) {
    for (const DomainUser& user : holders_) {
      for (const auto& [alias, flagged] : user.GetAliasDuplicatedPairs()) {
        if (korvmailserver::FoldMapKey(alias) == korvmailserver::FoldMapKey(asked_.local_part) &&
            flagged == is_flagged) {
          _TellHolder(user, is_flagged);
        }
      }
    }
  }
  const size_t holders = record_["holders"].size();
  if (holders > 1) {
    _Say("collision", std::to_string(holders) +
                          " accounts have this alias: of several the stronger role owns it, else "
                          "whoever had it first (mdomain user duplicates " +
                          domain_->name + ")");
  }
}

// Who gets the mail of an address that no single user has; empty for nobody.
std::string Explanation::_SpecialReceivers() const {
  MDOMAIN::UTILS::MailTarget target;
  MDOMAIN::DB::INTERNAL::SpecialAddresses addresses;
  if (!target.Read() || !MDOMAIN::UTILS::CollectSpecialAddresses(target, addresses)) {
    throw Failure(kFailed, "the addresses that go to several could not be read");
  }
  for (const auto& [key, receivers] : addresses) {
    if (key.first == domain_->idx &&
        korvmailserver::FoldMapKey(key.second) == korvmailserver::FoldMapKey(asked_.local_part)) {
      return receivers.addresses;
    }
  }
  return "";
}

void Explanation::_TellRoleAddress() {
  const std::string name = MDOMAIN::BASE::ToLowerAscii(asked_.local_part);
  if (!receiver_.empty() || (name != "postmaster" && name != "abuse")) {
    return;
  }
  receiver_ = _SpecialReceivers();
  _Say("role",
       "every domain answers it: its administrators get it, else whom mdomain config get "
       "postmaster names, else nobody");
}

// Rules that hold for the address, its account or the domain.
void Explanation::_TellCopies() {
  BCC* bcc = BCC::getInstance();
  if (bcc == nullptr) {
    throw Failure(kFailed, "the rules of blind copies could not be read");
  }
  for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
    std::list<BccInfo> rules;
    if (bcc->LoadBCCList(type, domain_->idx, 0, -1, "name", "asc", rules) < 0) {
      throw Failure(kFailed, "the rules of blind copies could not be read");
    }
    for (const BccInfo& rule : rules) {
      const std::string name = rule.name.substr(0, rule.name.rfind('@'));
      const bool holds = type == BCC_DOMAIN || EqualsIgnoreCase(name, asked_.local_part) ||
                         (!receiver_.empty() && EqualsIgnoreCase(rule.name, receiver_));
      if (holds) {
        const char* of = type == BCC_SENDER   ? "mail from it"
                         : type == BCC_DOMAIN ? "all mail of the domain"
                                              : "mail to it";
        record_["copies"].append(rule.bcc_to);
        _Say("copy", std::string(of) + " is copied to " + rule.bcc_to);
      }
    }
  }
}

void Explanation::_TellRegistry() {
  if (!postara::sdk::Exist(MDOMAIN::PATHS::EmailOwnerDb())) {
    return;
  }
  std::string owner;
  if (!MDOMAIN::API::EmailOwner().GetOwner(asked_.Counted(), owner)) {
    throw Failure(kFailed, "the owner registry could not be read");
  }
  record_["registry"] = owner;
  _Say("registry", owner.empty() ? "the registry of owners has nobody for it"
                                 : "the registry of owners has " + owner);
}

void Explanation::_TellMap() {
  const korvmailserver::PostfixMap map(MDOMAIN::PATHS::PostfixAddresses());
  if (!postara::sdk::Exist(map.File())) {
    _Say("postfix", "there are no maps for Postfix on this machine");
    return;
  }
  bool found = false;
  std::string value;
  std::string error;
  if (!map.Get(asked_.Counted(), found, value, error)) {
    throw Failure(kFailed, "the map for Postfix cannot be read: " + error);
  }
  record_["postfix"] = value;
  _Say("postfix", found ? "Postfix delivers it to " + value : "Postfix refuses it: no such user");
}

void Explanation::Print() {
  record_["address"] = asked_.address;
  record_["steps"] = Json::Value(Json::arrayValue);
  record_["holders"] = Json::Value(Json::arrayValue);
  _TellSpelling();
  const bool is_ours = _FindDomain();
  if (is_ours) {
    _TellPublished();
    bool is_entry = _TellEntry();
    _TellHolders();
    const size_t plus = asked_.local_part.find('+');
    if (!is_entry && holders_.empty() && plus != std::string::npos && plus != 0) {
      asked_.local_part.resize(plus);
      _Say("extension", "nobody has it as a whole: what stands behind \"+\" does not count, " +
                            asked_.local_part + " does");
      is_entry = _TellEntry();
      _TellHolders();
    }
    if (receiver_.empty() && !is_entry && holders_.empty()) {
      for (const std::string& sentence : WhyNobody(*domain_, asked_.local_part)) {
        _Say("account", sentence);
      }
    }
    _TellRoleAddress();
    _TellCopies();
    _TellRegistry();
    _TellMap();
  }
  if (is_ours && !record_["published"].asBool()) {
    receiver_.clear();  // no mail arrives for a domain that the mail services do not know
    record_.removeMember("postfix");
  }
  record_["domain"] = is_ours ? Json::Value(domain_->idx) : Json::Value();
  record_["receiver"] = receiver_;
  const std::string verdict =
      receiver_.empty() && record_["postfix"].asString().empty()
          ? "nobody gets mail for " + asked_.address
          : "mail for " + asked_.address + " goes to " +
                (receiver_.empty() ? record_["postfix"].asString() : receiver_);
  sentences_.insert(sentences_.begin(), verdict);
  if (call_.out().json()) {
    call_.out().Record(record_, {});
  } else {
    call_.out().Texts(sentences_);
  }
  call_.out().Flush();
  if (verdict.rfind("nobody", 0) == 0) {
    throw Failure(kNotFound, verdict);
  }
}

void Explain(Call& call) {
  Explanation(call).Print();
}

const Register kExplain({
    "explain",
    "Tell who gets the mail for an address, and why",
    {{"",
      "Tell who gets the mail for an address, and why",
      "Step by step: both spellings, the domain and by which name, who has the alias in which "
      "role, "
      "who owns it where several have it, an address with several members, blind copies, what the "
      "registry of owners and Postfix's map say. Where nobody gets it, why not, and what would "
      "change that; then it ends with 4.",
      Effect::kReads,
      {One("ADDRESS", "An address")},
      Explain}},
});

}  // namespace
}  // namespace mdomain
