// Who is signed in: what stands behind the cookie of a browser. Visits live in this process and end
// with it.
#ifndef MDOMAIN_WEB_IDENTITY_VISITS_H
#define MDOMAIN_WEB_IDENTITY_VISITS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace mdomain_web {

struct Person {
  std::uint32_t uid = 0;
  std::string name;     // the full one, as the model has it
  std::string account;  // as the host names the account
  bool is_host_administrator = false;
};

struct Visit {
  Person person;
  std::string form_key;  // each form of the visit carries it
  std::string notice;    // is shown once
};

class Visits final {
 public:
  using Clock = std::chrono::steady_clock;

  struct Ends {
    std::chrono::seconds idle{30 * 60};
    std::chrono::seconds whole{12 * 60 * 60};
    std::chrono::seconds new_key{10 * 60};  // so often the cookie gets another value
  };

  explicit Visits(const Ends& ends) : ends_(ends) {}

  // The key, which the cookie carries. Who has more than 20 visits loses the one that rested
  // longest.
  std::string Begin(const Person& person);

  struct Found {
    Visit visit;      // without its notice, which Take gives
    std::string key;  // other than that given when the cookie must be set anew
  };
  // Counts as a sign of life. None for an unknown key, one that has ended or been given up.
  std::optional<Found> Find(const std::string& key, Clock::time_point now = Clock::now());
  void Notify(const std::string& key, const std::string& notice);
  std::string TakeNotice(const std::string& key);
  void End(const std::string& key);
  // All of a person: his rights may have changed.
  void EndAllOf(std::uint32_t uid);

 private:
  struct Standing {
    Visit visit;
    Clock::time_point began;
    Clock::time_point key_since;
    Clock::time_point seen;
  };
  struct Former {
    std::string key;
    Clock::time_point until;
  };

  // What is below asks for the mutex to be held.
  std::map<std::string, Standing>::iterator _At(const std::string& key, Clock::time_point now);
  void _Forget(Clock::time_point now);

  const Ends ends_;
  std::mutex mutex_;
  std::map<std::string, Standing> visits_;  // by the digest of the key
  // Keys that were given up a moment ago: requests that were under way with them still count.
  std::map<std::string, Former> former_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_VISITS_H
