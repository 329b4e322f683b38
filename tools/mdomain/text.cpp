// Characters and their widths are libunistring's, as in the library.
#include "tools/mdomain/text.h"

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
