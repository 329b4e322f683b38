// For the sources of this project only; it is not installed.
#ifndef PLATFORM_DIGEST_H
#define PLATFORM_DIGEST_H

#include <string>
#include <string_view>

#include "platform/include/export.h"

namespace korvmailserver {

// SHA-256 (FIPS 180-4) of the bytes, in hexadecimal.
MDOMAIN_EXPORT std::string DigestOf(std::string_view bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_DIGEST_H
