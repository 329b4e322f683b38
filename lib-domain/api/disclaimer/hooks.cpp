// The clean-up of disclaimers when a domain, users or groups go.
#include <json/value.h>

#include "lib-domain/api/mimedefang.h"
#include "lib-domain/control/policy_hooks.h"

namespace MDOMAIN::CONTROL::INTERNAL {

DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx) {
  MimeDefang mimedefang;
  if (mimedefang.LoadSettings() < 0) {
    return DisclaimerOutcome::kLoadFailed;
  }
  // It logs a failure itself. The domain is gone by now; whether the filter has to run must be
  // settled all the same.
  mimedefang.SetDisclaimerList(domain_idx, Json::Value(Json::arrayValue));
  return mimedefang.SaveSettings() < 0 ? DisclaimerOutcome::kSaveFailed : DisclaimerOutcome::kDone;
}

bool RemoveUsersFromDisclaimers(int domain_idx, const std::vector<unsigned int>& uids) {
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByUsers(domain_idx, uids) &&
         mimedefang.SaveSettings() >= 0;
}

bool RemoveGroupsFromDisclaimers(int domain_idx, const std::vector<unsigned int>& gids) {
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByGroups(domain_idx, gids) &&
         mimedefang.SaveSettings() >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
