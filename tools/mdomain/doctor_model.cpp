#include <list>
#include <set>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/db/special_address.h"
#include "lib-domain/sync/dead_end.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/reconcile.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/doctor.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::Statement;

// With a role of their own or of a group, and without an alias that is theirs.
constexpr char kWithoutAddress[] =
    "SELECT domain_idx, user_name FROM (SELECT domain_idx, uid FROM domain_user_role_table"
    " UNION SELECT domain_idx, uid FROM domain_group_effected_user_view) JOIN user_table USING(uid)"
    " EXCEPT SELECT domain_idx, user_name FROM domain_user_alias_table JOIN user_table USING(uid)"
    " WHERE NOT is_duplicated";

// "settings of domains" gives "settings-of-domains".
std::string IdOf(std::string name) {
  for (char& c : name) {
    c = c == ' ' ? '-' : c;
  }
  return name;
}

using Texts = std::set<std::string>;

Texts Elements(const std::string& joined) {
  Texts elements;
  for (size_t begin = 0; begin < joined.size();) {
    const size_t end = std::min(joined.find(", ", begin), joined.size());
    elements.insert(joined.substr(begin, end - begin));
    begin = end + 2;
  }
  return elements;
}

std::string Listed(const Texts& texts) {
  return texts.empty() ? "nothing" : FirstOf({texts.begin(), texts.end()});
}

// What the mail services read of the domains, by key.
std::map<std::string, Texts> WantedKeys(const Domains& domains) {
  std::map<std::string, Texts> wanted;
  for (const KnownDomain& domain : domains.all()) {
    const std::string idx = std::to_string(domain.idx);
    wanted["virtual_multiple_domain"].insert(idx + "/" + domain.name);
    wanted["additional_domain-" + idx] = {domain.additional_names.begin(),
                                          domain.additional_names.end()};
    if (domain.is_primary) {
      wanted["smtp_main_domain"].insert(domain.name);
    }
  }
  return wanted;
}

void CheckPublished(const Domains& domains, Findings& findings) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    findings.push_back({"key-store", true, "the key store cannot be read", "look at its messages"});
    return;
  }
  const auto tell = [&](const std::string& key, const std::string& has, const std::string& wanted) {
    findings.push_back(
        {"published", true,
         "the mail services read " + has + " in " + key + ", and the model has " + wanted,
         "mdomain publish"});
  };
  const std::map<std::string, Texts> wanted = WantedKeys(domains);
  for (const auto& [key, texts] : wanted) {
    const Texts published = Elements(values[key]);
    if (published != texts) {
      tell(key, Listed(published), Listed(texts));
    }
  }
  for (const auto& [key, value] : values) {
    if (key.rfind("additional_domain-", 0) == 0 && wanted.count(key) == 0 && !value.empty()) {
      tell(key, value, "no such domain");
    }
  }
  // The model itself, for programs that open it.
  for (const char* key : {"mailserver_domain_db", "mdomain_model"}) {
    if (values[key].empty()) {
      tell(key, "nothing", "a file");
    }
  }
}

void CheckPostmasters(const Domains& domains, Findings& findings) {
  MDOMAIN::UTILS::MailTarget target;
  MDOMAIN::DB::INTERNAL::SpecialAddresses addresses;
  if (!target.Read() || !MDOMAIN::UTILS::CollectSpecialAddresses(target, addresses)) {
    findings.push_back(
        {"postmaster", true, "who is postmaster cannot be told", "look at the messages"});
    return;
  }
  for (const KnownDomain& domain : domains.all()) {
    const auto found = addresses.find({domain.idx, "postmaster"});
    std::string owner;
    MDOMAIN::API::DomainUser().GetAliasUser(domain.idx, "postmaster", owner);
    if (owner.empty() && (found == addresses.end() || found->second.addresses.empty())) {
      findings.push_back({"postmaster", false, "nobody gets the mail for postmaster@" + domain.name,
                          "mdomain user set " + domain.name +
                              " USER --role domain_admin, or mdomain config set postmaster NAME"});
    }
  }
}

