// The table: what an operation took, beside its floor and its limit, and how it grows.
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <map>
#include <string>
#include <vector>

namespace bench {

// What an operation has to look at, which decides how it may grow with the users.
enum class Touches { kAll, kOne };

class Report {
 public:
  // Processor times in milliseconds; at most `limit` times the floor.
  void AddRatio(const std::string& operation, int users, double ms, double floor, double limit);
  // A value with its unit ("ms", "MB"), and its most.
  void AddValue(const std::string& operation, int users, double value, const std::string& unit,
                double limit);
  // Of what was added last: how it may grow from one size to the one ten times as large. What grows
  // less than its floor does is within the limit.
  void Grows(Touches touches);
  // What is added from now on is compared with no other size.
  void StopComparing() { is_comparing_ = false; }
  // Compares the sizes, prints the table and a last line. True when every limit holds.
  bool Print();

 private:
  struct Line {
    std::string operation, size;
    double value = 0;
    std::string unit;
    double floor = 0;   // 0: none
    double judged = 0;  // what the limit is for
    double limit = 0;
  };
  struct Times {
    double ms, floor;
  };
  struct Growth {
    Touches touches = Touches::kAll;
    std::map<int, Times> by_users;
  };

  void _Add(int users, const Line& line);
  void _AddGrowth();

  std::vector<Line> lines_;
  std::map<std::string, Growth> growths_;
  int last_users_ = 0;
  bool is_comparing_ = true;
};

}  // namespace bench

#endif  // BENCH_REPORT_H
