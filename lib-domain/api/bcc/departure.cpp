// Which blind-copy rules go with users who leave a domain: those that send to them and those that
// were made for them. Left in place they would copy the mail of whoever gets the name or address.
#include <map>
#include <unordered_set>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/bcc/kept_rules.h"
#include "lib-domain/api/bcc/text.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/account.h"
#include "platform/include/alias.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using API::INTERNAL::DomainFormCache;
using API::INTERNAL::SplitAddress;
using LowerTexts = std::unordered_set<std::string>;

// Tells which texts of rules stand for those who left.
class LeaverTexts {
 public:
  // To be asked about the texts of these rules. False when the domain cannot be read.
  bool Load(int domain_idx, const std::vector<std::string>& names,
            const std::vector<std::string>& aliases, const std::list<BccInfo>& rules) {
    exact_names_.insert(names.begin(), names.end());
    for (const std::string& name : names) {
      names_.insert(BASE::ToLowerAscii(name));
    }
    for (const std::string& alias : aliases) {
      aliases_.insert(BASE::ToLowerAscii(alias));
    }
    return _LoadAccounts(domain_idx, rules) &&
           (aliases_.empty() || (_LoadDomainNames(domain_idx) && _LeaveOutAliasTable(domain_idx)));
  }
  // Of a rule's name or destination: the account, a bare alias, or an address of the domain.
  bool Has(const std::string& text) {
    std::string local_part;
    std::string domain;
    const std::string lower = BASE::ToLowerAscii(text);
    const bool is_anothers = accounts_.count(lower) != 0;
    if (is_anothers ? exact_names_.count(text) != 0 : names_.count(lower) != 0) {
      return true;
    }
    if (!SplitAddress(lower, local_part, domain)) {
      return aliases_.count(lower) != 0 && !is_anothers;
    }
    return aliases_.count(local_part) != 0 && domain_names_.count(_PlainForm(domain)) != 0;
  }

 private:
  std::string _PlainForm(const std::string& domain) {
    return BASE::ToLowerAscii(forms_.Get(domain).punycode);
  }
  bool _LoadDomainNames(int domain_idx) {
    std::vector<RECORD::Domain> domains;
    std::map<int, std::vector<std::string>> additional;
    if (!DB::Domain().ListNames(domains) || !DB::Domain().ListAllAdditionalDomains(additional)) {
      return false;
    }
    for (const RECORD::Domain& domain : domains) {
      if (domain.GetDomainIdx() == domain_idx) {
        additional[domain_idx].push_back(domain.GetDomainName());
      }
    }
    for (const std::string& name : additional[domain_idx]) {
      domain_names_.insert(_PlainForm(name));
    }
    return true;
  }
  // A bare text that is the name of somebody who stays means that account; of two whose names
  // differ in case alone, the one that is spelt so.
  bool _LoadAccounts(int domain_idx, const std::list<BccInfo>& rules) {
    std::vector<RECORD::DomainUserAlias> texts;
    for (const BccInfo& rule : rules) {
      texts.emplace_back(domain_idx, 0, rule.name, false);
      texts.emplace_back(domain_idx, 0, rule.bcc_to, false);
    }
    DB::INTERNAL::HolderSearch search({domain_idx});
    std::vector<RECORD::DomainUser> users;
    if (!search.AddNamed(texts) || !search.List(users)) {
      return false;
    }
    for (const RECORD::DomainUser& user : users) {
      accounts_.insert(BASE::ToLowerAscii(TrimDomainName(user.GetUserName())));
    }
    return true;
  }
  // An entry of the alias table is an address whoever leaves.
  bool _LeaveOutAliasTable(int domain_idx) {
    Alias table(PATHS::AliasDb());
    if (table.load() < 0) {
      return false;
    }
    for (const Alias::Entry& entry : table.list()) {
      if (entry.domain_id == domain_idx) {
        aliases_.erase(BASE::ToLowerAscii(entry.name));
      }
    }
    return true;
  }

  std::unordered_set<std::string> exact_names_;
  LowerTexts names_;
  LowerTexts aliases_;
  LowerTexts accounts_;
  LowerTexts domain_names_;
  DomainFormCache forms_;
};

// Accounts are mirrored under their full names, and rules name them by their short ones.
std::vector<std::string> WithShortNames(const std::vector<std::string>& names) {
  std::vector<std::string> all;
  for (const std::string& name : names) {
    all.push_back(name);
    const std::string short_name = TrimDomainName(name);
    if (short_name != name) {
      all.push_back(short_name);
    }
  }
  return all;
}

// The name of a rule for the whole domain is the domain's own.
bool IsOfLeaver(LeaverTexts& texts, const BccInfo& rule) {
  return texts.Has(rule.bcc_to) || (rule.type != BCC_DOMAIN && texts.Has(rule.name));
}

bool ListRules(BCC& bcc, int domain_idx, std::list<BccInfo>& all) {
  for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
    std::list<BccInfo> rules;
    if (bcc.LoadBCCList(type, domain_idx, 0, -1, "name", "asc", rules) < 0) {
      return false;
    }
    all.splice(all.end(), rules);
  }
  return true;
}

}  // namespace

BccOutcome DeleteUsersBcc(int domain_idx, const std::vector<std::string>& names,
                          const std::vector<std::string>& aliases) {
  if (HasSurelyNoRules(domain_idx)) {
    return BccOutcome::kDone;
  }
  BCC* bcc = BCC::getInstance(domain_idx);
  if (bcc == nullptr) {
    return BccOutcome::kNoInstance;
  }
  const std::vector<std::string> accounts = WithShortNames(names);
  const std::list<std::string> destinations(accounts.begin(), accounts.end());
  if (bcc->deleteBCC(domain_idx, destinations) < 0) {
    return BccOutcome::kFailed;
  }
  std::list<BccInfo> rules;
  LeaverTexts texts;
  if (!ListRules(*bcc, domain_idx, rules) ||
      (!rules.empty() && !texts.Load(domain_idx, accounts, aliases, rules))) {
    return BccOutcome::kFailed;
  }
  rules.remove_if([&texts](const BccInfo& rule) { return !IsOfLeaver(texts, rule); });
  const bool is_done = rules.empty() || bcc->deleteBCC(domain_idx, rules) >= 0;
  return is_done ? BccOutcome::kDone : BccOutcome::kFailed;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
