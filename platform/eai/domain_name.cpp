// Domain names by libidn2, whose answers need checks of our own. It accepts empty labels and a
// trailing dot. Told to apply the STD 3 rules it does not refuse a character that they forbid but
// drops it ("a b.com" would pass as "ab.com"); not told so it lets some of them through (U+2260).
// So both ways must give the same name, and that name's letters, digits and hyphens are checked.
#include "platform/eai/domain_name.h"

#include <idn2.h>

#include <algorithm>
#include <memory>

#include "platform/include/text.h"

namespace korvmailserver::eai {

namespace {

constexpr int kFlags = IDN2_NONTRANSITIONAL | IDN2_NFC_INPUT;
constexpr size_t kMaxDomain = 253;
constexpr size_t kMaxLabel = 63;
// Longer input cannot shrink to a valid name in any sensible spelling; encoding a label takes time
// that grows with the square of its length.
constexpr size_t kMaxInput = 4096;

bool IsLower(char c) {
  return c >= 'a' && c <= 'z';
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// RFC 1123 section 2.1 and RFC 5891 section 4.2.3.1: hyphens neither at the ends nor, except in an
// A-label, in the third and fourth place.
bool IsLabel(const std::string& label) {
  if (label.empty() || label.size() > kMaxLabel || label.front() == '-' || label.back() == '-') {
    return false;
  }
  if (label.compare(2 < label.size() ? 2 : label.size(), 2, "--") == 0 &&
      label.compare(0, 2, "xn") != 0) {
    return false;
  }
  return std::all_of(label.begin(), label.end(),
                     [](char c) { return IsLower(c) || IsDigit(c) || c == '-'; });
}

// `name` is in lower case. An all-digit last label would be an IPv4 address to many programs.
bool IsAsciiDomain(const std::string& name) {
  if (name.size() > kMaxDomain) {
    return false;
  }
  size_t begin = 0;
  std::string label;
  while (begin <= name.size()) {
    const size_t end = std::min(name.find('.', begin), name.size());
    label = name.substr(begin, end - begin);
    if (!IsLabel(label)) {
      return false;
    }
    begin = end + 1;
  }
  return !std::all_of(label.begin(), label.end(), IsDigit);
}

std::optional<std::string> Encode(const std::string& text, int flags) {
  uint8_t* output = nullptr;
  if (idn2_lookup_u8(reinterpret_cast<const uint8_t*>(text.c_str()), &output, flags) != IDN2_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<uint8_t, void (*)(void*)> holder(output, idn2_free);
  return reinterpret_cast<const char*>(output);
}

std::optional<std::string> Decode(const std::string& ascii) {
  char* output = nullptr;
  if (idn2_to_unicode_8z8z(ascii.c_str(), &output, kFlags) != IDN2_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<char, void (*)(void*)> holder(output, idn2_free);
  return output;
}

}  // namespace

std::optional<DomainName> ParseDomain(const std::string& text) {
  if (text.empty() || text.size() > kMaxInput || text.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  const std::string lower = ToLowerAscii(text);
  if (!HasNonAscii(lower) && lower.find("xn--") == std::string::npos) {
    return IsAsciiDomain(lower) ? std::optional(DomainName{lower, lower}) : std::nullopt;
  }
  if (!IsValidUtf8(lower)) {
    return std::nullopt;
  }
  const std::optional<std::string> ascii = Encode(lower, kFlags);
  if (!ascii || !IsAsciiDomain(*ascii) ||
      Encode(lower, kFlags | IDN2_USE_STD3_ASCII_RULES) != ascii) {
    return std::nullopt;
  }
  const std::optional<std::string> unicode = Decode(*ascii);
  if (!unicode || Encode(*unicode, kFlags) != ascii) {
    return std::nullopt;
  }
  return DomainName{*ascii, *unicode};
}

}  // namespace korvmailserver::eai
