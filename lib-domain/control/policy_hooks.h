// What the controls have removed from the per-domain mail policies (BCC rules, disclaimers).
//
// The policies are built on the controls, so these functions are only declared here. They are
// defined in lib-domain/api/bcc/hooks.cpp and lib-domain/api/disclaimer/hooks.cpp. None of them
// logs for itself: the control that called does.
#ifndef LIB_DOMAIN_CONTROL_POLICY_HOOKS_H
#define LIB_DOMAIN_CONTROL_POLICY_HOOKS_H

#include <string>
#include <vector>

namespace MDOMAIN::CONTROL::INTERNAL {

enum class BccOutcome { kDone, kNoInstance, kFailed };
enum class DisclaimerOutcome { kDone, kLoadFailed, kSaveFailed };

// Removes every rule of the domain, and of no other.
BccOutcome DeleteDomainBcc(int domain_idx);
// Removes the domain's rules whose destination is one of `names`, ignoring case.
BccOutcome DeleteUsersBcc(int domain_idx, const std::vector<std::string>& names);

// The key under which other machines find the settings database with the BCC rules.
constexpr const char* kBccFileKey = "bcc_db";
// Publishes that file under it.
bool PublishBccFile(const std::string& path);

// Empties the domain's disclaimer list and saves the settings that follow from all lists. A list
// that cannot be emptied is logged where it fails and is no failure.
DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx);
// Removes the rules that name these users (groups) from the domain's disclaimers. False when the
// settings could not be loaded, changed or saved.
bool RemoveUsersFromDisclaimers(int domain_idx, const std::vector<unsigned int>& uids);
bool RemoveGroupsFromDisclaimers(int domain_idx, const std::vector<unsigned int>& gids);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_POLICY_HOOKS_H
