// A root of its own with private copies of everything that a change would touch, so that the very
// same code shows what it would do.
#ifndef LIB_DOMAIN_HISTORY_TRIAL_H
#define LIB_DOMAIN_HISTORY_TRIAL_H

#include <memory>
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
  const std::string& Folder() const { return folder_; }

 private:
  bool _MakeFolder(std::string& error);

  std::string folder_;
  int held_ = -1;
};

// While one lives, this thread works in the copies of a trial: what the process has open of the
// root in force stays open beside them, untouched. In one thread at a time, which has no scope of
// the databases or the key store open.
class MDOMAIN_EXPORT WithinTrial {
 public:
  explicit WithinTrial(const Trial& trial);
  ~WithinTrial();
  WithinTrial(const WithinTrial&) = delete;
  WithinTrial& operator=(const WithinTrial&) = delete;

  // Whether a scope of this thread stands against it.
  static bool IsPossible();

 private:
  struct Places;

  std::unique_ptr<Places> places_;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_TRIAL_H
