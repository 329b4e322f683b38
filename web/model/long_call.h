// Calls that keep the library to themselves for long: while one runs, another call says so soon
// instead of waiting for its end.
#ifndef MDOMAIN_WEB_MODEL_LONG_CALL_H
#define MDOMAIN_WEB_MODEL_LONG_CALL_H

#include <string>

namespace mdomain_web {

// Within one thread; one of a call that takes no time does nothing.
class LongCall final {
 public:
  // Throws CallFailed ("busy") when another thread's has run for a moment and goes on.
  explicit LongCall(const std::string& call);
  ~LongCall();
  LongCall(const LongCall&) = delete;
  LongCall& operator=(const LongCall&) = delete;

 private:
  bool is_long_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_MODEL_LONG_CALL_H
