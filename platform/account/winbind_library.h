// What is called of winbindd's client library, which only members of a Windows domain need.
#ifndef PLATFORM_ACCOUNT_WINBIND_LIBRARY_H
#define PLATFORM_ACCOUNT_WINBIND_LIBRARY_H

#include <grp.h>
#include <pwd.h>

#include <cstdint>
#include <ctime>

extern "C" {
#include <wbclient.h>
}

#include "platform/include/late_library.h"

namespace korvmailserver::account::winbind {

inline const LateLibrary winbind_library(MDOMAIN_WBCLIENT_FILE);

MDOMAIN_LATE_FUNCTION(winbind_library, wbcCheckTrustCredentials);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcErrorString);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcFreeMemory);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcGetgrgid);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcGetgrnam);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcGetpwnam);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcGetpwuid);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcInterfaceDetails);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcListGroups);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcListUsers);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcLookupName);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcLookupUserSids);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcPingDc);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcSidToStringBuf);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcSidsToUnixIds);
MDOMAIN_LATE_FUNCTION(winbind_library, wbcUnixIdsToSids);

}  // namespace korvmailserver::account::winbind

#endif  // PLATFORM_ACCOUNT_WINBIND_LIBRARY_H
