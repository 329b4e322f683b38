// Characters and their widths are libunistring's, as in the library.
#include "tools/mdomain/text.h"

#include <unistr.h>
#include <uniwidth.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "lib-domain/base/sentence.h"
#include "platform/include/text.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

bool IsPlainAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

const uint8_t* Bytes(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

// A folder and what is shown in its place.
std::pair<std::string, std::string>& Replacement() {
  static std::pair<std::string, std::string> replacement;
  return replacement;
}

}  // namespace

void RequirePlainText(const std::string& what, const std::string& value) {
  if (!korvmailserver::IsValidUtf8(value)) {
    throw Failure(kRefused, what + " \"" + Printable(value) + "\" is not valid UTF-8");
  }
  if (Printable(value) != value) {
    throw Failure(kRefused,
                  what + " \"" + Printable(value) + "\" holds control characters or hidden ones");
  }
}

void ShowInPlaceOf(const std::string& folder, const std::string& shown) {
  Replacement() = {folder, shown};
}

std::string AsShown(std::string text) {
  const auto& [folder, shown] = Replacement();
  for (size_t at = 0; !folder.empty() && (at = text.find(folder, at)) != text.npos;) {
    text.replace(at, folder.size(), shown);
    at += shown.size();
  }
  return text;
}

std::string Printable(const std::string& text) {
  const std::string shown = AsShown(text);
  return IsPlainAscii(shown) ? shown : korvmailserver::VisibleText(shown);
}

void ForEachCharacter(const std::string& text,
                      const std::function<void(char32_t, size_t, size_t)>& use) {
  for (size_t at = 0; at < text.size();) {
    ucs4_t character = 0xFFFD;
    int length = u8_mbtoucr(&character, Bytes(text) + at, text.size() - at);
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

int Width(const std::string& text) {
  return IsPlainAscii(text) ? static_cast<int>(text.size())
                            : u8_width(Bytes(text), text.size(), "UTF-8");
}

std::string FirstOf(const std::vector<std::string>& texts, const std::string& separator) {
  return MDOMAIN::BASE::FirstOf(texts, separator);
}

std::string Counted(size_t count, const std::string& noun) {
  return MDOMAIN::BASE::Counted(count, noun);
}

}  // namespace mdomain
