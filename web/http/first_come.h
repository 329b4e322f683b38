// Requests that need the library, in the order in which they came.
#ifndef MDOMAIN_WEB_HTTP_FIRST_COME_H
#define MDOMAIN_WEB_HTTP_FIRST_COME_H

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace mdomain_web {

// A lock gives no turns: of many who wait for one, some are overtaken again and again.
class FirstCome final {
 public:
  // While it lives, its request is one of the `most` that are answered; the constructor waits until
  // all who came before have begun.
  class Place {
   public:
    explicit Place(FirstCome& of) : of_(of) {
      std::unique_lock lock(of_.mutex_);
      const std::uint64_t number = of_.came_++;
      of_.has_place_.wait(lock, [&] { return number < of_.left_ + of_.most_; });
    }
    ~Place() {
      const std::lock_guard lock(of_.mutex_);
      ++of_.left_;
      of_.has_place_.notify_all();
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

   private:
    FirstCome& of_;
  };

  explicit FirstCome(std::uint64_t most) : most_(most) {}

 private:
  const std::uint64_t most_;
  std::mutex mutex_;
  std::condition_variable has_place_;
  std::uint64_t came_ = 0;
  std::uint64_t left_ = 0;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_HTTP_FIRST_COME_H
