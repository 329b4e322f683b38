// Which log lines an administrator sees, and whether they also reach the machine's log.
#ifndef TOOLS_MDOMAIN_LOG_VIEW_H
#define TOOLS_MDOMAIN_LOG_VIEW_H

namespace mdomain {

// Shows lines on standard error: errors and warnings, with `verbose` notices too. Below a root
// prefix nothing reaches the machine's log.
void ShowLog(bool verbose);

// While one lives, a terminal on standard error shows how far a refresh is. Elsewhere it is silent.
class Progress {
 public:
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOG_VIEW_H
