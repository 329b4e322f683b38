// What is called of ICU, whose data are large: only texts beyond ASCII need it.
#ifndef TOOLS_MDOMAIN_ICU_LIBRARY_H
#define TOOLS_MDOMAIN_ICU_LIBRARY_H

#include <unicode/uchar.h>
#include <unicode/uspoof.h>

#include "platform/include/late_library.h"

namespace mdomain {

inline const korvmailserver::LateLibrary icu_library(MDOMAIN_ICU_FILE);

MDOMAIN_LATE_FUNCTION(icu_library, u_getCombiningClass);
MDOMAIN_LATE_FUNCTION(icu_library, uspoof_getSkeletonUTF8);
MDOMAIN_LATE_FUNCTION(icu_library, uspoof_open);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_ICU_LIBRARY_H
