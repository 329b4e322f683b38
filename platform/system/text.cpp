#include "platform/include/text.h"

#include <unictype.h>
#include <unistr.h>

#include <cstdint>
#include <cstdio>

namespace korvmailserver {

namespace {

bool IsShown(ucs4_t c) {
  return !IsHiddenCharacter(c) &&
         !uc_is_general_category_withtable(
             c, UC_CATEGORY_MASK_Cc | UC_CATEGORY_MASK_Zl | UC_CATEGORY_MASK_Zp);
}

std::string Number(const char* kind, int digits, unsigned number) {
  char text[16] = {};
  (void)std::snprintf(text, sizeof(text), "<%s%0*X>", kind, digits, number);
  return text;
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
  return u8_check(reinterpret_cast<const uint8_t*>(text.data()), text.size()) == nullptr;
}

std::string VisibleText(const std::string& text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  std::string visible;
  size_t length = 1;
  for (size_t at = 0; at < text.size(); at += length) {
    ucs4_t c = 0;
    const int read = u8_mbtoucr(&c, bytes + at, text.size() - at);
    length = read > 0 ? static_cast<size_t>(read) : 1;
    if (read <= 0) {
      visible += Number("0x", 2, bytes[at]);
    } else {
      visible += IsShown(c) ? text.substr(at, length) : Number("U+", 4, c);
    }
  }
  return visible;
}

}  // namespace korvmailserver
