#include "tools/mdomain/time_text.h"

#include <ctime>

namespace mdomain {

std::string TimeText(long long seconds, Zone zone) {
  const auto time = static_cast<time_t>(seconds);
  const bool is_utc = zone == Zone::kUtc;
  struct tm parts {};
  if (seconds <= 0 || (is_utc ? gmtime_r(&time, &parts) : localtime_r(&time, &parts)) == nullptr) {
    return "";
  }
  char text[64] = {};
  (void)strftime(text, sizeof(text), is_utc ? "%Y-%m-%dT%H:%M:%SZ" : "%Y-%m-%dT%H:%M:%S%z", &parts);
  return text;
}

}  // namespace mdomain
