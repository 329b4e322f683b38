#include "lib-domain/api/trigger.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::API::INTERNAL {

bool TriggerUpdater() {
  if (!UTILS::Updater().Trigger()) {
    LOG_ERROR("Failed to Trigger");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::API::INTERNAL
