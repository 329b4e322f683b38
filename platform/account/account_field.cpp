#include "platform/account/account_field.h"

#include <charconv>

#include "platform/include/account.h"
#include "platform/include/text.h"

namespace korvmailserver::account {

namespace {

constexpr size_t kMaxNameBytes = 255;
constexpr size_t kMaxIdDigits = 10;

}  // namespace

bool IsAccountName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxNameBytes && IsPlainText(name);
}

bool ParseId(std::string_view text, unsigned int& id) {
  unsigned int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.size() > kMaxIdDigits || error != std::errc() || stop != end ||
      value == KORV_UNKNOWN_ID) {
    return false;
  }
  id = value;
  return true;
}

}  // namespace korvmailserver::account
