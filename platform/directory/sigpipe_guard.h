// Keeps a write to a connection that the other side has closed from ending the process: the LDAP
// library writes to its sockets without asking for that.
#ifndef PLATFORM_DIRECTORY_SIGPIPE_GUARD_H
#define PLATFORM_DIRECTORY_SIGPIPE_GUARD_H

#include <csignal>
#include <ctime>

namespace korvmailserver::directory {

class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~SigpipeGuard() {
    const timespec now = {0, 0};
    while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &now) == SIGPIPE) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

 private:
  sigset_t pipe_ = {};
  sigset_t before_ = {};
  bool was_pending_ = false;
};

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_SIGPIPE_GUARD_H
