#include "bench/report.h"

#include <algorithm>
#include <cstdio>

namespace bench {

namespace {

constexpr double kMaxGrowthOfAll = 11;
constexpr double kMaxGrowthOfOne = 1.2;

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f",
                value == 0    ? 0
                : value < 0.1 ? 4
                : value < 10  ? 2
                              : 1,
                value);
  return text;
}

void PrintLine(const std::string& operation, const std::string& size, const std::string& value,
               const std::string& floor, const std::string& ratio, const std::string& limit,
               const char* verdict) {
  std::printf("| %-46s | %16s | %11s | %9s | %7s | %8s | %-8s |\n", operation.c_str(), size.c_str(),
              value.c_str(), floor.c_str(), ratio.c_str(), limit.c_str(), verdict);
}

}  // namespace

void Report::_Add(int users, const Line& line) {
  // What is known is shown at once: a long run may be ended before its table.
  std::fprintf(stderr, "%-46s %8d  %s %s, floor %s\n", line.operation.c_str(), users,
               Number(line.value).c_str(), line.unit.c_str(), Number(line.floor).c_str());
  last_users_ = users;
  lines_.push_back(line);
}

void Report::AddRatio(const std::string& operation, int users, double ms, double floor,
                      double limit) {
  _Add(users, {operation, std::to_string(users), ms, "ms", floor, ms / floor, limit});
}

void Report::AddValue(const std::string& operation, int users, double value,
                      const std::string& unit, double limit) {
  _Add(users, {operation, std::to_string(users), value, unit, 0, value, limit});
}

void Report::Grows(Touches touches) {
  if (!is_comparing_) {
    return;
  }
  const Line& line = lines_.back();
  growths_[line.operation].touches = touches;
  growths_[line.operation].by_users[last_users_] = {line.value, line.floor};
}

void Report::_AddGrowth() {
  for (const auto& [operation, growth] : growths_) {
    for (const auto& [users, times] : growth.by_users) {
      const auto ten = growth.by_users.find(users * 10);
      if (ten == growth.by_users.end()) {
        continue;
      }
      Line line;
      line.operation = operation;
      line.size = std::to_string(users) + " x 10";
      line.judged = ten->second.ms / times.ms;
      line.floor = times.floor > 0 ? ten->second.floor / times.floor : 0;
      line.limit =
          std::max(growth.touches == Touches::kAll ? kMaxGrowthOfAll : kMaxGrowthOfOne, line.floor);
      lines_.push_back(line);
    }
  }
}

bool Report::Print() {
  std::vector<std::string> order;
  for (const Line& line : lines_) {
    if (std::find(order.begin(), order.end(), line.operation) == order.end()) {
      order.push_back(line.operation);
    }
  }
  _AddGrowth();
  std::stable_sort(lines_.begin(), lines_.end(), [&](const Line& a, const Line& b) {
    return std::find(order.begin(), order.end(), a.operation) <
           std::find(order.begin(), order.end(), b.operation);
  });
  PrintLine("operation", "users", "processor", "floor ms", "ratio", "at most", "");
  PrintLine("---", "---", "---", "---", "---", "---", "---");
  size_t too_much = 0;
  for (const Line& line : lines_) {
    const bool fits = line.judged <= line.limit;
    const bool is_growth = line.unit.empty();
    const bool is_value = !is_growth && line.floor == 0;
    too_much += fits ? 0 : 1;
    PrintLine(line.operation, line.size, is_growth ? "" : Number(line.value) + " " + line.unit,
              line.floor == 0 ? "" : Number(line.floor), is_value ? "" : Number(line.judged),
              Number(line.limit) + (is_value ? " " + line.unit : " x"), fits ? "ok" : "TOO MUCH");
  }
  std::printf("\n%s: %zu of %zu lines are above their limit\n",
              too_much == 0 ? "EVERY LIMIT HOLDS" : "TOO MUCH", too_much, lines_.size());
  return too_much == 0;
}

}  // namespace bench
