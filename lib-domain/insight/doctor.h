// One look at everything that can be wrong with the domains. Checks read only.
#ifndef LIB_DOMAIN_INSIGHT_DOCTOR_H
#define LIB_DOMAIN_INSIGHT_DOCTOR_H

#include <functional>
#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/insight/reading.h"
#include "platform/include/export.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::INSIGHT {

using mdomain::Finding;
using Findings = std::vector<Finding>;

// A finding that there may be; docs/manual/when-something-is-wrong.md has them all.
struct FindingKind {
  std::string id;
  std::string repair;  // what a repair does about it; empty for nothing
};
MDOMAIN_EXPORT std::vector<FindingKind> ListFindingKinds();

using Check = std::function<void(Findings&)>;

// Everything, in the order in which it is told. `check_accounts` tells what a refresh would bring,
// where that can be told: it takes a refresh on copies. It runs on machines that mirror accounts
// alone; an empty one tells nothing.
MDOMAIN_EXPORT Findings LookAtAll(const Check& check_accounts);

// What is about one of these domains: users without an address, role addresses, entries, copies,
// disclaimers, keys, and what of them is published.
Findings LookAtDomains(const std::vector<KnownDomain>& domains);

// What mail services read and is not as the model of this host has it.
Findings LookAtPublications();

namespace INTERNAL {

// The files: whole, of a known version, owned and closed as they should be, nothing left over.
void CheckFiles(Findings& findings);
// What stands outside the model and follows from it.
void CheckReconciled(Findings& findings);
// Whether the model in force is the one whose domains are published.
bool CheckModelInForce(Findings& findings);
// What of these domains reaches nobody.
void CheckReceivers(const std::vector<KnownDomain>& domains, Findings& findings);
// Aliases that several want and that are not whose they should be.
void CheckFlags(const std::vector<KnownDomain>& domains, Findings& findings);
// What no domain may break.
void CheckModelRules(Findings& findings);
// What of these domains is published, their DKIM keys and disclaimers. `is_all`: there are no
// others.
void CheckPublications(const std::vector<KnownDomain>& domains, bool is_all, Findings& findings);
// Programs, maps, history, the part of this machine, the timer.
void CheckHost(const korvmailserver::NodeStanding* standing, Findings& findings);

// Whether the model file is there, of this program's version and can be named, so that looking at
// the model changes nothing. Adds the finding where it is not, but the one about a version, which
// CheckFiles has.
bool IsModelUsable(Findings& findings);
// The model file; empty where it cannot be named.
std::string ModelPath();
// The id of a finding of the reconcile item with that name: "settings of domains" gives
// "settings-of-domains".
std::string IdOf(std::string name);

}  // namespace INTERNAL

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_DOCTOR_H
