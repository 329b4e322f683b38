// The lock of changing programs, as a command takes it: it says what it waits for.
#ifndef TOOLS_MDOMAIN_LOCK_H
#define TOOLS_MDOMAIN_LOCK_H

#include "lib-domain/sync/change_lock.h"
#include "tools/mdomain/status.h"

namespace mdomain {

// The caller has not the rights to the lock file or its folder.
class CannotLock : public Failure {
 public:
  using Failure::Failure;
};

class ChangeLock {
 public:
  // Waits up to `timeout_seconds` for another program to end and says so on standard error, unless
  // `quiet`; throws a Failure when it has not ended by then, or when the file cannot be made or
  // opened.
  ChangeLock(int timeout_seconds, bool quiet);

 private:
  MDOMAIN::UTILS::ChangeLock lock_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOCK_H
