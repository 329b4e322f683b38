// The lock file that keeps two programs that change one root apart: runs of mdomain, and sessions.
//
// The described classes take no lock: an operation of theirs reads, decides and writes in several
// transactions, so two management programs at once could each undo what the other had just decided.
#ifndef LIB_DOMAIN_SYNC_CHANGE_LOCK_H
#define LIB_DOMAIN_SYNC_CHANGE_LOCK_H

#include <functional>
#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

class MDOMAIN_EXPORT ChangeLock {
 public:
  enum class Result {
    kHeld,
    kBusy,      // another program holds it still
    kNoRights,  // the caller has not the rights to the file or its folder
    kFailed,    // the file cannot be used
  };
  // Who holds it, " (process 4711)"; empty when that cannot be told.
  using Waiting = std::function<void(const std::string& holder)>;

  // Holds nothing yet.
  ChangeLock() = default;
  ~ChangeLock();
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;

  // Waits up to so many seconds for others to end, after calling `waiting` once. It is held until
  // the object or the process ends. Otherwise `error` is one sentence; for kBusy it is the holder.
  Result Take(int timeout_seconds, const Waiting& waiting, std::string& error);

 private:
  int fd_ = -1;
};

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_CHANGE_LOCK_H
