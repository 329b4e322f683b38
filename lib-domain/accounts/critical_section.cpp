// This trace goes to the system log itself, not to the mail log: who became root and when is read
// there. It names the unit whose look-ups it surrounds.
#include "lib-domain/accounts/critical_section.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

constexpr const char* kSource = "lib-domain/utils/default_alias_getter";

// The group first: once the user id is not 0 any more the group can no longer be changed.
bool Become(gid_t gid, uid_t uid) {
  const bool has_gid = getegid() == gid || setresgid(-1, gid, -1) == 0;
  const bool has_uid = geteuid() == uid || setresuid(-1, uid, -1) == 0;
  return has_gid && has_uid;
}

}  // namespace

CriticalSection::CriticalSection() : gid_(getegid()), uid_(geteuid()) {
  if (Become(0, 0)) {
    syslog(LOG_AUTH | LOG_INFO, "%s:%d ENTERCriticalSection", kSource, __LINE__);
  } else {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: ENTERCriticalSection", kSource, __LINE__);
    errno = EPERM;
  }
}

CriticalSection::~CriticalSection() {
  if (Become(gid_, uid_)) {
    syslog(LOG_AUTH | LOG_INFO, "%s:%d LEAVECriticalSection", kSource, __LINE__);
  } else {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: LEAVECriticalSection", kSource, __LINE__);
  }
}

}  // namespace MDOMAIN::UTILS::INTERNAL
