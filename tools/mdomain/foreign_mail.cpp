// An alias that leads to one mailbox of its domain, over whatever other aliases, becomes an alias
// of that user. All else becomes an entry; a mailbox that forwards its mail is one as well, and
// everything that leads to it names its address, so that the forwarding counts for them too.
#include "tools/mdomain/foreign_mail.h"

#include <algorithm>

#include "lib-domain/base/text.h"
#include "lib-domain/document/words.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/eai.h"
#include "platform/include/postfix_map.h"
#include "platform/include/text.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::DOCUMENT::SiteDomain;
using MDOMAIN::DOCUMENT::SiteEntry;
using MDOMAIN::DOCUMENT::SiteUser;

constexpr int kMostSteps = 100;  // from alias to alias

// The local part, and the domain without its "@".
std::pair<std::string, std::string> Parts(const std::string& address) {
  const size_t at = address.rfind('@');
  return at == std::string::npos ? std::pair(address, std::string())
                                 : std::pair(address.substr(0, at), address.substr(at + 1));
}

struct Way {
  enum class State { kNew, kBegun, kUser, kEntry, kNobody };

  State state = State::kNew;
  std::string domain, local;         // as they are stored
  std::string account;               // of the mailbox of this address; empty without one
  std::vector<std::string> targets;  // as they were given; none: the mailbox alone
  std::string user;                  // kUser: the account that gets the mail
  SiteEntry entry;                   // kEntry
};

class SiteBuilder {
 public:
  SiteBuilder(ForeignMail& mail, const ImportChoice& choice) : mail_(mail), choice_(choice) {}

  Site Build() {
    for (const auto& [name, description] : mail_.domains) {
      AddDomain(name, description);
    }
    for (const auto& [name, domain] : mail_.names) {
      AddName(name, domain);
    }
    for (const ForeignMailbox& mailbox : mail_.mailboxes) {
      AddMailbox(mailbox);
    }
    RequireOwnAccounts();
    for (const ForeignAlias& alias : mail_.aliases) {
      AddAlias(alias);
    }
    for (auto& way : ways_) {
      Follow(way.first, 0);
      Store(way.second);
    }
    for (auto& domain : site_.domains) {
      for (auto& user : domain.second.users) {
        std::sort(user.second.aliases.begin(), user.second.aliases.end());
      }
    }
    ChoosePrimary();
    return std::move(site_);
  }

 private:
  void LeaveOut(const std::string& what, const std::string& why) {
    mail_.left_out.push_back(what + ": " + why);
  }

  // Its spelling for the document; empty, and said, where it is none.
  std::string CheckedDomain(const std::string& what, const std::string& name) {
    std::string stored = StorableName(name);
    if (!IsDomainName(stored)) {
      LeaveOut(what, "no valid domain name");
      return "";
    }
    if (domains_.count(AsciiForm(stored)) != 0) {
      LeaveOut(what, "the name stands there twice");
      return "";
    }
    return stored;
  }

  void AddDomain(const std::string& name, const std::string& description) {
    const std::string stored = CheckedDomain("domain " + name, name);
    if (stored.empty()) {
      return;
    }
    domains_[AsciiForm(stored)] = stored;
    SiteDomain& domain = site_.domains[stored];
    domain.pattern = "<a>";
    domain.description = description;
    const bool is_utf8 = korvmailserver::IsValidUtf8(description);
    if (!is_utf8 || Printable(description) != description) {
      domain.description.clear();
      LeaveOut("description of " + stored,
               is_utf8 ? "it holds line ends or other hidden characters"
                       : "it is not UTF-8: convert the dump with iconv, or make it in UTF-8");
    }
  }

  void AddName(const std::string& name, const std::string& of) {
    const auto domain = domains_.find(AsciiForm(of));
    if (domain == domains_.end() || site_.domains.count(domain->second) == 0 ||
        AsciiForm(domain->second) != AsciiForm(of)) {
      LeaveOut("name " + name, "its domain " + of + " is not taken over");
      return;
    }
    const std::string stored = CheckedDomain("name " + name, name);
    if (!stored.empty()) {
      domains_[AsciiForm(stored)] = domain->second;
      site_.domains[domain->second].names.insert(stored);
    }
  }

  // The stored name of a domain of ours, from any of its names; empty for another one.
  std::string OurDomain(const std::string& name) const {
    const auto known = domains_.find(AsciiForm(name));
    return known == domains_.end() ? "" : known->second;
  }

