// Numbers and lists to and from text, independent of the locale.
#include "lib-domain/base/text.h"

#include <charconv>
#include <utility>

#include "platform/include/text.h"

namespace MDOMAIN::BASE {

namespace {

template <typename Number>
bool Convert(const std::string& text, Number& value) {
  Number parsed = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, parsed);
  if (result.ec != std::errc() || result.ptr != end) {
    return false;
  }
  value = parsed;
  return true;
}

template <typename Item, typename ToText>
std::string JoinWith(const std::vector<Item>& items, const std::string& separator, ToText to_text) {
  std::string joined;
  for (const Item& item : items) {
    if (&item != &items.front()) {
      joined += separator;
    }
    joined += to_text(item);
  }
  return joined;
}

}  // namespace

bool ConvertToInt(const std::string& text, int& value) {
  return Convert(text, value);
}

bool ConvertToUID(const std::string& text, unsigned int& uid) {
  return Convert(text, uid);
}

bool ConvertToGID(const std::string& text, unsigned int& gid) {
  return Convert(text, gid);
}

std::string Join(const std::vector<std::string>& items, const std::string& separator) {
  return JoinWith(items, separator, [](const std::string& item) { return item; });
}

std::string Join(const std::vector<int>& items, const std::string& separator) {
  return JoinWith(items, separator, [](int item) { return std::to_string(item); });
}

std::string Join(const std::vector<unsigned int>& items, const std::string& separator) {
  return JoinWith(items, separator, [](unsigned int item) { return std::to_string(item); });
}

std::string ToLowerAscii(std::string text) {
  return korvmailserver::ToLowerAscii(std::move(text));
}

bool EqualsIgnoreCase(const std::string& a, const std::string& b) {
  return korvmailserver::EqualsIgnoreAsciiCase(a, b);
}

}  // namespace MDOMAIN::BASE
