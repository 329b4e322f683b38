// Two checks of text that comes from outside.
#ifndef PLATFORM_DIRECTORY_UTF8_H
#define PLATFORM_DIRECTORY_UTF8_H

#include <unistr.h>

#include <algorithm>
#include <string_view>

namespace korvmailserver::directory {

inline bool IsUtf8(std::string_view text) {
  return u8_check(reinterpret_cast<const uint8_t*>(text.data()), text.size()) == nullptr;
}

// ASCII control characters, the zero byte included.
inline bool HasControlByte(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_UTF8_H
