// Processor time, user and system, of work in this process and of whole commands.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

using Work = std::function<void()>;

// In milliseconds, with that of the children which ended meanwhile.
double ProcessorMs(const Work& work);

// What takes longer is done once.
constexpr double kOnceMs = 4000;

// Calls `round` until enough of it was seen: at least three times, but no further once it took
// longer than kOnceMs. Rounds take the smallest of their times: whatever else the machine does adds
// to it.
void Rounds(const Work& round);

// The smaller of both, where 0 is none.
void KeepLeast(double& least, double value);

struct Usage {
  double ms = 0;
  double megabytes = 0;  // the most memory it had at once (VmHWM)
  int status = 0;
};

// Starts commands from a process that is small whatever this one holds, as a started program counts
// the memory of its parent. Made before anything else.
class Launcher {
 public:
  Launcher();
  ~Launcher();
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  // Nothing is kept of its output, and its messages are shown. A status other than 0 is that of a
  // command which did not do what is measured: it stops the program.
  Usage Run(const std::vector<std::string>& command, const std::string& root) const;

 private:
  int socket_ = -1;
  pid_t pid_ = 0;
};

}  // namespace bench

#endif  // BENCH_MEASURE_H
