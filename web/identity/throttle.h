// How often somebody may try a password.
#ifndef MDOMAIN_WEB_IDENTITY_THROTTLE_H
#define MDOMAIN_WEB_IDENTITY_THROTTLE_H

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace mdomain_web {

// Counts failures of a name and of an address, each by itself. After five the next try waits a
// second, then two, four ... to at most 15 minutes; after an hour without one nothing is left.
// Nobody is locked out for longer, and whoever tries all names from one address waits, too.
class Throttle final {
 public:
  using Clock = std::chrono::steady_clock;

  // Seconds to wait before the next try; 0 begins one, which End must end. Tries that are under way
  // count as failures of the name, so that many at once are no more than many after each other.
  std::chrono::seconds Begin(const std::string& name, const std::string& address,
                             Clock::time_point now = Clock::now());
  enum class Outcome { kSucceeded, kFailed, kUnknown };
  // Of the address no success is remembered: its owner may know one password and try others.
  void End(const std::string& name, const std::string& address, Outcome outcome,
           Clock::time_point now = Clock::now());

 private:
  struct Tries {
    int failures = 0;
    int under_way = 0;
    Clock::time_point last;
  };

  std::chrono::seconds _ToWait(const std::string& key, bool counts_under_way,
                               Clock::time_point now) const;
  // Makes room for one more.
  Tries& _At(const std::string& key, Clock::time_point now);

  std::mutex mutex_;
  std::map<std::string, Tries> tries_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_THROTTLE_H
