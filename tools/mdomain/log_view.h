// Which log lines an administrator sees, and whether they also reach the machine's log.
#ifndef TOOLS_MDOMAIN_LOG_VIEW_H
#define TOOLS_MDOMAIN_LOG_VIEW_H

#include <string>
#include <vector>

namespace mdomain {

// Shows warnings on standard error; with `verbose` every line, as it was logged. Errors are kept
// for the message that a failing command ends with. Below a root prefix nothing reaches the
// machine's log.
void ShowLog(bool verbose);
// From now on errors are shown when they are logged: for a command that goes on after them.
void ShowErrorsAtOnce();
// Shows the kept errors, of a command that succeeded all the same: the library's only where nothing
// else was said.
void ShowErrors();
// The message of a failing command, with what is known of the cause behind it: what was last said
// about a database file or logged as an error by the platform, which names a file or a server; else
// its first warning where nothing else was logged, or the first error of the library.
std::string WithCause(const std::string& message);
// Warnings so far, which were shown, are no cause of a failure.
void ForgetWarnings();

// While one lives, warnings and errors are collected, and are neither shown (but with `verbose`)
// nor taken for the cause of a later failure. One at a time.
class HeldLog {
 public:
  HeldLog();
  ~HeldLog();
  HeldLog(const HeldLog&) = delete;
  HeldLog& operator=(const HeldLog&) = delete;

  // The lines without the name of their source, in their order.
  std::vector<std::string> Lines() const;
  // Shows those that say something else than `said`.
  void Show(const std::string& said = "") const;
};

// While one lives, a terminal on standard error shows how far a refresh or another pass over many
// items is, once that takes more than a second, and before it `first`, which may be null.
// Elsewhere, and when it is not `wanted`, it is silent.
class Progress {
 public:
  explicit Progress(bool wanted, const char* first = nullptr);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOG_VIEW_H
