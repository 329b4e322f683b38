// Characters are libunistring's.
#include "lib-domain/base/characters.h"

#include <unistr.h>

#include <cstdint>

namespace MDOMAIN::BASE {

void ForEachCharacter(const std::string& text,
                      const std::function<void(char32_t, size_t, size_t)>& use) {
  for (size_t at = 0; at < text.size();) {
    ucs4_t character = 0xFFFD;
    int length = u8_mbtoucr(&character, reinterpret_cast<const uint8_t*>(text.data()) + at,
                            text.size() - at);
    if (length <= 0) {
      character = 0xFFFD;
      length = 1;
    }
    use(character, at, static_cast<size_t>(length));
    at += static_cast<size_t>(length);
  }
}

std::string ValidUtf8(const std::string& text) {
  std::string result;
  ForEachCharacter(text, [&](char32_t character, size_t at, size_t length) {
    const bool broken = length == 1 && character == 0xFFFD;
    result += broken ? "\xEF\xBF\xBD" : text.substr(at, length);
  });
  return result;
}

}  // namespace MDOMAIN::BASE
