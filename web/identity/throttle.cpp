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

seconds Throttle::Begin(const std::string& name, const std::string& address,
                        Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const seconds longest =
      std::max(_ToWait(OfName(name), true, now), _ToWait(OfAddress(address), false, now));
  if (longest.count() == 0) {
    ++_At(OfName(name), now).under_way;
  }
  return longest;
}

void Throttle::End(const std::string& name, const std::string& address, Outcome outcome,
                   Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto own = tries_.find(OfName(name));
  if (own != tries_.end()) {
    own->second.under_way = std::max(0, own->second.under_way - 1);
    if (own->second.under_way == 0 &&
        (outcome == Outcome::kSucceeded || own->second.failures == 0)) {
      tries_.erase(own);
    } else if (outcome == Outcome::kSucceeded) {
      own->second.failures = 0;
    }
  }
  if (outcome != Outcome::kFailed) {
    return;
  }
  for (const std::string& key : {OfName(name), OfAddress(address)}) {
    Tries& tries = _At(key, now);
    tries.failures = now - tries.last >= kForgotten ? 1 : tries.failures + 1;
    tries.last = now;
  }
}

seconds Throttle::_ToWait(const std::string& key, bool counts_under_way,
                          Clock::time_point now) const {
  const auto at = tries_.find(key);
  if (at == tries_.end()) {
    return seconds(0);
  }
  const Tries& tries = at->second;
  const int failures = now - tries.last < kForgotten ? tries.failures : 0;
  const auto left = tries.last + Pause(failures) - now;
  const seconds pause = failures < kFree ? seconds(0) : std::chrono::ceil<seconds>(left);
  const bool is_full =
      counts_under_way && tries.under_way > 0 && failures + tries.under_way >= kFree;
  return std::max({seconds(0), pause, seconds(is_full ? 1 : 0)});
}

Throttle::Tries& Throttle::_At(const std::string& key, Clock::time_point now) {
  if (tries_.size() >= kMost) {
    for (auto at = tries_.begin(); at != tries_.end();) {
      const bool is_idle = at->second.under_way == 0 && now - at->second.last >= kForgotten;
      at = is_idle ? tries_.erase(at) : std::next(at);
    }
  }
  if (tries_.size() >= kMost) {
    tries_.erase(std::min_element(
        tries_.begin(), tries_.end(),
        [](const auto& one, const auto& other) { return one.second.last < other.second.last; }));
  }
  return tries_[key];
}

}  // namespace mdomain_web
