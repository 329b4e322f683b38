// The time that one whole operation may take, however many answers it waits for.
#ifndef PLATFORM_SYSTEM_BUDGET_H
#define PLATFORM_SYSTEM_BUDGET_H

#include <chrono>
#include <cstddef>

namespace korvmailserver {

class Budget {
 public:
  explicit Budget(int seconds)
      : total_(std::chrono::seconds(seconds)), begin_(std::chrono::steady_clock::now()) {}

  // Large account systems may take longer: a second for every 50 accounts, several times what an
  // idle server needs. A server that answers nothing gets no more time.
  void ExtendFor(size_t accounts) { total_ += accounts * std::chrono::milliseconds(20); }

  // Zero when the time is up.
  std::chrono::milliseconds Left() const {
    using std::chrono::milliseconds;
    const auto used = std::chrono::steady_clock::now() - begin_;
    const auto left = std::chrono::duration_cast<milliseconds>(total_ - used);
    return left.count() > 0 ? left : milliseconds(0);
  }

  long seconds() const { return total_.count() / 1000; }

 private:
  std::chrono::milliseconds total_;
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_SYSTEM_BUDGET_H
