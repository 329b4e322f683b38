#include "tools/mdomain/lock.h"

#include "tools/mdomain/notes.h"

namespace mdomain {

using Result = MDOMAIN::UTILS::ChangeLock::Result;

ChangeLock::ChangeLock(int timeout_seconds, bool quiet) {
  const auto tell = [quiet](const std::string& holder) {
    if (!quiet) {
      Note("waiting for another mdomain" + holder + " to finish");
    }
  };
  std::string error;
  switch (lock_.Take(timeout_seconds, tell, error)) {
    case Result::kHeld:
      return;
    case Result::kBusy:
      throw Failure(kFailed,
                    "another mdomain" + error + " is still at work after " +
                        std::to_string(timeout_seconds) + " seconds, nothing was changed",
                    "try again, or wait longer with --lock-timeout SECONDS");
    case Result::kNoRights:
      throw CannotLock(kFailed, error);
    case Result::kFailed:
      throw Failure(kFailed, error);
  }
}

}  // namespace mdomain
