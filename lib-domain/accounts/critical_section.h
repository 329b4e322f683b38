// Effective user and group id 0 for as long as it lives, around look-ups in a directory.
#ifndef LIB_DOMAIN_ACCOUNTS_CRITICAL_SECTION_H
#define LIB_DOMAIN_ACCOUNTS_CRITICAL_SECTION_H

#include <sys/types.h>

namespace MDOMAIN::UTILS::INTERNAL {

// The ids are the whole process's: two sections must never overlap, nor may anything else that
// depends on the ids run meanwhile. Real and saved ids stay as they are, and an id that is right
// already is not set. Entering and leaving is one line each in the system log, facility auth; when
// the ids cannot be raised that line is an error, errno is EPERM, and what follows runs with the
// ids that could be set.
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

 private:
  gid_t gid_;
  uid_t uid_;
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_CRITICAL_SECTION_H
