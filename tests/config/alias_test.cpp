// The alias store: entries with odd names, removal of members, files that cannot be used.
#include "platform/include/alias.h"

#include <filesystem>

#include "platform/include/db_handler.h"
#include "platform/include/domain_setting.h"
#include "platform/include/sqlite.h"
#include "tests/support/fixture.h"

namespace test {

using Kind = Alias::MemberKind;

class AliasTest : public RootTest {
 protected:
  std::string Path() const { return root() + "/alias.db"; }
  // The store as another process reads it, one line per entry.
  std::vector<std::string> Stored() const { return Lines(Loaded().list()); }
  Alias Loaded() const {
    Alias alias(Path());
    EXPECT_EQ(alias.load(), 0);
    return alias;
  }
  static std::vector<std::string> Lines(const std::vector<Alias::Entry>& entries) {
    std::vector<std::string> lines;
    for (const Alias::Entry& entry : entries) {
      lines.push_back(std::to_string(entry.domain_id) + "/" + entry.name + ":");
      for (const Alias::Member& member : entry.members) {
        lines.back() += " " + std::to_string(static_cast<int>(member.kind)) + member.name;
      }
    }
    return lines;
  }
};

TEST_F(AliasTest, EntriesWithOddNamesComeBack) {
  Alias alias = Loaded();
  EXPECT_TRUE(alias.list().empty());
  EXPECT_EQ(alias.del("none", 1), 0);
  EXPECT_EQ(alias.delDomainAlias(1), 0);
  EXPECT_EQ(alias.delDomainUserMember(1, {"none"}), 0);
  EXPECT_FALSE(std::filesystem::exists(Path())) << "only a set makes the file";

  EXPECT_EQ(alias.set({"o'brien", 2, {{Kind::User, "ann'); DROP TABLE alias_table;--"}}}), 0);
  EXPECT_EQ(alias.set({"büro", 1, {{Kind::Address, "x\"@y"}, {Kind::Group, "team a"}}}), 0);
  EXPECT_EQ(alias.set({"", 1, {}}), 0);
  EXPECT_EQ(
      alias.set({"büro",
                 1,
                 {{Kind::User, "b"}, {Kind::User, "a"}, {Kind::Group, "b"}, {Kind::User, "b"}}}),
      0);
  const std::vector<std::string> want = {"1/:", "1/büro: 0b 0a 1b",
                                         "2/o'brien: 0ann'); DROP TABLE alias_table;--"};
  EXPECT_EQ(Lines(alias.list()), want);
  EXPECT_EQ(Stored(), want);
  EXPECT_TRUE(alias.isAlias("o'brien", 2));
  EXPECT_FALSE(alias.isAlias("O'Brien", 2)) << "exact spelling";
  EXPECT_FALSE(alias.isAlias("o'brien", 1));
  EXPECT_EQ(alias.del("o'brien", 2), 0);
  EXPECT_FALSE(alias.isAlias("o'brien", 2));
  EXPECT_EQ(Stored().size(), 2U);
}

TEST_F(AliasTest, RemovesMembersOfOneDomainAndKind) {
  Alias alias = Loaded();
  const std::vector<Alias::Member> members = {
      {Kind::User, "Bob"}, {Kind::Group, "bob"}, {Kind::Address, "bob"}, {Kind::User, "eve"}};
  ASSERT_EQ(alias.set({"all", 1, members}), 0);
  ASSERT_EQ(alias.set({"all", 2, members}), 0);
  ASSERT_EQ(alias.set({"only", 1, {{Kind::User, "BOB"}}}), 0);
  std::list<std::string> names(2500, "nobody");
  names.push_back("bob");
  EXPECT_EQ(alias.delDomainUserMember(1, names), 0);
  EXPECT_EQ(alias.delDomainUserMember(1, {}), 0);
  EXPECT_EQ(alias.delDomainGroupMember(2, {"BOB", "o'brien"}), 0);
  const std::vector<std::string> want = {"1/all: 1bob 2bob 0eve",
                                         "1/only:", "2/all: 0Bob 2bob 0eve"};
  EXPECT_EQ(Lines(alias.list()), want);
  EXPECT_EQ(Stored(), want);
  EXPECT_EQ(alias.delDomainAlias(1), 0);
  EXPECT_EQ(Stored(), (std::vector<std::string>{want[2]}));
}

TEST_F(AliasTest, AFileThatIsNoAliasStoreFailsAndIsKept) {
  Write("/alias.db", std::string(4096, 'g'));
  Alias alias(Path());
  EXPECT_LT(alias.load(), 0);
  EXPECT_EQ(TakeLog().size(), 1U);
  EXPECT_LT(alias.delDomainAlias(1), 0);
  EXPECT_TRUE(Logged("changed before it was loaded"));
  EXPECT_EQ(Read("/alias.db"), std::string(4096, 'g'));
}

TEST_F(AliasTest, AFailedChangeLeavesEntriesAsTheyAre) {
  Alias alias = Loaded();
  ASSERT_EQ(alias.set({"a", 1, {{Kind::User, "u"}}}), 0);
  DBHandler other(Path(), "");
  ASSERT_EQ(other.connect(), 0);
  ASSERT_EQ(other.exeCmds({"CREATE TRIGGER no BEFORE DELETE ON alias_member_table BEGIN SELECT "
                           "RAISE(ABORT, 'refused'); END"},
                          true),
            0);
  EXPECT_LT(alias.del("a", 1), 0);
  EXPECT_LT(alias.set({"a", 1, {}}), 0);
  EXPECT_LT(alias.delDomainUserMember(1, {"u"}), 0);
  EXPECT_EQ(TakeLog().size(), 3U);
  EXPECT_EQ(Lines(alias.list()), (std::vector<std::string>{"1/a: 0u"}));
  EXPECT_EQ(Stored(), Lines(alias.list()));
}

class DomainSettingTest : public AliasTest {
 protected:
  std::string Path() const { return root() + "/mailserver.db"; }
  // Every value of both tables' rows.
  std::vector<int> Rows() const {
    DBHandler db(Path(), "");
    EXPECT_EQ(db.connect(), 0);
    std::vector<int> values;
    for (const char* sql : {"SELECT * FROM multi_domain_enable_table ORDER BY domain_id",
                            "SELECT * FROM multi_domain_rate_table ORDER BY domain_id"}) {
      korvmailserver::Statement select(db.getDB(), sql);
      while (select.Step() == SQLITE_ROW) {
        for (int column = 0; column < select.Columns(); ++column) {
          values.push_back(select.Int(column));
        }
      }
    }
    return values;
  }
};

TEST_F(DomainSettingTest, DefaultRowsAreMadeKeptAndRemoved) {
  MultipleDomain::DomainSetting setting(Path());
  EXPECT_EQ(setting.DelSettings(1), 0);
  EXPECT_FALSE(std::filesystem::exists(Path()));
  EXPECT_EQ(setting.CreateSettings(3), 0);
  const std::vector<int> defaults = {3, 0, 0, 0, 1, 0, 3, 10, 500, 2000, 10, -1};
  EXPECT_EQ(Rows(), defaults);
  DBHandler db(Path(), "");
  ASSERT_EQ(db.connect(), 0);
  EXPECT_EQ(db.GetTableDataCount("bcc_table"), 0) << "the whole schema is there";
  EXPECT_EQ(db.GetTableDataCount("sender_quota_table"), 0);
  ASSERT_EQ(db.exeCmds({"UPDATE multi_domain_rate_table SET rt_quota = 7"}, true), 0);
  EXPECT_EQ(setting.CreateSettings(3), 0);
  EXPECT_EQ(Rows()[8], 7) << "existing rows are kept";
  EXPECT_EQ(setting.CreateSettings(4), 0);
  EXPECT_EQ(setting.DelSettings(3), 0);
  EXPECT_EQ(setting.DelSettings(3), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{4, 0, 0, 0, 1, 0, 4, 10, 500, 2000, 10, -1}));
}

TEST_F(DomainSettingTest, AnOlderDatabaseGetsTheDomainTables) {
  DBHandler db(Path(), "create table bcc_table(name TEXT);");
  ASSERT_EQ(db.connect(), 0);
  MultipleDomain::DomainSetting setting(Path());
  EXPECT_EQ(setting.CreateSettings(1), 0);
  EXPECT_EQ(Rows().size(), 12U);
}

TEST_F(DomainSettingTest, AnUnusableFileFailsWithOneLine) {
  std::filesystem::create_directory(Path());
  MultipleDomain::DomainSetting setting(Path());
  EXPECT_LT(setting.CreateSettings(1), 0);
  EXPECT_LT(setting.DelSettings(1), 0);
  EXPECT_EQ(TakeLog().size(), 2U);
}

}  // namespace test
