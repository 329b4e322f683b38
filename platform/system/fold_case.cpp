#include "platform/system/fold_case.h"

#include <unicase.h>
#include <uninorm.h>
#include <unistr.h>

#include <cstdlib>

#include "platform/include/text.h"

namespace korvmailserver {

namespace {

// Simple folding: one character for one, as directories compare names. Full folding would take
// "Stra\u00DFe" for "strasse". The two Turkish letters without a partner stay as they are.
ucs4_t Fold(ucs4_t character) {
  constexpr ucs4_t kCapitalDottedI = 0x130;
  constexpr ucs4_t kSmallDotlessI = 0x131;
  const bool is_alone = character == kCapitalDottedI || character == kSmallDotlessI;
  return is_alone ? character : uc_tolower(uc_toupper(character));
}

std::string Composed(const std::string& text) {
  size_t length = 0;
  uint8_t* composed = u8_normalize(UNINORM_NFC, reinterpret_cast<const uint8_t*>(text.data()),
                                   text.size(), nullptr, &length);
  if (composed == nullptr) {
    return text;
  }
  std::string result(reinterpret_cast<char*>(composed), length);
  free(composed);
  return result;
}

}  // namespace

std::string FoldCase(const std::string& name) {
  if (!HasNonAscii(name) || !IsValidUtf8(name)) {
    return ToLowerAscii(name);
  }
  std::string folded;
  const auto* bytes = reinterpret_cast<const uint8_t*>(name.data());
  for (size_t i = 0; i < name.size();) {
    ucs4_t character = 0;
    i += static_cast<size_t>(u8_mbtouc(&character, bytes + i, name.size() - i));
    uint8_t encoded[6];
    const int length = u8_uctomb(encoded, Fold(character), sizeof(encoded));
    folded.append(reinterpret_cast<char*>(encoded), static_cast<size_t>(length));
  }
  return Composed(folded);
}

}  // namespace korvmailserver
