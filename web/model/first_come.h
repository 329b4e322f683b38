// Requests that need the library, in the order in which they came, so that neither a lock nor a
// person who asks for much at once lets others wait: a lock gives no turns, and some would be
// overtaken again and again.
#ifndef MDOMAIN_WEB_MODEL_FIRST_COME_H
#define MDOMAIN_WEB_MODEL_FIRST_COME_H

#include <condition_variable>
#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <string>

namespace mdomain_web {

class FirstCome final {
 public:
  FirstCome() = default;

  // While it lives, its request is one of those that are answered.
  class Place {
   public:
    // Waits until all who came before have begun, but for those who have as many as one may have.
    // Throws CallFailed ("busy") when too many of this person wait.
    Place(FirstCome& of, const std::string& person);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

   private:
    FirstCome& of_;
    const std::string person_;
  };

 private:
  struct OfOne {
    std::size_t answered = 0;
    std::size_t waiting = 0;
  };
  struct Waiting {
    OfOne& person;
    bool begins = false;
    std::condition_variable called;
  };

  void _Call();

  std::mutex mutex_;
  std::size_t answered_ = 0;
  std::list<Waiting*> waiting_;
  std::map<std::string, OfOne> people_;  // with a request here
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_MODEL_FIRST_COME_H
