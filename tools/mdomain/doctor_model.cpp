#include <algorithm>
#include <list>
#include <map>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/db/special_address.h"
#include "lib-domain/sync/dead_end.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/reconcile.h"
#include "lib-domain/sync/special_address.h"
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
constexpr char kCopies[] = "SELECT domain_id, name, type, bcc_to FROM bcc_table ORDER BY 1, 3, 2";

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
    if (found != addresses.end() && !found->second.addresses.empty()) {
      continue;
    }
    std::string owner;
    MDOMAIN::API::DomainUser().GetAliasUser(domain.idx, "postmaster", owner);
    if (owner.empty()) {
      findings.push_back({"postmaster", false, "nobody gets the mail for postmaster@" + domain.name,
                          "mdomain user set " + domain.name +
                              " USER --role domain_admin, or mdomain config set postmaster NAME"});
    }
  }
}

void CheckCopies(const Domains& domains, Findings& findings) {
  std::map<int, std::list<BccInfo>> rules;
  MDOMAIN::DB::INTERNAL::Reader reader(MDOMAIN::PATHS::SettingsDb());
  if (!reader.Open() || !reader.ForEachRow(kCopies, [&](const Statement& row) {
        BccInfo rule;
        rule.name = row.Text(1);
        rule.type = row.Int(2);
        rule.bcc_to = row.Text(3);
        rules[row.Int(0)].push_back(rule);
      })) {
    findings.push_back(
        {"copies", true, "the rules of blind copies cannot be read", "look at the messages"});
    return;
  }
  for (const KnownDomain& domain : domains.all()) {
    std::vector<std::string> warnings;
    if (rules.count(domain.idx) != 0) {
      BCC::CheckDestinations(domain.idx, rules[domain.idx], warnings);
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

std::string IdOf(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

void CheckReconciled(Findings& findings) {
  MDOMAIN::UTILS::ReconcileModel model;
  if (!MDOMAIN::UTILS::ReadReconcileModel(model)) {
    findings.push_back({"model", true, "the domains cannot be read", "look at the messages"});
    return;
  }
  if (model.are_settings_foreign) {
    findings.push_back(
        {"foreign-settings", true,
         "the settings under domain indexes are those of another model's domains",
         "the manual's page on directories says how the account source is switched"});
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
  CheckAddresses(findings);
  CheckPostmasters(domains, findings);
  CheckDeadEnds(findings);
  CheckCopies(domains, findings);
}

}  // namespace mdomain
