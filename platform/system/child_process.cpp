// Starting a program, reading its two outputs side by side, and ending it in time.
//
// Output and error output are polled together, so a program that fills the one while the reader
// waits for the other cannot block both.
#include "platform/system/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

namespace korvmailserver {

namespace {

constexpr size_t kMaxErrorText = 4096;
// How often a program is asked whether it has ended while its error output is still open.
constexpr int kTickMilliseconds = 20;

// A pipe whose ends the program does not inherit by themselves and that are not 0 to 2, which are
// free when the caller has closed its own: dup2 onto themselves would leave them close-on-exec.
bool MakePipe(Descriptor& reader, Descriptor& writer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  const Descriptor low_reader(ends[0]);
  const Descriptor low_writer(ends[1]);
  reader.Reset(fcntl(ends[0], F_DUPFD_CLOEXEC, 3));
  writer.Reset(fcntl(ends[1], F_DUPFD_CLOEXEC, 3));
  return reader.get() >= 0 && writer.get() >= 0;
}

ssize_t ReadSome(int fd, void* buffer, size_t size) {
  ssize_t count = 0;
  do {
    count = read(fd, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

int StatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

void Descriptor::Reset(int fd) {
  if (fd_ >= 0) {
    const int error = errno;
    close(fd_);
    errno = error;
  }
  fd_ = fd;
}

std::unique_ptr<ChildProcess> ChildProcess::Start(const char* path, const char* const argv[],
                                                  const Setting& setting) {
  std::unique_ptr<ChildProcess> child(new ChildProcess());
  Descriptor output_writer;
  Descriptor error_writer;
  Descriptor report_reader;
  Descriptor report_writer;
  if ((setting.output == Output::kRead && !MakePipe(child->output_, output_writer)) ||
      !MakePipe(child->errors_, error_writer) || !MakePipe(report_reader, report_writer)) {
    return nullptr;
  }
  child->has_deadline_ = setting.seconds > 0;
  child->deadline_ = std::chrono::steady_clock::now() + std::chrono::seconds(setting.seconds);
  child->pid_ = fork();
  if (child->pid_ == 0) {
    const int output =
        setting.output == Output::kWithErrors ? error_writer.get() : output_writer.get();
    child->Launch(path, argv, setting.environment,
                  {setting.input, output, error_writer.get(), report_writer.get()});
  }
  if (child->pid_ < 0) {
    return nullptr;
  }
  error_writer.Reset();
  report_writer.Reset();
  // Nothing comes when the program runs: its end of this pipe closed with execv.
  int error = 0;
  if (ReadSome(report_reader.get(), &error, sizeof(error)) > 0) {
    child.reset();
    errno = error;
  }
  return child;
}

// In the new process; only calls that are allowed between fork and exec. Does not return. The real
// ids become the effective ones, since programs drop or distrust effective ids that differ.
void ChildProcess::Launch(const char* path, const char* const argv[],
                          const char* const* environment, const Ends& ends) const {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  sigset_t none;
  sigemptyset(&none);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int high_null = fcntl(null, F_DUPFD_CLOEXEC, 3);
  if (high_null >= 0 && setpgid(0, 0) == 0 &&
      dup2(ends.input < 0 ? high_null : ends.input, STDIN_FILENO) >= 0 &&
      dup2(ends.output < 0 ? high_null : ends.output, STDOUT_FILENO) >= 0 &&
      dup2(ends.errors, STDERR_FILENO) >= 0 && sigprocmask(SIG_SETMASK, &none, nullptr) == 0 &&
      signal(SIGPIPE, SIG_DFL) != SIG_ERR && setresgid(gid, gid, gid) == 0 &&
      setresuid(uid, uid, uid) == 0) {
    execve(path, const_cast<char* const*>(argv),
           environment == nullptr ? environ : const_cast<char* const*>(environment));
  }
  const int error = errno;
  const ssize_t ignored = write(ends.report, &error, sizeof(error));
  static_cast<void>(ignored);
  _exit(127);
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    Kill();
    Finish();
  }
}

ssize_t ChildProcess::Read(char* buffer, size_t size) {
  while (!KillWhenLate()) {
    pollfd fds[] = {{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}};
    if (poll(fds, 2, RemainingMilliseconds()) < 0 && errno != EINTR) {
      return -1;
    }
    if (fds[1].revents != 0) {
      ReadErrors();
    }
    if (fds[0].revents != 0) {
      return ReadSome(output_.get(), buffer, size);
    }
  }
  errno = ETIMEDOUT;
  return -1;
}

int ChildProcess::Finish() {
  output_.Reset();  // a program that still writes ends by that
  int status = 0;
  pid_t ended = 0;
  while (ended == 0 || (ended < 0 && errno == EINTR)) {
    const bool wait = KillWhenLate() || (errors_.get() < 0 && !has_deadline_);
    ended = waitpid(pid_, &status, wait ? 0 : WNOHANG);
    if (ended == 0) {
      const int remaining = RemainingMilliseconds();
      WaitForErrors(remaining < 0 ? kTickMilliseconds : std::min(remaining, kTickMilliseconds));
    }
  }
  pid_ = -1;
  // What the program left in the pipe. Others may hold it open and write on, so only until enough.
  while (errors_.get() >= 0 && error_text_.size() < kMaxErrorText) {
    const size_t before = error_text_.size();
    WaitForErrors(0);
    if (error_text_.size() == before) {
      break;
    }
  }
  return ended < 0 ? -1 : StatusOf(status);
}

int ChildProcess::RemainingMilliseconds() const {
  if (!has_deadline_) {
    return -1;
  }
  const auto remaining =
      std::chrono::ceil<std::chrono::milliseconds>(deadline_ - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<int64_t>(remaining.count(), 0, 1000000));
}

// True once the deadline has passed, also for a program that writes without a pause.
bool ChildProcess::KillWhenLate() {
  if (!timed_out_ && RemainingMilliseconds() == 0) {
    timed_out_ = true;
    Kill();
  }
  return timed_out_;
}

// The group, so that what the program has started ends with it. The program may not have made its
// group yet, hence the second call.
void ChildProcess::Kill() const {
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);
}

void ChildProcess::ReadErrors() {
  char part[kMaxErrorText];
  const ssize_t count = ReadSome(errors_.get(), part, sizeof(part));
  if (count <= 0) {
    errors_.Reset();
    return;
  }
  error_text_.append(part,
                     std::min(static_cast<size_t>(count), kMaxErrorText - error_text_.size()));
}

void ChildProcess::WaitForErrors(int milliseconds) {
  pollfd fd = {errors_.get(), POLLIN, 0};
  if (poll(&fd, 1, milliseconds) > 0) {
    ReadErrors();
  }
}

}  // namespace korvmailserver
