// A root of its own with private copies of everything that a change would touch, so that the very
// same code shows what it would do.
#ifndef LIB_DOMAIN_HISTORY_TRIAL_H
#define LIB_DOMAIN_HISTORY_TRIAL_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

// Accounts and host settings are those of the root in force; a directory is asked as always. What
// is made from the model (registry of owners, maps) is not there, and the shared key store is left
// alone. The folder lies below TMPDIR, is its maker's alone, and goes with the object.
class MDOMAIN_EXPORT Trial {
 public:
  Trial() = default;
  ~Trial();
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  // Copies, while nobody changes anything: the caller holds the lock of mdomain. What killed trials
  // left goes. False with `error` when something cannot be read or written, and in a program with
  // another account's rights, which does not let itself be sent to another root.
  bool Copy(std::string& error);
  // From now on this process works in the copies. For a process that has opened no database yet
  // and ends afterwards. False where they are not in force then: nothing may be done.
  bool Enter();

 private:
  bool _MakeFolder(std::string& error);

  std::string folder_;
  int held_ = -1;
  bool is_maker_ = false;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_TRIAL_H
