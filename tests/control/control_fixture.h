// What the tests of the controls share: a domain database, platform calls that fail on demand, rows
// put there directly.
#ifndef TESTS_CONTROL_CONTROL_FIXTURE_H
#define TESTS_CONTROL_CONTROL_FIXTURE_H

#include <sstream>
#include <string>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/api/bcc/instance.h"
#include "tests/support/domain_db.h"
#include "tests/support/platform_faults.h"

namespace test {

constexpr const char* kBatch = "DBHandler::exeCmds";

// One step of an operation made to fail (as FailOn has it), what is logged then and what is left
// behind.
struct FailingStep {
  const char* function;
  const char* text;
  const char* logged;  // lines, each of which is searched for
  std::string left;
};

class ControlTest : public DomainDbTest {
 protected:
  ControlTest() { Reset(); }
  ~ControlTest() override { Reset(); }

  std::string Configured(const std::string& key) {
    std::string value;
    EXPECT_EQ(mailConfGet(key, value), 0);
    return value;
  }

  // Runs the operation, which is expected to fail, once for each step. `left` tells what is there
  // after each run; the next one starts from it.
  template <size_t kCount, typename Operation, typename Left>
  void ExpectStops(const FailingStep (&steps)[kCount], Operation operation, Left left) {
    for (const FailingStep& step : steps) {
      SCOPED_TRACE(std::string(step.function) + " " + step.text);
      FailOn(step.function, step.text);
      EXPECT_FALSE(operation());
      ClearFaults();
      std::istringstream lines(step.logged);
      for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(Logged(line)) << line;
      }
      TakeLog();
      EXPECT_EQ(left(), step.left);
    }
  }

 private:
  // What lives as long as the process, and therefore longer than a root.
  static void Reset() {
    ClearFaults();
    MDOMAIN::API::INTERNAL::ResetBccInstanceForTest();
    MDOMAIN::UTILS::INTERNAL::ResetAccountConfigurationForTest();
  }
};

}  // namespace test

#endif  // TESTS_CONTROL_CONTROL_FIXTURE_H
