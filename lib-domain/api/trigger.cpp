#include "lib-domain/api/trigger.h"

#include <map>
#include <memory>
#include <string>

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/sync/follow_addresses.h"
#include "platform/include/batch_scope.h"
#include "platform/include/key_store.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

using korvmailserver::KeyStoreView;

bool Publish(UTILS::Updater& updater) {
  if (!updater.Trigger() || !updater.IsPublished()) {
    LOG_ERROR("Failed to Trigger");
    return false;
  }
  return true;
}

bool PublishAndReconcile(UTILS::Updater& updater, UTILS::ReconcileScope scope) {
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

// Once for all changes of a scope.
void PublishAfterCommit(const UTILS::Updater& updater, UTILS::ReconcileScope scope) {
  static auto* waiting = new std::weak_ptr<bool>();  // gone when the scope failed
  if (scope == UTILS::ReconcileScope::kEachChange && !waiting->expired()) {
    return;
  }
  auto is_waiting = std::make_shared<bool>(true);
  *waiting = is_waiting;
  BatchScope::AfterCommit([is_waiting, later = updater, scope]() mutable {
    is_waiting.reset();
    PublishAndReconcile(later, scope);
  });
}

}  // namespace

bool TriggerUpdater(UTILS::ReconcileScope scope) {
  UTILS::Updater updater;
  return TriggerUpdater(updater, scope);
}

bool TriggerUpdater(UTILS::Updater& updater, UTILS::ReconcileScope scope) {
  if (BatchScope::IsAnyOpen()) {
    PublishAfterCommit(updater, scope);
    return true;
  }
  return PublishAndReconcile(updater, scope);
}

void FinishLeftovers() {
  BatchScope::AfterCommit([] { UTILS::Reconcile(UTILS::ReconcileScope::kEachChange); });
}

void BeginChange(unsigned int& error_code) {
  if (error_code == BASE::kApiErrorUnpublished) {
    error_code = 0;
  }
}

unsigned int& ErrorCodeOf(const char* facade) {
  static auto& codes = *new std::map<std::string, unsigned int>();
  return codes[facade];
}

bool PublishChange(unsigned int& error_code) {
  if (TriggerUpdater()) {
    return true;
  }
  error_code = BASE::kApiErrorUnpublished;
  return false;
}

}  // namespace MDOMAIN::API::INTERNAL