  // Under which an address is kept; empty where its domain is none of ours.
  std::string KeyOf(const std::string& address) const {
    const auto [local, domain] = Parts(address);
    const std::string ours = OurDomain(domain);
    return ours.empty() ? "" : korvmailserver::FoldMapKey(local) + "@" + ours;
  }

  // The place of an address of a mailbox or alias; null, and said, where it can have none.
  Way* Place(const std::string& what, const std::string& address) {
    const auto [local, domain] = Parts(address);
    const std::string ours = OurDomain(domain);
    if (ours.empty()) {
      LeaveOut(what, "its domain is not taken over");
    } else if (site_.domains.at(ours).names.count(StorableName(domain)) != 0) {
      LeaveOut(what, domain + " is another name of " + ours + ", and has no addresses of its own");
    } else if (local.empty()) {
      LeaveOut(what, "there is no address for all that nobody has");
    } else if (!MDOMAIN::UTILS::IsAccountAliasValid(local)) {
      LeaveOut(what, "\"" + local + "\" is no local part that can be stored");
    } else {
      Way& way = ways_[KeyOf(address)];
      way.domain = ours;
      way.local = way.local.empty() ? local : way.local;
      return &way;
    }
    return nullptr;
  }

  void AddMailbox(const ForeignMailbox& mailbox) {
    const std::string what = "mailbox " + mailbox.address;
    if (mailbox.account.empty() || !korvmailserver::IsValidUtf8(mailbox.account) ||
        Printable(mailbox.account) != mailbox.account) {
      LeaveOut(what, "no account can have the name \"" + mailbox.account + "\"");
      return;
    }
    Way* way = Place(what, mailbox.address);
    if (way == nullptr) {
      return;
    }
    if (!way->account.empty()) {
      LeaveOut(what, "the address stands there twice");
      return;
    }
    way->account = mailbox.account;
    SiteUser& user = site_.domains.at(way->domain).users[mailbox.account];
    const bool is_admin = mail_.admins.erase({way->domain, KeyOf(mailbox.address)}) != 0;
    user.role = is_admin || user.role == "domain_admin" ? "domain_admin" : "normal";
    mailboxes_[mailbox.account].push_back(mailbox.address);
  }

  // The mail of two people must not become one person's by their names alone.
  void RequireOwnAccounts() const {
    std::vector<std::string> shared;
    for (const auto& [account, addresses] : mailboxes_) {
      if (addresses.size() > 1) {
        shared.push_back(account + " (" + FirstOf(addresses) + ")");
      }
    }
    if (!shared.empty() && !choice_.shares_accounts) {
      throw Failure(kRefused, "one account for several mailboxes: " + FirstOf(shared, "; ") +
                                  ". Next: name their accounts with --accounts or --account-form, "
                                  "or give --share-accounts where each is one person");
    }
  }

  void AddAlias(const ForeignAlias& alias) {
    const std::string what = "alias " + alias.address;
    Way* way = Place(what, alias.address);
    if (way == nullptr) {
      return;
    }
    if (!aliases_.insert(KeyOf(alias.address)).second) {
      LeaveOut(what, "the address stands there twice");
      return;
    }
    way->targets = alias.targets;
    if (alias.targets.empty()) {
      LeaveOut(what, "it leads nowhere");
    }
  }

  static std::string Address(const Way& way) { return way.local + "@" + way.domain; }

  // Why no mail can be sent to a target; empty where it can.
  static std::string Obstacle(const std::string& target) {
    const auto [local, domain] = Parts(target);
    if (target[0] == '|') {
      return "is a program";
    }
    if (target[0] == '/') {
      return "is a file";
    }
    if (target[0] == '\\') {
      return "passes the forwarding of a mailbox by";
    }
    if (target.rfind(":include:", 0) == 0) {
      return "is a list in a file";
    }
    return domain.empty() || !KORV::POSTARA_SERVER::IsValidEaiLocalPart(local, true) ||
                   !KORV::POSTARA_SERVER::IsValidEaiDomain(StorableName(domain))
               ? "is no address"
               : "";
  }

  // The way to which a target of ours leads, followed to its end; null where nobody has it.
  const Way* Next(const std::string& key, int steps) {
    for (const std::string& form : {key, WithoutExtension(key)}) {
      const auto way = ways_.find(form);
      if (way != ways_.end()) {
        Follow(form, steps + 1);
        return &way->second;
      }
    }
    return nullptr;
  }

  static std::string WithoutExtension(const std::string& key) {
    const size_t at = key.rfind('@');
    const size_t plus = key.find('+', 1);
    return plus < at ? key.substr(0, plus) + key.substr(at) : key;
  }

