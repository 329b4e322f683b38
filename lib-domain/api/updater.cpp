#include "lib-domain/api/updater.h"

#include "lib-domain/api/trigger.h"
#include "lib-domain/base/error_code.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API {

bool Updater::_RunAndTrigger(bool (UTILS::Updater::*operation)()) {
  const korvmailserver::PublicationScope publication;
  try {
    return (this->*operation)() && INTERNAL::TriggerUpdater(*this, UTILS::ReconcileScope::kFull);
  } catch (const korvmailserver::LogException& exception) {
    error_code_ = BASE::ToApiError(exception.code);
    return false;
  }
}

bool Updater::Refresh() {
  return _RunAndTrigger(&UTILS::Updater::Refresh);
}

bool Updater::Trigger() {
  return INTERNAL::TriggerUpdater(*this, UTILS::ReconcileScope::kFull);
}

bool Updater::InitDBIfNotExists() {
  return _RunAndTrigger(&UTILS::Updater::InitDBIfNotExists);
}

}  // namespace MDOMAIN::API
