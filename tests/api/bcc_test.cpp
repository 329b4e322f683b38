// The table of blind-copy rules: whose rules an operation touches, pages, what is refused.
#include <unistd.h>

#include "lib-domain/control/policy_hooks.h"
#include "platform/include/db_handler.h"
#include "tests/api/bcc_fixture.h"

namespace {

using MDOMAIN::CONTROL::INTERNAL::BccOutcome;
using MDOMAIN::CONTROL::INTERNAL::DeleteDomainBcc;
using MDOMAIN::CONTROL::INTERNAL::DeleteUsersBcc;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class BccTest : public test::BccFixture {};

TEST_F(BccTest, KeepsOneObjectForTheProcess) {
  BCC* first = BCC::getInstance();
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, BCC::getInstance(5));
  EXPECT_EQ(first, BCC::getInstance(root() + "/other.db"));
  // Bound to the domain of the first call.
  ASSERT_EQ(0, BCC::getInstance(5)->addBCC(BCC_SENDER, "boss", "archive"));
  EXPECT_THAT(Rules(0), ElementsAre("boss 1 archive"));
  EXPECT_THAT(Rules(5), IsEmpty());
}

TEST_F(BccTest, AFileThatTookThePlaceIsRead) {
  const std::string settings = MDOMAIN::PATHS::SettingsDb();
  ASSERT_EQ(0, BCC::getInstance()->addBCC(BCC_SENDER, "boss", "archive"));
  std::filesystem::copy(settings, settings + ".new");
  ASSERT_EQ(0, BCC::getInstance()->deleteAllBCC());
  std::filesystem::rename(settings + ".new", settings);
  EXPECT_THAT(Rules(0), ElementsAre("boss 1 archive"));
}

TEST_F(BccTest, TriesAgainAfterAFileThatCannotBeOpened) {
  Write("/var/packages/Postara-Server/etc/mailserver.db", "this is not a database, by its length");
  EXPECT_EQ(nullptr, BCC::getInstance());
  EXPECT_TRUE(Logged("bcc db connect fail"));
  EXPECT_TRUE(Logged("bcc init fail"));
  TakeLog();
  std::filesystem::remove(MDOMAIN::PATHS::SettingsDb());
  EXPECT_NE(nullptr, BCC::getInstance(3));
}

TEST_F(BccTest, ListsWithoutTheRightToWrite) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "root alone can become somebody without rights";
  }
  ASSERT_EQ(0, BCC::getInstance()->setBCC(3, {{"a", BCC_RECIPIENT, "x"}}));
  MDOMAIN::API::INTERNAL::ResetBccInstanceForTest();
  std::filesystem::permissions(root(), std::filesystem::perms{0755});
  ASSERT_EQ(0, seteuid(65534));
  EXPECT_THAT(Rules(3), ElementsAre("a 0 x"));
  EXPECT_GT(0, BCC::getInstance()->deleteAllBCC(3));
  EXPECT_EQ(0, seteuid(0));
  EXPECT_TRUE(Logged("attempt to write a readonly database"));
  EXPECT_THAT(Rules(3), ElementsAre("a 0 x"));
}

TEST_F(BccTest, StoresAnyTextAndReplacesByNameTypeAndDomain) {
  const std::string longest(20000, 'x');
  const std::list<BccInfo> rules = {
      {"o'brien@example.com", BCC_RECIPIENT, "a'); drop table bcc_table;--"},
      {"", BCC_RECIPIENT, ""},
      {"ünï@bücher.example", BCC_RECIPIENT, longest},
      {"%s%n\"\\\n", BCC_RECIPIENT, "%q"}};
  BCC* bcc = BCC::getInstance(7);
  ASSERT_EQ(0, bcc->setBCC(rules));
  EXPECT_EQ(4, bcc->getTotalBccNum({}));
  ASSERT_EQ(0, bcc->addBCC(BCC_RECIPIENT, "", "new"));
  ASSERT_EQ(0, bcc->addBCC(BCC_SENDER, "", "other type"));
  ASSERT_EQ(0, bcc->setBCC(8, {{"", BCC_RECIPIENT, "other domain"}}));
  EXPECT_THAT(Rules(7), ElementsAre(" 0 new", "%s%n\"\\\n 0 %q",
                                    "o'brien@example.com 0 a'); drop table bcc_table;--",
                                    "ünï@bücher.example 0 " + longest, " 1 other type"));
  EXPECT_THAT(Rules(8), ElementsAre(" 0 other domain"));
  // What "%q" would cut could meet another rule.
  EXPECT_GT(0, bcc->setBCC({{"new", 0, "x"}, {std::string("o\0x", 3), 0, "x"}}));
  EXPECT_TRUE(Logged("fail to insert info into bcc table"));
  EXPECT_EQ(4, bcc->getTotalBccNum({}));
}

