#include "web/identity/visits.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "web/identity/secrets.h"

namespace mdomain_web {

namespace {

constexpr std::size_t kVisitsOfOne = 20;
constexpr std::chrono::seconds kFormerKeyCounts{30};

}  // namespace

std::string Visits::Begin(const Person& person) {
  std::string key = NewSecret();
  const auto now = Clock::now();
  const std::lock_guard<std::mutex> lock(mutex_);
  _Forget(now);
  std::vector<std::map<std::string, Standing>::iterator> own;
  for (auto at = visits_.begin(); at != visits_.end(); ++at) {
    if (at->second.visit.person.uid == person.uid) {
      own.push_back(at);
    }
  }
  if (own.size() >= kVisitsOfOne) {
    visits_.erase(*std::min_element(own.begin(), own.end(), [](auto one, auto other) {
      return one->second.seen < other->second.seen;
    }));
  }
  visits_[Digest(key)] = {{person, NewSecret(), ""}, now, now, now};
  return key;
}

std::optional<Visits::Found> Visits::Find(const std::string& key, Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto at = _At(key, now);
  if (at == visits_.end()) {
    return std::nullopt;
  }
  Standing& standing = at->second;
  standing.seen = now;
  Found found{standing.visit, key};
  // A request with the former key came late: its answer must not set the cookie back.
  if (at->first != Digest(key) || now - standing.key_since < ends_.new_key) {
    return found;
  }
  found.key = NewSecret();
  standing.key_since = now;
  former_[at->first] = {Digest(found.key), now + kFormerKeyCounts};
  visits_[Digest(found.key)] = std::move(standing);
  visits_.erase(at);
  return found;
}

void Visits::Notify(const std::string& key, const std::string& notice) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto at = _At(key, Clock::now());
  if (at != visits_.end()) {
    at->second.visit.notice = notice;
  }
}

std::string Visits::TakeNotice(const std::string& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto at = _At(key, Clock::now());
  return at == visits_.end() ? "" : std::exchange(at->second.visit.notice, "");
}

void Visits::End(const std::string& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto at = _At(key, Clock::now());
  if (at != visits_.end()) {
    visits_.erase(at);
  }
}

void Visits::EndAllOf(std::uint32_t uid) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto at = visits_.begin(); at != visits_.end();) {
    at = at->second.visit.person.uid == uid ? visits_.erase(at) : std::next(at);
  }
}

std::map<std::string, Visits::Standing>::iterator Visits::_At(const std::string& key,
                                                              Clock::time_point now) {
  const std::string digest = Digest(key);
  auto at = visits_.find(digest);
  if (at == visits_.end()) {
    const auto former = former_.find(digest);
    if (former == former_.end() || former->second.until < now) {
      return visits_.end();
    }
    at = visits_.find(former->second.key);
  }
  if (at != visits_.end() &&
      (now - at->second.seen > ends_.idle || now - at->second.began > ends_.whole)) {
    visits_.erase(at);
    return visits_.end();
  }
  return at;
}

void Visits::_Forget(Clock::time_point now) {
  for (auto at = visits_.begin(); at != visits_.end();) {
    const bool is_over = now - at->second.seen > ends_.idle || now - at->second.began > ends_.whole;
    at = is_over ? visits_.erase(at) : std::next(at);
  }
  for (auto at = former_.begin(); at != former_.end();) {
    at = at->second.until < now ? former_.erase(at) : std::next(at);
  }
}

}  // namespace mdomain_web
