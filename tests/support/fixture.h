// What most tests need: a temporary root, a captured log, a clean library state.
//
// The log is watched: an error line (level 3) that the test did not expect fails it.
#ifndef TESTS_SUPPORT_FIXTURE_H
#define TESTS_SUPPORT_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace test {

struct LogLine {
  int level;
  std::string text;
};

class RootTest : public ::testing::Test {
 protected:
  RootTest();
  ~RootTest() override;
  void TearDown() override;

  const std::string& root() const { return root_; }
  // Writes a file below the root, making its folders.
  void Write(const std::string& absolute_path, const std::string& bytes);
  std::string Read(const std::string& absolute_path) const;
  // A root with the given etc/passwd and etc/group and the usual login.defs ranges (1000..60000).
  void WriteAccounts(const std::string& passwd, const std::string& group);

  // Lines seen so far, and forgotten by this call; announces their errors.
  std::vector<LogLine> TakeLog();
  // True when a line seen so far contains `text`; that line no longer fails the test.
  bool Logged(const std::string& text);

  std::vector<LogLine> log_;

 private:
  std::string root_;
};

}  // namespace test

#endif  // TESTS_SUPPORT_FIXTURE_H
