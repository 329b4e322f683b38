// The clean-up of blind-copy rules when a domain or its users go.
//
// Works on the given domain, whatever domain the process-wide object was made for.
#include "lib-domain/api/bcc.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/account.h"
#include "platform/include/key_store.h"

namespace MDOMAIN::CONTROL::INTERNAL {

BccOutcome DeleteDomainBcc(int domain_idx) {
  BCC* bcc = BCC::getInstance(domain_idx);
  if (bcc == nullptr) {
    return BccOutcome::kNoInstance;
  }
  return bcc->deleteAllBCC(domain_idx) < 0 ? BccOutcome::kFailed : BccOutcome::kDone;
}

BccOutcome DeleteUsersBcc(int domain_idx, const std::vector<std::string>& names) {
  BCC* bcc = BCC::getInstance(domain_idx);
  if (bcc == nullptr) {
    return BccOutcome::kNoInstance;
  }
  std::list<std::string> destinations;
  for (const std::string& name : names) {
    destinations.push_back(name);
    // Accounts are mirrored under their full names, and rules name them by their short ones.
    const std::string short_name = TrimDomainName(name);
    if (short_name != name) {
      destinations.push_back(short_name);
    }
  }
  return bcc->deleteBCC(domain_idx, destinations) < 0 ? BccOutcome::kFailed : BccOutcome::kDone;
}

bool PublishBccFile(const std::string& path) {
  return KORV::POSTARA_SERVER::KORVMailNodeCluster::setFile(kBccFileKey, path) >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
