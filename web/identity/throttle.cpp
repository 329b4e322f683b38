#include "web/identity/throttle.h"

#include <algorithm>

namespace mdomain_web {

namespace {

using std::chrono::seconds;

constexpr int kFree = 5;
constexpr seconds kLongest{15 * 60};
constexpr seconds kForgotten{60 * 60};
constexpr std::size_t kMost = 100'000;  // more are forgotten, the oldest first

seconds Pause(int failures) {
  return failures < kFree ? seconds(0)
                          : std::min(kLongest, seconds(1LL << std::min(failures - kFree, 20)));
}

std::string OfName(const std::string& name) {
  return "n" + name;
}
std::string OfAddress(const std::string& address) {
  return "a" + address;
}

}  // namespace

seconds Throttle::ToWait(const std::string& name, const std::string& address,
                         Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  seconds longest{0};
  for (const std::string& key : {OfName(name), OfAddress(address)}) {
    const auto at = tries_.find(key);
    if (at != tries_.end() && now - at->second.last < kForgotten) {
      const auto left = at->second.last + Pause(at->second.failures) - now;
      longest = std::max(longest, std::chrono::ceil<seconds>(left));
    }
  }
  return longest;
}

void Throttle::Failed(const std::string& name, const std::string& address, Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  _Count(OfName(name), now);
  _Count(OfAddress(address), now);
}

void Throttle::Succeeded(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  tries_.erase(OfName(name));
}

void Throttle::_Count(const std::string& key, Clock::time_point now) {
  if (tries_.size() >= kMost) {
    for (auto at = tries_.begin(); at != tries_.end();) {
      at = now - at->second.last >= kForgotten ? tries_.erase(at) : std::next(at);
    }
  }
  if (tries_.size() >= kMost) {
    tries_.erase(std::min_element(
        tries_.begin(), tries_.end(),
        [](const auto& one, const auto& other) { return one.second.last < other.second.last; }));
  }
  Tries& tries = tries_[key];
  tries.failures = now - tries.last >= kForgotten ? 1 : tries.failures + 1;
  tries.last = now;
}

}  // namespace mdomain_web
