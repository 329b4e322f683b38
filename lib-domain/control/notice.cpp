#include "lib-domain/control/notice.h"

#include <memory>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/notice.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/utils/domain_backend_related.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

GivenNotice* current = nullptr;

bool Send(const std::vector<unsigned int>& uids) {
  if (!UTILS::_TouchSMTPChangedUIDsFlags(uids) || !UTILS::_SetSMTPChangedUIDsToRedis(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
    return false;
  }
  return true;
}

void LogUnforgotten() {
  LOG_ERROR("Failed to forget the notice that was given");
}

// Once for all announcements of a scope.
void SendAfterCommit() {
  static auto& waiting = *new std::weak_ptr<bool>();  // gone when the scope failed
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
  if (current != nullptr) {
    return current->_Send();
  }
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
    return false;
  }
  if (!notices.DeleteAll() || scope.Commit() != 0) {
    LogUnforgotten();
    return false;
  }
  return true;
}

GivenNotice::GivenNotice() : outer_(current) {
  current = this;
}

GivenNotice::~GivenNotice() {
  if (given_) {
    BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
    _Forget();
    if (scope.Commit() != 0) {
      LogUnforgotten();
    }
  }
  current = outer_;
  if (is_left_) {
    SendNotices();
  }
}

bool GivenNotice::ForgetWith(const std::function<bool()>& deletion) {
  if (current == nullptr || !current->given_) {
    return deletion();
  }
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  current->_Forget();
  if (!deletion()) {
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit what is done with those who left");
    return false;
  }
  return true;
}

// Without the lock that SendNotices holds while it sends: the model's version tells whether
// somebody else can have been recorded.
bool GivenNotice::_Send() {
  std::vector<unsigned int> uids;
  std::string version;
  {
    const DB::ReadScope of_one_moment;
    if (!DB::Notice().List(uids) || !DB::INTERNAL::GetDataVersion(version)) {
      return false;
    }
  }
  if (uids.empty()) {
    return true;
  }
  if (!Send(uids)) {
    return false;
  }
  given_ = version;
  return true;
}

// Within a BatchScope in which nothing was written.
void GivenNotice::_Forget() {
  const std::string given = *std::exchange(given_, std::nullopt);
  std::string now;
  const bool is_told = DB::INTERNAL::BeginWriting() && DB::INTERNAL::GetDataVersion(now);
  if (is_told && now != given) {
    is_left_ = true;
  } else if (!is_told || !DB::Notice().DeleteAll()) {
    LogUnforgotten();
  }
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
