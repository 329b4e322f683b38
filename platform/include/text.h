// Bytes of texts: ASCII letter case, control characters, UTF-8. No locale changes an answer; case
// beyond ASCII is FoldAccountName's (account.h).
#ifndef PLATFORM_TEXT_H
#define PLATFORM_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/include/export.h"

namespace korvmailserver {

inline char ToLowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// ASCII letters to lower case, other bytes unchanged.
inline std::string ToLowerAscii(std::string text) {
  for (char& c : text) {
    c = ToLowerAscii(c);
  }
  return text;
}

// Equal but for the case of ASCII letters, as SQLite's NOCASE compares.
inline bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return ToLowerAscii(x) == ToLowerAscii(y);
         });
}

inline bool HasNonAscii(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// ASCII's: below the blank, the zero byte too, and DEL.
inline bool IsControlCharacter(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}
// Looks at every byte, as the compiler can do with many at once.
inline bool HasControlCharacter(std::string_view text) {
  bool has_any = false;
  for (const char c : text) {
    has_any |= IsControlCharacter(c);
  }
  return has_any;
}

// Well-formed UTF-8 as a whole; the empty text is.
MDOMAIN_EXPORT bool IsValidUtf8(std::string_view text);

// Whether every byte is one from the blank to "~"; looks at eight at a time.
inline bool IsPrintableAscii(std::string_view text) {
  constexpr uint64_t kOnes = 0x0101010101010101U;
  uint64_t odd = 0;
  for (size_t i = 0; i < text.size(); i += sizeof(odd)) {
    uint64_t bytes = ' ' * kOnes;
    std::memcpy(&bytes, text.data() + i, std::min(sizeof(bytes), text.size() - i));
    const uint64_t low = ~(bytes | bytes << 1) & 0x40 * kOnes;  // neither 0x40 nor 0x20
    const uint64_t from_del = bytes ^ 0x7F * kOnes;             // a byte of 0 is DEL
    odd |= low | (bytes & 0x80 * kOnes) | ((from_del - kOnes) & ~from_del & 0x80 * kOnes);
  }
  return odd == 0;
}

// Well-formed UTF-8 without control characters.
inline bool IsPlainText(std::string_view text) {
  return IsPrintableAscii(text) || (IsValidUtf8(text) && !HasControlCharacter(text));
}

// A character that changes how the text around it looks without being seen itself: it turns the
// direction of writing, or has no width. Two names that differ by one look the same.
constexpr bool IsHiddenCharacter(char32_t c) {
  return c == 0x061C || c == 0x200B || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069) || c == 0xFEFF;
}
// The text as it can be shown on a terminal or in a log: control characters, line and paragraph
// separators and hidden characters become "<U+202E>", bytes that are not UTF-8 "<0xFF>".
MDOMAIN_EXPORT std::string VisibleText(const std::string& text);

}  // namespace korvmailserver

#endif  // PLATFORM_TEXT_H
