#include "lib-domain/api/updater.h"

#include "lib-domain/api/trigger.h"
#include "lib-domain/base/error_code.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::API {

bool Updater::_RunAndTrigger(bool (UTILS::Updater::*operation)()) {
  const korvmailserver::PublicationScope publication;
  INTERNAL::BeginChange(error_code_);
  try {
    return (this->*operation)() && Trigger();
  } catch (const korvmailserver::LogException& exception) {
    error_code_ = BASE::ToApiError(exception.code);
    return false;
  }
}

bool Updater::Refresh() {
  return _RunAndTrigger(&UTILS::Updater::Refresh);
}

bool Updater::Trigger() {
  INTERNAL::BeginChange(error_code_);
  if (INTERNAL::TriggerUpdater(*this, UTILS::ReconcileScope::kFull)) {
    return true;
  }
  error_code_ = BASE::kApiErrorUnpublished;
  return false;
}

bool Updater::InitDBIfNotExists() {
  return _RunAndTrigger(&UTILS::Updater::InitDBIfNotExists);
}

}  // namespace MDOMAIN::API
