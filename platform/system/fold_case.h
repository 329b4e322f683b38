// One spelling for names that differ in letter case only.
#ifndef PLATFORM_SYSTEM_FOLD_CASE_H
#define PLATFORM_SYSTEM_FOLD_CASE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace korvmailserver {

// Simple case folding of all of Unicode, in NFC; ASCII letters only where the bytes are not UTF-8.
std::string FoldCase(const std::string& name);

// Whether a look at eight bytes at a time tells that folding leaves the name as it is: it has no
// byte beyond ASCII and none from "@" to "_", where the big letters are.
inline bool IsSurelyFolded(std::string_view name) {
  uint64_t found = 0;
  for (size_t i = 0; i < name.size(); i += sizeof(found)) {
    uint64_t bytes = 0;
    std::memcpy(&bytes, name.data() + i, std::min(sizeof(bytes), name.size() - i));
    found |= (bytes & ~(bytes << 1) & 0x4040404040404040U) | (bytes & 0x8080808080808080U);
  }
  return found == 0;
}

}  // namespace korvmailserver

#endif  // PLATFORM_SYSTEM_FOLD_CASE_H
