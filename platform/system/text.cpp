#include "platform/include/text.h"

#include <unistr.h>

namespace korvmailserver {

bool IsValidUtf8(std::string_view text) {
  return u8_check(reinterpret_cast<const uint8_t*>(text.data()), text.size()) == nullptr;
}

}  // namespace korvmailserver