TEST_F(BccTest, DeletesTheNamedRulesOnly) {
  BCC* bcc = BCC::getInstance();
  for (const int domain_id : {0, 2, 3}) {
    ASSERT_EQ(0, bcc->setBCC(domain_id, {{"a", BCC_RECIPIENT, "Bob"},
                                         {"a", BCC_SENDER, "bob"},
                                         {"example.com", BCC_DOMAIN, "BOB"},
                                         {"c", BCC_RECIPIENT, "bobby"},
                                         {"d", BCC_RECIPIENT, "o'brien"}}));
  }
  EXPECT_EQ(0, bcc->deleteBCC(3, {BccInfo{"a", BCC_SENDER, ""}, BccInfo{"missing", 0, ""}}));
  EXPECT_EQ(0, bcc->deleteBCC(2, std::list<std::string>{"bob"}));
  EXPECT_EQ(0, bcc->deleteBCC(0, std::list<std::string>{"nobody", "BOB", "o'brien"}));
  EXPECT_EQ(0, bcc->deleteBCC(3, std::list<std::string>{}));
  EXPECT_THAT(Rules(0), ElementsAre("c 0 bobby"));
  EXPECT_THAT(Rules(2), ElementsAre("c 0 bobby", "d 0 o'brien"));
  EXPECT_THAT(Rules(3), ElementsAre("a 0 Bob", "c 0 bobby", "d 0 o'brien", "example.com 2 BOB"));
}

// The object was made for domain 0, and the controls clean up other domains through it. Rules name
// accounts by their short names, the mirror of a directory holds full ones.
TEST_F(BccTest, CleanUpTouchesOneDomainAndFindsShortNames) {
  for (const int domain_id : {0, 2, 3, 4}) {
    ASSERT_EQ(0, BCC::getInstance()->setBCC(domain_id, {{"x", BCC_RECIPIENT, "bob"},
                                                        {"y", BCC_SENDER, "DOM\\carol"},
                                                        {"z", BCC_SENDER, "carol"},
                                                        {"z", BCC_RECIPIENT, "b"}}));
  }
  EXPECT_EQ(BccOutcome::kDone, DeleteDomainBcc(2));
  EXPECT_EQ(BccOutcome::kDone, DeleteUsersBcc(3, {"BOB", "unknown"}));
  EXPECT_EQ(BccOutcome::kDone, DeleteUsersBcc(4, {"DOM\\carol"}));
  EXPECT_THAT(Rules(0), ElementsAre("x 0 bob", "z 0 b", "y 1 DOM\\carol", "z 1 carol"));
  EXPECT_THAT(Rules(2), IsEmpty());
  EXPECT_THAT(Rules(3), ElementsAre("z 0 b", "y 1 DOM\\carol", "z 1 carol"));
  EXPECT_THAT(Rules(4), ElementsAre("x 0 bob", "z 0 b"));
}

TEST_F(BccTest, CleanUpWithoutADatabaseSaysSo) {
  std::filesystem::create_directories(MDOMAIN::PATHS::SettingsDb());
  EXPECT_EQ(BccOutcome::kNoInstance, DeleteDomainBcc(2));
  EXPECT_EQ(BccOutcome::kNoInstance, DeleteUsersBcc(2, {"bob"}));
  TakeLog();
}

