// Local parts of addresses: dot-strings of atext (RFC 5321 section 4.1.2), extended by non-ASCII
// characters (RFC 6531 section 3.3). Of these, RFC 5198 section 2 rules out the control characters
// and the line and paragraph separators and asks for NFC. Hidden characters, with which one address
// could pass for another, are refused too.
#include <unictype.h>
#include <uninorm.h>
#include <unistr.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/include/eai.h"
#include "platform/include/text.h"

namespace {

using korvmailserver::HasNonAscii;

constexpr size_t kMaxLocalPart = 64;
constexpr ucs4_t kFirstNonAscii = 0x80;

bool IsAtext(ucs4_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         (c != 0 && c < kFirstNonAscii &&
          std::strchr("!#$%&'*+-/=?^_`{|}~", static_cast<int>(c)) != nullptr);
}

bool IsAllowed(ucs4_t c) {
  if (c < kFirstNonAscii) {
    return c == '.' || IsAtext(c);
  }
  const uc_general_category_t banned = uc_general_category_or(
      UC_CONTROL, uc_general_category_or(UC_LINE_SEPARATOR, UC_PARAGRAPH_SEPARATOR));
  return !uc_is_general_category(c, banned) && !korvmailserver::IsHiddenCharacter(c);
}

const uint8_t* Bytes(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

// The allowed characters of `text` that are well-formed UTF-8, in order.
std::string Filter(const std::string& text) {
  std::string kept;
  size_t at = 0;
  while (at < text.size()) {
    ucs4_t c = 0;
    const int length = u8_mbtoucr(&c, Bytes(text) + at, text.size() - at);
    if (length > 0 && IsAllowed(c)) {
      kept.append(text, at, static_cast<size_t>(length));
    }
    at += length > 0 ? static_cast<size_t>(length) : 1;
  }
  return kept;
}

// Well-formed UTF-8 in NFC; ASCII text is its own. Without memory the text as it is.
std::string ToNfc(const std::string& text) {
  if (!HasNonAscii(text)) {
    return text;
  }
  size_t length = 0;
  const std::unique_ptr<uint8_t, void (*)(void*)> normal(
      u8_normalize(UNINORM_NFC, Bytes(text), text.size(), nullptr, &length), std::free);
  return normal == nullptr ? text
                           : std::string(reinterpret_cast<const char*>(normal.get()), length);
}

// Without leading, trailing and doubled dots.
std::string TrimDots(const std::string& text) {
  std::string kept;
  for (const char c : text) {
    if (c != '.' || (!kept.empty() && kept.back() != '.')) {
      kept += c;
    }
  }
  if (!kept.empty() && kept.back() == '.') {
    kept.pop_back();
  }
  return kept;
}

// A short cut to what the general way finds, without building a text: lists of rules and aliases
// are checked by the hundred thousand.
bool IsAsciiDotString(const std::string& text) {
  char before = '.';
  for (const char c : text) {
    const bool allowed = c == '.' ? before != '.' : IsAtext(static_cast<unsigned char>(c));
    if (!allowed) {
      return false;
    }
    before = c;
  }
  return before != '.';
}

}  // namespace

namespace KORV {
namespace POSTARA_SERVER {

bool IsValidEaiLocalPart(const std::string& local_part, bool allow_utf8) {
  if (local_part.empty() || local_part.size() > kMaxLocalPart) {
    return false;
  }
  if (!HasNonAscii(local_part)) {
    return IsAsciiDotString(local_part);
  }
  if (!allow_utf8) {
    return false;
  }
  return Filter(local_part) == local_part && TrimDots(local_part) == local_part &&
         ToNfc(local_part) == local_part;
}

// The first filter leaves well-formed text. NFC then turns a few characters into ASCII that is not
// atext (U+037E into ";"), so it is filtered once more; and where a character between a letter and
// its accent was taken out, they have become neighbours and want NFC again.
std::string StripInvalidEaiChars(const std::string& text) {
  return TrimDots(ToNfc(Filter(ToNfc(Filter(text)))));
}

}  // namespace POSTARA_SERVER
}  // namespace KORV
