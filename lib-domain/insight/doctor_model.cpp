// What differs from the model, and what of it reaches nobody.
#include "lib-domain/insight/doctor.h"

#include <algorithm>
#include <list>
#include <map>
#include <set>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/base/sentence.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/db/special_address.h"
#include "lib-domain/insight/rule_name.h"
#include "lib-domain/sync/dead_end.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/reconcile.h"
#include "lib-domain/sync/special_address.h"

namespace MDOMAIN::INSIGHT::INTERNAL {

namespace {

using korvmailserver::Statement;

// Members of these domains, by a role of their own or of a group, without an alias that is theirs.
#define OF_DOMAINS " WHERE domain_idx IN (SELECT value FROM json_each('%s'))"
constexpr char kWithoutAddress[] =
    "SELECT member.domain_idx, user_name FROM (SELECT domain_idx, uid FROM "
    "domain_user_role_table" OF_DOMAINS
    " UNION SELECT domain_idx, uid FROM domain_group_effected_user_view" OF_DOMAINS
    ") AS member JOIN user_table USING(uid) WHERE NOT EXISTS (SELECT 1 FROM domain_user_alias_table"
    " AS own WHERE own.domain_idx = member.domain_idx AND own.uid = member.uid AND NOT"
    " own.is_duplicated) ORDER BY 1, 2";
#undef OF_DOMAINS
constexpr char kCopies[] = "SELECT domain_id, name, type, bcc_to FROM bcc_table ORDER BY 1, 3, 2";

std::string Filled(std::string sql, const std::string& list) {
  for (size_t at = 0; (at = sql.find("%s")) != std::string::npos;) {
    sql.replace(at, 2, list);
  }
  return sql;
}

bool IsAmong(const std::vector<KnownDomain>& domains, int idx) {
  return std::any_of(domains.begin(), domains.end(),
                     [idx](const KnownDomain& domain) { return domain.idx == idx; });
}

void CheckPostmasters(const std::vector<KnownDomain>& domains, Findings& findings) {
  UTILS::MailTarget target;
  DB::INTERNAL::SpecialAddresses addresses;
  if (!target.Read() || !UTILS::CollectSpecialAddresses(target, addresses)) {
    findings.push_back(
        {"postmaster", true, "who is postmaster cannot be told", "look at the messages"});
    return;
  }
  for (const KnownDomain& domain : domains) {
    const auto found = addresses.find({domain.idx, "postmaster"});
    if (found != addresses.end() && !found->second.addresses.empty()) {
      continue;
    }
    std::string owner;
    API::DomainUser().GetAliasUser(domain.idx, "postmaster", owner);
    if (owner.empty()) {
      findings.push_back({"postmaster", false, "nobody gets the mail for postmaster@" + domain.name,
                          "mdomain user set " + domain.name +
                              " USER --role domain_admin, or mdomain config set postmaster NAME",
                          domain.idx});
    }
  }
}

void CheckCopies(const std::vector<KnownDomain>& domains, Findings& findings) {
  std::map<int, std::list<BccInfo>> rules;
  DB::INTERNAL::Reader reader(PATHS::SettingsDb());
  if (!reader.Open() || !reader.ForEachRow(kCopies, [&](const Statement& row) {
        BccInfo rule;
        rule.name = row.Text(1);
        rule.type = row.Int(2);
        rule.bcc_to = row.Text(3);
        if (IsAmong(domains, row.Int(0))) {
          rules[row.Int(0)].push_back(rule);
        }
      })) {
    findings.push_back(
        {"copies", true, "the rules of blind copies cannot be read", "look at the messages"});
    return;
  }
  std::map<int, std::vector<std::string>> warnings;
  BCC::CheckAllDestinations(rules, warnings);
  for (const KnownDomain& domain : domains) {
    for (const std::string& warning : warnings[domain.idx]) {
      findings.push_back({"copies", false, "domain " + domain.Title() + ": " + warning,
                          "mdomain bcc remove, or give the address to somebody", domain.idx});
    }
  }
}

void CheckDeadEnds(const std::vector<KnownDomain>& domains, Findings& findings) {
  std::vector<UTILS::DeadEnd> dead_ends;
  if (!UTILS::ListDeadEnds(dead_ends)) {
    findings.push_back({"dead-end", true,
                        "where addresses with several members lead cannot be told",
                        "look at the messages"});
  }
  for (const auto& dead_end : dead_ends) {
    const auto domain = std::find_if(domains.begin(), domains.end(), [&](const KnownDomain& one) {
      return one.name == DomainPart(dead_end.address);
    });
    if (domain == domains.end()) {
      continue;
    }
    const std::string where = dead_end.receiver.empty() ? " has no member left"
                              : dead_end.is_loop
                                  ? " goes to " + dead_end.receiver + ", which leads back to it"
                                  : " goes to " + dead_end.receiver + ", which nobody has";
    findings.push_back(
        {"dead-end", false, dead_end.address + where, "mdomain alias set", domain->idx});
  }
}

void CheckAddresses(const std::vector<KnownDomain>& domains, Findings& findings) {
  std::vector<int> idxs;
  idxs.reserve(domains.size());
  for (const KnownDomain& domain : domains) {
    idxs.push_back(domain.idx);
  }
  struct Users {
    std::vector<std::string> first;
    size_t count = 0;
  };
  std::map<int, Users> users;
  BASE::Progress progress("looking for users without an address", 0);
  DB::INTERNAL::Reader reader(ModelPath());
  const std::string sql = Filled(kWithoutAddress, "[" + BASE::Join(idxs, ",") + "]");
  if (!reader.Open() || reader.Get() == nullptr ||
      !reader.ForEachRow(sql.c_str(), [&](const Statement& row) {
        progress.Step();
        Users& without = users[row.Int(0)];
        if (without.count++ < BASE::kFirst) {
          without.first.push_back(row.Text(1));
        }
      })) {
    return;  // the check of the files tells it
  }
  for (const auto& [domain_idx, without] : users) {
    findings.push_back({"no-address", false,
                        "domain " + std::to_string(domain_idx) + ": " +
                            BASE::Counted(without.count, "user") +
                            " without an address: " + BASE::FirstOf(without.first, without.count),
                        "mdomain user set " + std::to_string(domain_idx) + " " +
                            without.first.front() + " --add-alias ALIAS",
                        domain_idx});
  }
}

// "domain 2": "domain 2 (example.com)" for domains that are not there any more, where their names
// are still published.
std::map<std::string, std::string> NamesOfGone(const UTILS::ReconcileModel& model) {
  std::map<std::string, std::string> names;
  for (const auto& [idx, name] : PublishedDomains()) {
    if (!model.Has(idx)) {
      const std::string title = "domain " + std::to_string(idx);
      names[title] = std::string(title).append(" (").append(name).append(")");
    }
  }
  return names;
}

// The sentence with the name of the domain that it begins with.
std::string Named(const std::string& text, const std::map<std::string, std::string>& names) {
  for (const auto& [title, named] : names) {
    if (text.rfind(title + " ", 0) == 0) {
      return named + text.substr(title.size());
    }
  }
  return text;
}

}  // namespace

std::string IdOf(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

void CheckReconciled(Findings& findings) {
  UTILS::ReconcileModel model;
  if (!UTILS::ReadReconcileModel(model)) {
    findings.push_back({"model", true, "the domains cannot be read", "look at the messages"});
    return;
  }
  if (model.are_settings_foreign) {
    findings.push_back(
        {"foreign-settings", true,
         "the settings under domain indexes are those of another model's domains",
         "the manual's page on directories says how the account source is switched"});
  }
  const std::map<std::string, std::string> gone = NamesOfGone(model);
  for (const auto& item : UTILS::ReconcileItems()) {
    UTILS::Differences differences;
    if (!item.list(model, differences)) {
      findings.push_back({IdOf(item.name), true, item.place + ": it cannot be told what differs",
                          "look at the messages"});
    }
    for (const std::string& difference : differences) {
      findings.push_back(
          {IdOf(item.name), true, Named(difference, gone) + " (" + item.place + ")", ""});
    }
  }
}

bool CheckModelInForce(Findings& findings) {
  UTILS::ModelStanding standing;
  if (UTILS::ReadModelStanding(standing) && (standing.IsLost() || standing.IsOther())) {
    findings.push_back({"lost-model", true, standing.Reason(),
                        "put the model file back from a backup or a folder kept-*"});
    return false;
  }
  return true;
}

void CheckReceivers(const std::vector<KnownDomain>& domains, Findings& findings) {
  CheckAddresses(domains, findings);
  CheckFlags(domains, findings);
  CheckPostmasters(domains, findings);
  CheckDeadEnds(domains, findings);
  CheckCopies(domains, findings);
}

}  // namespace MDOMAIN::INSIGHT::INTERNAL
