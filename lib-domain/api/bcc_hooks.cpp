#include "lib-domain/control/policy_hooks.h"

namespace MDOMAIN::CONTROL::INTERNAL {

BccOutcome DeleteDomainBcc(int /*domain_idx*/) {
  return BccOutcome::kDone;
}

BccOutcome DeleteUsersBcc(int /*domain_idx*/, const std::vector<std::string>& /*names*/) {
  return BccOutcome::kDone;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
