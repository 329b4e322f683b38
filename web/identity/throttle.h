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

  // Seconds to wait before the next try counts; 0 for none.
  std::chrono::seconds ToWait(const std::string& name, const std::string& address,
                              Clock::time_point now = Clock::now());
  void Failed(const std::string& name, const std::string& address,
              Clock::time_point now = Clock::now());
  // Of the address nothing is forgotten: its owner may know one password and try others.
  void Succeeded(const std::string& name);

 private:
  struct Tries {
    int failures = 0;
    Clock::time_point last;
  };

  void _Count(const std::string& key, Clock::time_point now);

  std::mutex mutex_;
  std::map<std::string, Tries> tries_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_THROTTLE_H
