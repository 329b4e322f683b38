#include "lib-domain/api/trigger.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/sync/follow_addresses.h"
#include "platform/include/key_store.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

using korvmailserver::KeyStoreView;

bool Publish(UTILS::Updater& updater) {
  if (!updater.Trigger()) {
    LOG_ERROR("Failed to Trigger");
    return false;
  }
  return true;
}

}  // namespace

bool TriggerUpdater(UTILS::ReconcileScope scope) {
  UTILS::Updater updater;
  return TriggerUpdater(updater, scope);
}

bool TriggerUpdater(UTILS::Updater& updater, UTILS::ReconcileScope scope) {
  const korvmailserver::PublicationScope publication;
  // Before, so that it is published too. What fails here is found and told by Reconcile.
  UTILS::FollowAddresses();
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  const bool is_published = Publish(updater);
  switch (UTILS::Reconcile(scope)) {
    case UTILS::ReconcileResult::kNothingToDo:
      return is_published;
    case UTILS::ReconcileResult::kMended:
      // What follows from the published keys was looked at before these were.
      return Publish(updater) && UTILS::Reconcile(UTILS::ReconcileScope::kEachChange) !=
                                     UTILS::ReconcileResult::kFailed;
    default:
      Publish(updater);  // what the other items mended
      LOG_ERROR("Failed to Reconcile");
      return false;
  }
}

void FinishLeftovers() {
  UTILS::Reconcile(UTILS::ReconcileScope::kEachChange);
}

}  // namespace MDOMAIN::API::INTERNAL
