#include "web/model/refresher.h"

#include <ctime>
#include <exception>

namespace mdomain_web {

namespace {

// No exception may leave a thread.
Json::Value AnswerOf(const Calls& calls) {
  Json::Value answer;
  try {
    return calls.Answer("refresh", Json::objectValue);
  } catch (const CallFailed& failed) {
    answer["error"] = failed.error;
  } catch (const std::exception& exception) {
    answer["error"] = ErrorOf("failed", exception.what());
  }
  return answer;
}

}  // namespace

Refresher::~Refresher() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

void Refresher::Start(const Calls& calls) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (state_.is_running) {
    return;
  }
  if (thread_.joinable()) {
    thread_.join();  // it has ended
  }
  thread_ = std::thread([this, calls] {
    Json::Value answer = AnswerOf(calls);
    const std::lock_guard<std::mutex> done(mutex_);
    state_ = {false, time(nullptr), std::move(answer)};
  });
  state_.is_running = true;
}

Refresher::State Refresher::Look() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return state_;
}

}  // namespace mdomain_web