  void Follow(const std::string& key, int steps) {
    Way& way = ways_.at(key);
    if (way.state != Way::State::kNew) {
      return;
    }
    way.state = Way::State::kBegun;
    SiteEntry entry;
    std::string only_user;
    for (const std::string& target : way.targets) {
      AddTarget(key, target, steps, entry);
    }
    const bool leads_nowhere = entry.users.empty() && entry.addresses.empty();
    if (leads_nowhere && !way.account.empty()) {
      if (!way.targets.empty()) {
        LeaveOut("forwarding of " + Address(way),
                 "nothing of it is left, the mailbox gets the mail");
      }
      entry.users = {way.account};
    }
    if (entry.users.empty() && entry.addresses.empty()) {
      if (!way.targets.empty()) {
        LeaveOut("alias " + Address(way), "none of those it leads to is left");
      }
      way.state = Way::State::kNobody;
      return;
    }
    const bool is_user = entry.users.size() == 1 && entry.addresses.empty() &&
                         site_.domains.at(way.domain).users.count(entry.users.front()) != 0 &&
                         (way.account.empty() || way.account == entry.users.front());
    way.state = is_user ? Way::State::kUser : Way::State::kEntry;
    way.user = is_user ? entry.users.front() : "";
    way.entry = std::move(entry);
  }

  void AddTarget(const std::string& key, const std::string& target, int steps, SiteEntry& entry) {
    const Way& way = ways_.at(key);
    const std::string what = "\"" + target + "\" of alias " + Address(way);
    const std::string obstacle = Obstacle(target);
    if (!obstacle.empty()) {
      LeaveOut(what, "it " + obstacle);
      return;
    }
    const std::string next_key = KeyOf(target);
    if (next_key.empty()) {
      const auto [local, domain] = Parts(target);
      AddOnce(local + "@" + StorableName(domain), entry.addresses);
      return;
    }
    if (next_key == key && !way.account.empty()) {
      AddOnce(way.account, entry.users);
      return;
    }
    if (steps >= kMostSteps) {
      LeaveOut(what, "it leads on over too many addresses");
      return;
    }
    const Way* next = Next(next_key, steps);
    if (next == nullptr || next->state == Way::State::kNobody) {
      LeaveOut(what, "nobody has this address");
    } else if (next->state == Way::State::kBegun) {
      LeaveOut(what, "it leads back to where it comes from");
    } else if (next->state == Way::State::kUser) {
      AddOnce(next->user, entry.users);
    } else {
      AddOnce(Address(*next), entry.addresses);
    }
  }

  static void AddOnce(const std::string& text, std::vector<std::string>& list) {
    if (std::find(list.begin(), list.end(), text) == list.end()) {
      list.push_back(text);
    }
  }

  void Store(const Way& way) {
    SiteDomain& domain = site_.domains.at(way.domain);
    if (way.state == Way::State::kUser) {
      domain.users.at(way.user).aliases.push_back(way.local);
      return;
    }
    if (way.state == Way::State::kEntry) {
      domain.entries[way.local] = way.entry;
      if (!way.account.empty()) {
        domain.users.at(way.account).taken.push_back(way.local);
      }
    }
  }

  void ChoosePrimary() {
    if (site_.domains.empty()) {
      throw Failure(kRefused, "there is no domain that can be taken over");
    }
    const std::string primary =
        choice_.primary.empty() ? site_.domains.begin()->first : OurDomain(choice_.primary);
    if (primary.empty()) {
      throw Failure(kNotFound, "there is no domain \"" + choice_.primary + "\" to be primary");
    }
    site_.domains.at(primary).is_primary = true;
  }

  ForeignMail& mail_;
  const ImportChoice& choice_;
  Site site_;
  std::map<std::string, std::string> domains_;  // stored name by the ASCII form of any name
  std::map<std::string, Way> ways_;             // by key
  std::set<std::string> aliases_;               // keys of those that were added
  std::map<std::string, std::vector<std::string>> mailboxes_;  // addresses by account
};

}  // namespace

Site MakeForeignSite(ForeignMail& mail, const ImportChoice& choice) {
  Site site = SiteBuilder(mail, choice).Build();
  for (const auto& [domain, address] : mail.admins) {
    mail.left_out.push_back(MDOMAIN::BASE::Join(
        std::vector<std::string>{"administrator", address, "of", domain + ": no mailbox there"},
        " "));
  }
  return site;
}

}  // namespace mdomain
