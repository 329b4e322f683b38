#include "lib-domain/control/notice.h"

#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/notice.h"
#include "lib-domain/utils/domain_backend_related.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

bool Send(const std::vector<unsigned int>& uids) {
  return UTILS::_TouchSMTPChangedUIDsFlags(uids) && UTILS::_SetSMTPChangedUIDsToRedis(uids);
}

// Once for all announcements of a scope.
void SendAfterCommit() {
  static std::weak_ptr<bool> waiting;  // gone when the scope failed
  if (!waiting.expired()) {
    return;
  }
  const auto is_waiting = std::make_shared<bool>(true);
  waiting = is_waiting;
  BatchScope::AfterCommit([is_waiting] { SendNotices(); });
}

}  // namespace

bool Announce(const std::vector<unsigned int>& uids) {
  if (uids.empty()) {
    return true;
  }
  if (!DB::Notice().Add(uids)) {
    return UTILS::NotifySMTPChangedUIDs(uids);
  }
  SendAfterCommit();
  return true;
}

bool SendNotices() {
  // Whoever is recorded while this one sends is not forgotten with the others.
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  DB::Notice notices;
  std::vector<unsigned int> uids;
  if (!DB::INTERNAL::BeginWriting() || !notices.List(uids)) {
    return false;
  }
  if (uids.empty()) {
    return true;
  }
  if (!Send(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
    return false;
  }
  if (!notices.DeleteAll() || scope.Commit() != 0) {
    LOG_ERROR("Failed to forget the notice that was given");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
