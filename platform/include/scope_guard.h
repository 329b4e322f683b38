// Runs a function when a scope ends.
#ifndef PLATFORM_SCOPE_GUARD_H
#define PLATFORM_SCOPE_GUARD_H

#include <functional>
#include <utility>

namespace postara {

class ScopeGuard {
 public:
  explicit ScopeGuard(std::function<void()> on_exit) : on_exit_(std::move(on_exit)) {}
  ~ScopeGuard() {
    if (on_exit_) {
      on_exit_();
    }
  }
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;
  void Dismiss() { on_exit_ = nullptr; }

 private:
  std::function<void()> on_exit_;
};

}  // namespace postara

#endif  // PLATFORM_SCOPE_GUARD_H
