// The domain database as a file: its schema, its upgrades, and files that are not what they should
// be.
#include "lib-domain/db/handler.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "lib-domain/base/error_code.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/schema.h"
#include "platform/include/batch_scope.h"
#include "platform/include/mail_conf.h"
#include "tests/support/domain_db.h"

// Files that another program holds are not worth ten seconds of waiting here.
extern "C" int sqlite3_busy_timeout(sqlite3* /*db*/, int /*milliseconds*/) {
  return SQLITE_OK;
}

namespace {

using MDOMAIN::DB::DomainDBHandler;
using test::SqliteFile;
using test::StringList;

// Without the indexes that are no part of the schema.
constexpr const char* kObjects =
    "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL AND name NOT LIKE 'mdomain%' "
    "ORDER BY type, name";

StringList Lines(const std::string& path) {
  std::ifstream in(path);
  StringList lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

class HandlerTest : public test::DomainDbTest {
 protected:
  // A file as an older program left it, with a row in every table.
  static void MakeFile(int version) {
    std::vector<std::string> scripts;
    MDOMAIN::UTILS::DomainUtilGetSqliteCmds(scripts);
    for (int i = 0; i < version; ++i) {
      Run(scripts[i]);
    }
    Run("PRAGMA user_version = " + std::to_string(version));
    Run("INSERT INTO user_table VALUES(1000,'o''brien'),(1001,'zoë');"
        "INSERT INTO group_table VALUES(500,'staff','');INSERT INTO group_to_user_table "
        "VALUES(500,1000),(500,1001);"
        "INSERT INTO domain_table VALUES(1,'a.example','','<a>',1),(2,'b.example','d','<g>',0);"
        "INSERT INTO domain_to_additional_domain_table VALUES(1,'c.example');"
        "INSERT INTO primary_domain_table VALUES(1);"
        "INSERT INTO domain_user_role_table VALUES(1,1000,'normal',1);"
        "INSERT INTO domain_user_alias_table VALUES(1,1000,'o''b',0),(2,1001,'z',1);"
        "INSERT INTO domain_group_role_table VALUES(1,500,'domain_admin');"
        "INSERT INTO domain_group_removed_user_table VALUES(1,500,1001)");
  }
  static StringList Contents() {
    StringList all;
    for (const std::string& table :
         Rows("SELECT name FROM sqlite_master WHERE type='table' ORDER BY name")) {
      for (const std::string& row : Rows("SELECT * FROM " + table)) {
        all.push_back(table);
        all.back() += ": " + row;
      }
    }
    return all;
  }
  static StringList Version() { return Rows("PRAGMA user_version"); }
};

TEST_F(HandlerTest, NewFileHasTheWholeSchema) {
  DomainDBHandler* handler = DomainDBHandler::GetDomainDBHandler();
  ASSERT_NE(handler, nullptr);
  EXPECT_EQ(handler, DomainDBHandler::GetDomainDBHandler());
  EXPECT_EQ(Rows(kObjects), Lines(TEST_SOURCE_DIR "/tests/db/schema_version_4.txt"));
  EXPECT_EQ(Version(), StringList{"4"});
  struct stat info {};
  ASSERT_EQ(stat(DbPath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644U);
}

TEST_F(HandlerTest, CreateDbMakesTheSameFile) {
  DomainDBHandler handler(DbPath());
  EXPECT_EQ(handler.createDB(), 0);
  EXPECT_EQ(Rows(kObjects), Lines(TEST_SOURCE_DIR "/tests/db/schema_version_4.txt"));
  EXPECT_EQ(Version(), StringList{"4"});
  DomainDBHandler nowhere(root() + "/missing/x.db");
  EXPECT_NE(nowhere.createDB(), 0);
  EXPECT_TRUE(Logged("Open database fail. dbpath = [" + root() + "/missing/x.db]"));
}

TEST_F(HandlerTest, OlderFilesAreUpgradedWithTheirRows) {
  for (int version = 1; version <= 4; ++version) {
    SCOPED_TRACE(version);
    std::filesystem::remove(DbPath());
    MakeFile(version);
    const StringList before = Contents();
    ASSERT_EQ(before.size(), 14U);
    ASSERT_NE(DomainDBHandler::GetDomainDBHandler(), nullptr);
    EXPECT_EQ(Rows(kObjects), Lines(TEST_SOURCE_DIR "/tests/db/schema_version_4.txt"));
    EXPECT_EQ(Version(), StringList{"4"});
    EXPECT_EQ(Contents(), before);
    DomainDBHandler::CloseDomainDBHandler();
  }
}

TEST_F(HandlerTest, NewerFileIsLeftAsItIs) {
  MakeFile(4);
  Run("ALTER TABLE domain_table ADD COLUMN quota INTEGER; PRAGMA user_version = 7");
  const StringList before = Rows(kObjects);
  ASSERT_NE(DomainDBHandler::GetDomainDBHandler(), nullptr);
  EXPECT_EQ(Rows(kObjects), before);
  EXPECT_EQ(Version(), StringList{"7"});
}

// The view that scripts 2 and 4 replace is missing, so either can be made to fail.
TEST_F(HandlerTest, FailingUpgradeLeavesTheLastWholeVersion) {
  const std::pair<int, std::string> cases[] = {{1, "1"}, {2, "3"}};
  for (const auto& [from, stays_at] : cases) {
    SCOPED_TRACE(from);
    std::filesystem::remove(DbPath());
    MakeFile(from);
    Run("DROP VIEW domain_view");
    const StringList before = Contents();
    EXPECT_EQ(DomainDBHandler::GetDomainDBHandler(), nullptr);
    EXPECT_TRUE(Logged("exec db schema fail, err=[1], no such view: domain_view"));
    EXPECT_TRUE(Logged("Cannot upgrade domain db version: " + std::to_string(from)));
    EXPECT_TRUE(Logged("Domain db error"));
    EXPECT_EQ(Version(), StringList{stays_at});
    EXPECT_EQ(Contents(), before);
  }
}

TEST_F(HandlerTest, UnusableFilesGiveAClearLineAndStayAsTheyAre) {
  const std::string garbage(5000, 'x');
  std::ofstream(DbPath()) << garbage;
  EXPECT_EQ(DomainDBHandler::GetDomainDBHandler(), nullptr);
  EXPECT_TRUE(Logged("Cannot open database [" + DbPath() + "]: file is not a database"));
  EXPECT_TRUE(Logged("Cannot connect domain db"));
  EXPECT_TRUE(Logged("Domain db error"));
  EXPECT_EQ(Read(DbPath().substr(root().size())), garbage);
  std::filesystem::remove(DbPath());

  // Another program's tables: the scripts would stand between them.
  for (const char* version : {"0", "77"}) {
    std::filesystem::remove(DbPath());
    Run(std::string("CREATE TABLE songs(name); PRAGMA user_version = ") + version);
    EXPECT_EQ(DomainDBHandler::GetDomainDBHandler(), nullptr);
    EXPECT_TRUE(Logged("[" + DbPath() + "] belongs to another program"));
    EXPECT_TRUE(Logged("Domain db error"));
    EXPECT_EQ(Rows("SELECT name FROM sqlite_master"), StringList{"songs"});
    EXPECT_EQ(Version(), StringList{version});
  }
  std::filesystem::remove(DbPath());

  // Writing is what is locked: reading the version works, upgrading does not.
  MakeFile(2);
  {
    SqliteFile other(DbPath());
    other.Run("BEGIN IMMEDIATE");
    EXPECT_EQ(DomainDBHandler::GetDomainDBHandler(), nullptr);
    EXPECT_TRUE(Logged("exec db schema fail, err=[5], database is locked"));
    EXPECT_TRUE(Logged("Cannot upgrade domain db version: 2"));
    EXPECT_TRUE(Logged("Domain db error"));
  }
  EXPECT_EQ(Version(), StringList{"2"});
}

TEST_F(HandlerTest, StoresRefuseWorkWithoutAHandler) {
  ASSERT_EQ(mailConfSet("account_type", "ldap", true, 0), 0);  // a directory without a domain name
  MDOMAIN::DB::Domain store;
  EXPECT_TRUE(Logged("domainName is empty"));
  EXPECT_TRUE(Logged("GetUserGroupDomainConfigPath fail"));
  int count = 0;
  // One line each, and nothing of what the operation would log next.
  EXPECT_FALSE(store.SetPrimaryDomain(1) || store.GetAllDomainCount(count) ||
               store.CreateAdditionalDomains(1, {"nodot"}) || store.IsDomainNameExist("a.example"));
  const auto lines = TakeLog();
  ASSERT_EQ(lines.size(), 4U);
  for (const auto& line : lines) {
    EXPECT_NE(line.text.find("Open domainDBHandler cannot open before"), std::string::npos);
    EXPECT_EQ(line.text.rfind("lib-domain/db/domain:", 0), 0U) << line.text;
  }
  ASSERT_EQ(mailConfSet("acc_domain_name", "corp", true, 0), 0);
  EXPECT_NE(DomainDBHandler::GetDomainDBHandler(), nullptr);
  EXPECT_TRUE(std::filesystem::exists(MDOMAIN::PATHS::EtcDir() + "corp_DOMAIN.db"));
}

// On a machine that pulls, whoever has the model open has to see the next one.
TEST_F(HandlerTest, AFileThatTookThePlaceIsRead) {
  const std::string beside = DbPath() + ".new";
  const auto replace_by = [&](const std::string& name) {
    std::filesystem::copy(DbPath(), beside, std::filesystem::copy_options::overwrite_existing);
    SqliteFile(beside).Run("UPDATE domain_table SET domain_name='" + name + "' WHERE domain_idx=1");
    std::filesystem::rename(beside, DbPath());
  };
  MakeFile(4);
  MDOMAIN::DB::Domain store;
  const auto name = [&] {
    std::string text;
    return store.GetName(1, text) ? text : "unreadable";
  };
  EXPECT_EQ(name(), "a.example");
  replace_by("b2.example");
  EXPECT_EQ(name(), "b2.example");
  {
    const BatchScope scope(DomainDBHandler::GetDomainDBHandler());
    replace_by("c2.example");
    EXPECT_EQ(name(), "b2.example");
  }
  EXPECT_EQ(name(), "c2.example");
  std::filesystem::rename(DbPath(), beside);
  EXPECT_EQ(name(), "unreadable");
  EXPECT_TRUE(Logged("was here and is gone"));
  EXPECT_FALSE(std::filesystem::exists(DbPath()));
  std::ofstream(DbPath()) << "no database";
  EXPECT_EQ(name(), "unreadable");
  EXPECT_TRUE(Logged("file is not a database"));
  TakeLog();
  std::filesystem::rename(beside, DbPath());
  EXPECT_EQ(name(), "c2.example");
  EXPECT_NE(DomainDBHandler::GetDomainDBHandler(), nullptr);
}

TEST_F(HandlerTest, SelectGivesTextsAndFailuresCarryTheirReason) {
  DomainDBHandler* handler = DomainDBHandler::GetDomainDBHandler();
  ASSERT_NE(handler, nullptr);
  using Row = std::vector<std::string>;
  EXPECT_EQ(handler->ExecSelectCmd("SELECT NULL, 4294967295, 'é''', '' UNION ALL SELECT 1,2,3,4"),
            (std::vector<Row>{{"", "4294967295", "é'", ""}, {"1", "2", "3", "4"}}));
  const std::pair<std::string, std::string> cases[] = {
      {"SELEC 1", "Failed to prepare: near \"SELEC\": syntax error, cmd: SELEC 1"},
      {"SELECT abs(-9223372036854775808)",
       "sqlite3_step: integer overflow, cmd: SELECT abs(-9223372036854775808)"},
      {"", "sqlite3_step: not an error, cmd: "},
  };
  for (const auto& [sql, message] : cases) {
    try {
      handler->ExecSelectCmd(sql);
      ADD_FAILURE() << "no exception: " << sql;
    } catch (const korvmailserver::LogException& e) {
      EXPECT_EQ(e.code, korvmailserver::ERR_SELECT_QUERY);
      EXPECT_EQ(e.what(), message);
      EXPECT_EQ(e.file, "lib-domain/db/handler");
      EXPECT_TRUE(Logged("(4009) failed to execute select query: " + message));
    }
  }
}

TEST_F(HandlerTest, ForeignKeysAreEnforced) {
  MakeFile(4);
  MDOMAIN::DB::Domain store;
  EXPECT_FALSE(store.SetPrimaryDomain(9));
  EXPECT_TRUE(Logged("fail to insert primary_domain_table"));
  EXPECT_EQ(Rows("SELECT * FROM primary_domain_table"), StringList{"1"});  // and the delete undone
  EXPECT_TRUE(store.Delete({1}));
  EXPECT_EQ(Contents(),
            (StringList{"domain_table: 2|b.example|d|<g>|0", "domain_user_alias_table: 2|1001|z|1",
                        "group_table: 500|staff|", "group_to_user_table: 500|1000",
                        "group_to_user_table: 500|1001", "user_table: 1000|o'brien",
                        "user_table: 1001|zoë"}));
}

}  // namespace
