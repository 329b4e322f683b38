// One refresh of the accounts at a time, in a thread of its own: nobody's browser waits for its
// end.
#ifndef MDOMAIN_WEB_MODEL_REFRESHER_H
#define MDOMAIN_WEB_MODEL_REFRESHER_H

#include <json/value.h>

#include <mutex>
#include <thread>

#include "web/model/calls.h"

namespace mdomain_web {

class Refresher final {
 public:
  Refresher() = default;
  // Waits for the end of the one that runs.
  ~Refresher();
  Refresher(const Refresher&) = delete;
  Refresher& operator=(const Refresher&) = delete;

  // Does nothing while one runs.
  void Start(const Calls& calls);

  struct State {
    bool is_running = false;
    long long ended = 0;  // seconds since 1970; 0: none has ended yet
    Json::Value answer;   // of the last that has ended: "value", "error"
  };
  State Look() const;

 private:
  mutable std::mutex mutex_;
  State state_;
  std::thread thread_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_MODEL_REFRESHER_H
