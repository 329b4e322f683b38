// The lock file that keeps two changing runs of mdomain on one root apart.
//
// The library itself takes no lock: an operation reads, decides and writes in several transactions,
// so two management programs at once could each undo what the other had just decided.
#ifndef TOOLS_MDOMAIN_LOCK_H
#define TOOLS_MDOMAIN_LOCK_H

#include "tools/mdomain/status.h"

namespace mdomain {

// The caller has not the rights to the lock file or its folder.
class CannotLock : public Failure {
 public:
  using Failure::Failure;
};

class ChangeLock {
 public:
  // Waits up to `timeout_seconds` for another run to end and says so on standard error, unless
  // `quiet`; throws a Failure when it has not ended by then, or when the file cannot be made or
  // opened.
  ChangeLock(int timeout_seconds, bool quiet);
  ~ChangeLock();
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;

 private:
  int fd_ = -1;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOCK_H
