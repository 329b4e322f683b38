// What the tests of the controls share: a domain database, platform calls that fail on demand, rows
// put there directly.
#ifndef TESTS_CONTROL_CONTROL_FIXTURE_H
#define TESTS_CONTROL_CONTROL_FIXTURE_H

#include <string>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/api/bcc/instance.h"
#include "tests/support/domain_db.h"
#include "tests/support/platform_faults.h"

namespace test {

class ControlTest : public DomainDbTest {
 protected:
  ControlTest() { Reset(); }
  ~ControlTest() override { Reset(); }

  std::string Configured(const std::string& key) {
    std::string value;
    EXPECT_EQ(mailConfGet(key, value), 0);
    return value;
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
