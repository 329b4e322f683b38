#include "lib-domain/api/trigger.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

bool Publish() {
  if (!UTILS::Updater().Trigger()) {
    LOG_ERROR("Failed to Trigger");
    return false;
  }
  return true;
}

}  // namespace

bool TriggerUpdater(UTILS::ReconcileScope scope) {
  const bool is_published = Publish();
  switch (UTILS::Reconcile(scope)) {
    case UTILS::ReconcileResult::kNothingToDo:
      return is_published;
    case UTILS::ReconcileResult::kMended:
      return Publish();
    default:
      Publish();  // what the other items mended
      LOG_ERROR("Failed to Reconcile");
      return false;
  }
}

void FinishLeftovers() {
  UTILS::Reconcile(UTILS::ReconcileScope::kEachChange);
}

}  // namespace MDOMAIN::API::INTERNAL
