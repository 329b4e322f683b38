// What the controls ask of the disclaimers when a domain, users or groups leave.
#include <json/value.h>

#include "lib-domain/api/mimedefang.h"
#include "lib-domain/control/policy_hooks.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

template <typename Change>
DisclaimerOutcome ChangeDisclaimers(Change change) {
  MimeDefang mimedefang;
  if (mimedefang.LoadSettings() < 0) {
    return DisclaimerOutcome::kLoadFailed;
  }
  if (!change(mimedefang)) {
    return DisclaimerOutcome::kRemoveFailed;
  }
  return mimedefang.SaveSettings() < 0 ? DisclaimerOutcome::kSaveFailed : DisclaimerOutcome::kDone;
}

}  // namespace

DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx) {
  return ChangeDisclaimers([&](MimeDefang& mimedefang) {
    // A failure is logged there. The domain is gone by now, so what the filter does is settled all
    // the same.
    mimedefang.SetDisclaimerList(domain_idx, Json::Value(Json::arrayValue));
    return true;
  });
}

DisclaimerOutcome RemoveUsersFromDisclaimers(int domain_idx,
                                             const std::vector<unsigned int>& uids) {
  return ChangeDisclaimers(
      [&](MimeDefang& mimedefang) { return mimedefang.RemoveRulesByUsers(domain_idx, uids); });
}

DisclaimerOutcome RemoveGroupsFromDisclaimers(int domain_idx,
                                              const std::vector<unsigned int>& gids) {
  return ChangeDisclaimers(
      [&](MimeDefang& mimedefang) { return mimedefang.RemoveRulesByGroups(domain_idx, gids); });
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
