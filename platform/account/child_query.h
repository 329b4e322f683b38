// Queries that may never be answered, made in a child process that can be given up.
#ifndef PLATFORM_ACCOUNT_CHILD_QUERY_H
#define PLATFORM_ACCOUNT_CHILD_QUERY_H

#include <functional>
#include <string>
#include <vector>

#include "platform/system/budget.h"

namespace korvmailserver::account {

// One row of an answer: a kind and texts without zero bytes.
struct Answer {
  char kind = 0;
  std::vector<std::string> texts;
};

// The child's end. Writing ends the child when nobody listens any more.
class AnswerWriter {
 public:
  explicit AnswerWriter(int file) : file_(file) {}
  void Put(char kind, const std::vector<std::string>& texts = {}) const;

 private:
  int file_;
};

using Query = std::function<void(const AnswerWriter&)>;

// Runs `query` in a child process and hands its answers to `take`, which may extend the budget, as
// they come. The child has none of this process's open files but the standard ones, and ends with
// this process. False and `error` when it ended early or the budget was spent; it is killed then.
bool QueryInChild(const Query& query, const std::function<void(const Answer&)>& take,
                  const Budget& budget, std::string& error);

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_CHILD_QUERY_H
