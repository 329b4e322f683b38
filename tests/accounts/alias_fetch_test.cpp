// Which searches a directory is asked for when an answer cannot be used.
#include "lib-domain/accounts/alias_fetch.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::UTILS::INTERNAL;

int searches = 0;
bool is_down = false;

// Somebody's "info" has empty lines.
SearchResult Query(const AttributeNames& needed, AccountAttributes& accounts) {
  ++searches;
  if (is_down) {
    usleep(1100000);
    return SearchResult::kFailed;
  }
  if (needed.count("info") != 0) {
    return SearchResult::kUnreadable;
  }
  for (const std::string& name : needed) {
    accounts["alice"][name] = "value of " + name;
  }
  return SearchResult::kWhole;
}

class AttributeAnswerTest : public test::RootTest {
 protected:
  AttributeAnswerTest() {
    searches = 0;
    is_down = false;
  }
};

TEST_F(AttributeAnswerTest, AnUnreadableAttributeFailsItsOwnPatternAlone) {
  AttributeAnswer answer({"sn", "givenName", "info"});
  AccountAttributes wanted = {{"alice", {}}};
  EXPECT_TRUE(answer.Ask(&Query, {"sn"}));
  EXPECT_EQ(searches, 2) << "together, then alone";
  answer.CopyTo(wanted);
  EXPECT_EQ(wanted["alice"]["sn"], "value of sn");
  EXPECT_FALSE(answer.Ask(&Query, {"givenName", "info"}));
  EXPECT_EQ(searches, 3);
  EXPECT_FALSE(answer.Ask(&Query, {"givenName", "info"})) << "another domain with that pattern";
  EXPECT_TRUE(Logged("the attributes of this pattern, [givenName, info], could not be read"));
  EXPECT_EQ(searches, 3);
  EXPECT_TRUE(answer.Ask(&Query, {"givenName"}));
}

TEST_F(AttributeAnswerTest, ADirectoryThatLetASearchWaitIsNotAskedAgain) {
  AttributeAnswer answer({"sn"});
  is_down = true;
  EXPECT_FALSE(answer.Ask(&Query, {"sn"}));
  EXPECT_FALSE(answer.Ask(&Query, {"sn"}));
  EXPECT_EQ(searches, 1);
  EXPECT_TRUE(Logged("is not asked again"));
}

}  // namespace
