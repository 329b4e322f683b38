// What the tests of blind-copy rules share: an empty settings database, rules as texts.
#ifndef TESTS_API_BCC_FIXTURE_H
#define TESTS_API_BCC_FIXTURE_H

#include <gmock/gmock.h>

#include <filesystem>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/bcc/instance.h"
#include "lib-domain/base/paths.h"
#include "tests/support/fixture.h"

namespace test {

class BccFixture : public RootTest {
 protected:
  void SetUp() override { std::filesystem::create_directories(MDOMAIN::PATHS::EtcDir()); }
  void TearDown() override {
    MDOMAIN::API::INTERNAL::ResetBccInstanceForTest();
    RootTest::TearDown();
  }

  // "NAME TYPE DESTINATION" of a domain's rules of the three types.
  static std::vector<std::string> Rules(int domain_id) {
    std::vector<std::string> texts;
    for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
      std::list<BccInfo> rules;
      EXPECT_EQ(0, BCC::getInstance()->LoadBCCList(type, domain_id, 0, -1, "name", "asc", rules));
      for (const BccInfo& rule : rules) {
        texts.push_back(rule.name + " " + std::to_string(rule.type) + " " + rule.bcc_to);
      }
    }
    return texts;
  }
};

}  // namespace test

#endif  // TESTS_API_BCC_FIXTURE_H