TEST_F(BccTest, AFailingStatementLeavesAllRules) {
  BCC* bcc = BCC::getInstance(1);
  ASSERT_EQ(0, bcc->setBCC({{"a", 0, "x"}, {"b", 0, "x"}}));
  DBHandler other(MDOMAIN::PATHS::SettingsDb(), "");
  ASSERT_EQ(0, other.connect());
  ASSERT_EQ(0,
            other.exeCmds({"CREATE TRIGGER refuse BEFORE INSERT ON bcc_table WHEN NEW.name = 'bad'"
                           " BEGIN SELECT RAISE(ABORT, 'refused by test'); END;",
                           "CREATE TRIGGER keep BEFORE DELETE ON bcc_table WHEN OLD.name = 'b'"
                           " BEGIN SELECT RAISE(ABORT, 'kept by test'); END;"},
                          true));
  EXPECT_GT(0, bcc->setBCC({{"c", 0, "x"}, {"bad", 0, "x"}}));
  EXPECT_TRUE(Logged("refused by test") && Logged("fail to insert info into bcc table"));
  EXPECT_GT(0, bcc->deleteBCC(std::list<std::string>{"x"}));
  EXPECT_EQ(BccOutcome::kFailed, DeleteDomainBcc(1));
  EXPECT_EQ(BccOutcome::kFailed, DeleteUsersBcc(1, {"X"}));
  TakeLog();
  EXPECT_THAT(Rules(1), ElementsAre("a 0 x", "b 0 x"));
  ASSERT_EQ(0, other.exeCmds({"DROP TABLE bcc_table"}, true));
  std::list<BccInfo> rules = {{"untouched", 0, ""}};
  EXPECT_GT(0, bcc->getBCCList({}, rules));
  EXPECT_GT(0, bcc->getSystemAllBCCList(rules));
  EXPECT_GT(0, bcc->getTotalBccNum({}));
  EXPECT_TRUE(Logged("queryBCC data fail"));
  TakeLog();
  EXPECT_EQ("untouched", rules.front().name);
}

TEST_F(BccTest, PagesNeitherRepeatNorLoseARule) {
  BCC* bcc = BCC::getInstance(1);
  std::list<BccInfo> all;
  for (int i = 0; i < 50; ++i) {
    all.push_back({"name" + std::to_string(i), BCC_RECIPIENT, "dest" + std::to_string(i % 3)});
  }
  ASSERT_EQ(0, bcc->setBCC(all));
  for (const char* column : {"name", "type", "bcc_to", "domain_id"}) {
    for (const char* direction : {"asc", "desc", "DESC"}) {
      std::list<BccInfo> whole;
      std::list<BccInfo> joined;
      ASSERT_EQ(0, bcc->getBCCList({BCC_RECIPIENT, 0, -1, column, direction}, whole));
      for (int offset = 0; offset < 50; offset += 7) {
        std::list<BccInfo> page;
        ASSERT_EQ(0, bcc->getBCCList({BCC_RECIPIENT, offset, 7, column, direction}, page));
        // A write between two pages may give the rows another order inside the file.
        ASSERT_EQ(0, bcc->setBCC({all.back()}));
        all.push_front(all.back());
        all.pop_back();
        joined.splice(joined.end(), page);
      }
      const auto same = [](const BccInfo& a, const BccInfo& b) { return a.name == b.name; };
      EXPECT_EQ(50u, whole.size());
      EXPECT_TRUE(std::equal(whole.begin(), whole.end(), joined.begin(), joined.end(), same))
          << column << " " << direction;
    }
  }
  EXPECT_EQ(50, bcc->getTotalBccNum({BCC_RECIPIENT, 10, 5, "name", "asc"}));
}

TEST_F(BccTest, RefusesOtherSortTexts) {
  BCC* bcc = BCC::getInstance(1);
  const std::pair<const char*, const char*> refused[] = {
      {"rowid", "asc"}, {"name", ""}, {"NAME", "asc"}, {"name", "asc; DROP TABLE bcc_table"}};
  for (const auto& [column, direction] : refused) {
    std::list<BccInfo> rules = {{"untouched", 0, ""}};
    EXPECT_GT(0, bcc->LoadBCCList(0, 1, 0, 10, column, direction, rules)) << column << direction;
    EXPECT_EQ(1u, rules.size());
    EXPECT_TRUE(Logged("queryBCC data fail"));
  }
}

TEST_F(BccTest, ListsTheRulesOfAllDomains) {
  BCC* bcc = BCC::getInstance();
  ASSERT_EQ(0, bcc->setBCC(9, {{"b", 0, "x"}, {"a", 1, "x"}}));
  ASSERT_EQ(0, bcc->setBCC(1, {{"d", 0, "x"}, {"c", 7, "x"}}));
  std::list<BccInfo> rules;
  ASSERT_EQ(0, bcc->getSystemAllBCCList(rules));
  std::vector<std::string> names;
  for (const BccInfo& rule : rules) {
    names.push_back(rule.name);
  }
  EXPECT_THAT(names, ElementsAre("d", "c", "b", "a"));
}

}  // namespace
