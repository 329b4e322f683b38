#include "platform/system/fold_case.h"

#include <unicase.h>

#include <cstdlib>

#include "platform/include/text.h"

namespace korvmailserver {

std::string FoldCase(const std::string& name) {
  if (!HasNonAscii(name)) {
    return ToLowerAscii(name);
  }
  std::string folded = name;
  size_t length = 0;
  uint8_t* text = u8_casefold(reinterpret_cast<const uint8_t*>(name.data()), name.size(), nullptr,
                              UNINORM_NFC, nullptr, &length);
  if (text != nullptr) {
    folded.assign(reinterpret_cast<char*>(text), length);
    free(text);
  }
  return folded;
}

}  // namespace korvmailserver
