// One running program: its output, what it wrote to its error output, its end. Internal to
// platform/system.
#ifndef PLATFORM_SYSTEM_CHILD_PROCESS_H
#define PLATFORM_SYSTEM_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

namespace korvmailserver {

// A file descriptor that closes itself; -1 when there is none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  void Reset(int fd = -1);

 private:
  int fd_;
};

class ChildProcess {
 public:
  // What becomes of the output: it is read, or thrown away, or is one with the error output.
  enum class Output { kRead, kDiscard, kWithErrors };

  struct Setting {
    Output output = Output::kRead;
    int seconds = 0;                           // until the deadline; 0: there is none
    int input = -1;                            // a descriptor to read from; -1: nothing to read
    const char* const* environment = nullptr;  // null: the caller's
  };

  // Starts a program with the caller's effective ids and a process group of its own. Null with
  // errno set, also when it cannot be executed.
  static std::unique_ptr<ChildProcess> Start(const char* path, const char* const argv[],
                                             const Setting& setting);
  ~ChildProcess();  // kills a program that Finish has not seen end
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Some of the output; 0 at its end, -1 with errno set. At the deadline the program is killed, and
  // this and every later call gives -1 and ETIMEDOUT.
  ssize_t Read(char* buffer, size_t size);
  // Stops reading and waits for the end, until the deadline. Exit status, 128 + signal, or -1.
  int Finish();

  bool timed_out() const { return timed_out_; }
  // The beginning of the error output, at most 4096 bytes.
  const std::string& error_text() const { return error_text_; }

 private:
  ChildProcess() = default;
  // Descriptors of the new process; -1 for those that lead nowhere.
  struct Ends {
    int input;
    int output;
    int errors;
    int report;
  };
  void Launch(const char* path, const char* const argv[], const char* const* environment,
              const Ends& ends) const;
  int RemainingMilliseconds() const;
  bool KillWhenLate();
  void Kill() const;
  void ReadErrors();
  void WaitForErrors(int milliseconds);

  pid_t pid_ = -1;
  Descriptor output_;
  Descriptor errors_;
  std::string error_text_;
  bool has_deadline_ = false;
  bool timed_out_ = false;
  std::chrono::steady_clock::time_point deadline_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_SYSTEM_CHILD_PROCESS_H
