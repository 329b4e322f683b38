#include "lib-domain/insight/doctor.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "lib-domain/sync/reconcile.h"

namespace MDOMAIN::INSIGHT {

namespace {

// A check that cannot go on is a finding as well, and the others go on.
void Look(const Check& check, Findings& findings) {
  try {
    check(findings);
  } catch (const std::exception& failure) {
    findings.push_back({"check", true, std::string("a check could not go on: ") + failure.what(),
                        "look at the messages"});
  }
}

void Complete(Findings& findings) {
  const std::vector<FindingKind> kinds = ListFindingKinds();
  for (Finding& finding : findings) {
    const auto kind = std::find_if(kinds.begin(), kinds.end(),
                                   [&](const FindingKind& each) { return each.id == finding.id; });
    if (kind == kinds.end()) {
      throw std::logic_error("the finding " + finding.id + " has no page: " + finding.text);
    }
    finding.repair = kind->repair;
    finding.page = "manual/when-something-is-wrong.md#" + finding.id;
    if (finding.cure.empty()) {
      finding.cure = "mdomain doctor --repair";
    }
  }
}

bool MirrorsAccounts(const korvmailserver::NodeStanding* standing) {
  return standing == nullptr || (standing->role != korvmailserver::NodeRole::kMember &&
                                 standing->role != korvmailserver::NodeRole::kReplaced);
}

}  // namespace

std::vector<FindingKind> ListFindingKinds() {
  std::vector<FindingKind> kinds = {
      {"account-source", ""},
      {"accounts", ""},
      {"check", ""},
      {"copies", ""},
      {"database", ""},
      {"dead-end", ""},
      {"disclaimer-list", ""},
      {"dkim", ""},
      {"flags", ""},
      {"foreign-settings", ""},
      {"history", ""},
      {"key-store", ""},
      {"leftovers", ""},
      {"lost-model", ""},
      {"model", ""},
      {"no-address", ""},
      {"no-domain", ""},
      {"node", "publishes what has not reached the other machines"},
      {"postmaster", ""},
      {"programs", ""},
      {"published", "publishes the model"},
      {"rights", ""},
      {"timer", ""},
      {"undo", ""},
      {"uncompiled", ""},
      {"version", "upgrades the file"},
  };
  for (const auto& item : UTILS::ReconcileItems()) {
    kinds.push_back({INTERNAL::IdOf(item.name), "makes it follow from the model"});
  }
  return kinds;
}

Findings LookAtAll(const Check& check_accounts) {
  korvmailserver::NodeStanding read;
  // With a shared store it asks a server: once.
  const korvmailserver::NodeStanding* standing =
      korvmailserver::ReadNodeStanding(read) ? &read : nullptr;
  Findings findings;
  Look(INTERNAL::CheckFiles, findings);
  if (INTERNAL::IsModelUsable(findings)) {
    Look(INTERNAL::CheckReconciled, findings);
    std::vector<KnownDomain> domains;
    const auto check_domains = [&](Findings& found) {
      if (!INTERNAL::CheckModelInForce(found)) {
        return;
      }
      domains = ListKnownDomains();
      if (domains.empty()) {
        found.push_back({"no-domain", false, "there is no domain", "mdomain domain create NAME"});
        return;
      }
      INTERNAL::CheckReceivers(domains, found);
    };
    Look(check_domains, findings);
    Look(
        [&](Findings& found) {
          domains = domains.empty() ? ListKnownDomains() : domains;
          if (!domains.empty()) {
            INTERNAL::CheckModelRules(found);
            INTERNAL::CheckPublications(domains, true, found);
          }
        },
        findings);
    if (check_accounts && MirrorsAccounts(standing)) {
      Look(check_accounts, findings);
    }
  }
  Look([&](Findings& found) { INTERNAL::CheckHost(standing, found); }, findings);
  Complete(findings);
  return findings;
}

Findings LookAtDomains(const std::vector<KnownDomain>& domains) {
  Findings findings;
  Look([&](Findings& found) { INTERNAL::CheckReceivers(domains, found); }, findings);
  Look([&](Findings& found) { INTERNAL::CheckPublications(domains, false, found); }, findings);
  Complete(findings);
  return findings;
}

Findings LookAtPublications() {
  Findings findings;
  Look(INTERNAL::CheckReconciled, findings);
  Look([](Findings& found) { INTERNAL::CheckPublications(ListKnownDomains(), true, found); },
       findings);
  Complete(findings);
  return findings;
}

}  // namespace MDOMAIN::INSIGHT
