#include "platform/system/fold_case.h"

#include <unicase.h>

#include <algorithm>
#include <cstdlib>

namespace korvmailserver {

std::string FoldCase(const std::string& name) {
  const bool ascii = std::all_of(name.begin(), name.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  std::string folded = name;
  if (ascii) {
    for (char& c : folded) {
      c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return folded;
  }
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
