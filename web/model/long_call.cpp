#include "web/model/long_call.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "web/model/calls.h"
#include "web/view/texts.h"

namespace mdomain_web {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kMoment(2);

// Never destroyed: threads may answer until the program ends.
struct Running {
  std::mutex mutex;
  std::condition_variable ended;
  std::string call;  // "" for none
  Clock::time_point since;
};

Running& TheRunning() {
  static auto& running = *new Running();
  return running;
}

bool IsOfModel(const std::string& call) {
  return call == "export" || call == "apply" || call == "together";
}

[[noreturn]] void RefuseFor(const std::string& call) {
  throw CallFailed(ErrorOf("busy",
                           call == "refresh" ? Tr("A refresh of the accounts is under way.")
                           : IsOfModel(call) ? Tr("A program reads or changes everything.")
                                             : Tr("Everything is being looked at."),
                           Tr("This page asks again by itself.")));
}

}  // namespace

LongCall::LongCall(const std::string& call)
    : is_long_(call == "refresh" || call == "repair" || call == "doctor" || IsOfModel(call)) {
  if (call == "refresh_progress") {
    return;
  }
  Running& running = TheRunning();
  std::unique_lock<std::mutex> lock(running.mutex);
  // Not a moment for each: a crowd that waits in order would be told one after the other.
  const Clock::time_point until = running.since + kMoment;
  if (!running.ended.wait_until(lock, until, [&running] { return running.call.empty(); })) {
    RefuseFor(running.call);
  }
  if (is_long_) {
    running.call = call;
    running.since = Clock::now();
  }
}

LongCall::~LongCall() {
  if (!is_long_) {
    return;
  }
  Running& running = TheRunning();
  const std::lock_guard<std::mutex> lock(running.mutex);
  running.call.clear();
  running.ended.notify_all();
}

}  // namespace mdomain_web
