// The one place where a fixed path of the platform gets its prefix.
#ifndef PLATFORM_ROOT_PATH_H
#define PLATFORM_ROOT_PATH_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// The value of MDOMAIN_ROOT without trailing slashes, read with secure_getenv at each call; the
// empty string when it is unset, empty or "/".
MDOMAIN_EXPORT std::string RootPrefix();

// RootPrefix() followed by `absolute_path`, which starts with "/".
MDOMAIN_EXPORT std::string UnderRoot(const std::string& absolute_path);

}  // namespace korvmailserver

#endif  // PLATFORM_ROOT_PATH_H
