#include "lib-domain/control/policy_hooks.h"

namespace MDOMAIN::CONTROL::INTERNAL {

DisclaimerOutcome DeleteDomainDisclaimers(int /*domain_idx*/) { return DisclaimerOutcome::kDone; }

DisclaimerOutcome RemoveUsersFromDisclaimers(int /*domain_idx*/,
                                             const std::vector<unsigned int>& /*uids*/) {
  return DisclaimerOutcome::kDone;
}

DisclaimerOutcome RemoveGroupsFromDisclaimers(int /*domain_idx*/,
                                              const std::vector<unsigned int>& /*gids*/) {
  return DisclaimerOutcome::kDone;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