void CheckCopies(const Domains& domains, Findings& findings) {
  BCC* bcc = BCC::getInstance();
  std::list<BccInfo> all;
  if (bcc == nullptr || bcc->getSystemAllBCCList(all) < 0) {
    findings.push_back(
        {"copies", true, "the rules of blind copies cannot be read", "look at the messages"});
    return;
  }
  for (const KnownDomain& domain : domains.all()) {
    std::vector<std::string> warnings;
    for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
      std::list<BccInfo> rules;
      bcc->LoadBCCList(type, domain.idx, 0, -1, "name", "asc", rules);
      BCC::CheckDestinations(domain.idx, rules, warnings);
    }
    for (const std::string& warning : warnings) {
      findings.push_back({"copies", false, "domain " + domain.Title() + ": " + warning,
                          "mdomain bcc remove, or give the address to somebody"});
    }
  }
}

void CheckDeadEnds(Findings& findings) {
  std::vector<MDOMAIN::UTILS::DeadEnd> dead_ends;
  if (!MDOMAIN::UTILS::ListDeadEnds(dead_ends)) {
    findings.push_back({"dead-end", true,
                        "where addresses with several members lead cannot be told",
                        "look at the messages"});
  }
  for (const auto& dead_end : dead_ends) {
    const std::string where = dead_end.receiver.empty() ? " has no member left"
                              : dead_end.is_loop
                                  ? " goes to " + dead_end.receiver + ", which leads back to it"
                                  : " goes to " + dead_end.receiver + ", which nobody has";
    findings.push_back({"dead-end", false, dead_end.address + where, "mdomain alias set"});
  }
}

void CheckAddresses(Findings& findings) {
  std::string path;
  if (!MDOMAIN::UTILS::GetUserGroupDomainConfigPath(path)) {
    return;
  }
  MDOMAIN::DB::INTERNAL::Reader reader(path);
  std::map<int, std::vector<std::string>> users;
  if (!reader.Open() || reader.Get() == nullptr ||
      !reader.ForEachRow(kWithoutAddress,
                         [&](const Statement& row) { users[row.Int(0)].push_back(row.Text(1)); })) {
    return;  // the check of the files tells it
  }
  for (const auto& [domain_idx, names] : users) {
    findings.push_back({"no-address", false,
                        "domain " + std::to_string(domain_idx) + ": " +
                            Counted(names.size(), "user") +
                            " without an address: " + FirstOf(names),
                        "mdomain user set " + std::to_string(domain_idx) + " " + names.front() +
                            " --add-alias ALIAS"});
  }
}

}  // namespace

void CheckReconciled(Findings& findings) {
  MDOMAIN::UTILS::ReconcileModel model;
  if (!MDOMAIN::UTILS::ReadReconcileModel(model)) {
    findings.push_back({"model", true, "the domains cannot be read", "look at the messages"});
    return;
  }
  if (model.are_settings_foreign) {
    findings.push_back({"foreign-settings", true,
                        "the settings under domain indexes are those of another model's domains",
                        "docs: directories, switching the account source"});
  }
  for (const auto& item : MDOMAIN::UTILS::ReconcileItems()) {
    MDOMAIN::UTILS::Differences differences;
    if (!item.list(model, differences)) {
      findings.push_back({IdOf(item.name), true, item.place + ": it cannot be told what differs",
                          "look at the messages"});
    }
    for (const std::string& difference : differences) {
      findings.push_back({IdOf(item.name), true, difference + " (" + item.place + ")", ""});
    }
  }
}

void CheckModel(Findings& findings) {
  MDOMAIN::UTILS::ModelStanding standing;
  if (MDOMAIN::UTILS::ReadModelStanding(standing) && (standing.IsLost() || standing.IsOther())) {
    findings.push_back({"lost-model", true, standing.Reason(),
                        "put the model file back from a backup or a folder kept-*"});
    return;
  }
  const Domains domains;
  if (domains.all().empty()) {
    findings.push_back({"no-domain", false, "there is no domain", "mdomain domain create NAME"});
    return;
  }
  CheckPublished(domains, findings);
  CheckAddresses(findings);
  CheckPostmasters(domains, findings);
  CheckDeadEnds(findings);
  CheckCopies(domains, findings);
}

}  // namespace mdomain
