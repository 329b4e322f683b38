// The e-mail owner registry through its facade: answers, odd input, files that cannot be used.
#include "lib-domain/api/email_owner.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/domain_db.h"

// Files that another program holds are not worth ten seconds of waiting here.
extern "C" int sqlite3_busy_timeout(sqlite3* /*db*/, int /*milliseconds*/) {
  return SQLITE_OK;
}

namespace {

using MDOMAIN::API::EmailOwner;
using test::SqliteFile;
using test::StringList;

class EmailOwnerTest : public test::RootTest {
 protected:
  std::string Path() const { return root() + "/owner.db"; }
  void Fill() {
    EmailOwner registry(Path());
    ASSERT_TRUE(registry.CreateDomainPart({{"Example.com", 1}, {"bücher.example", 2}}));
    ASSERT_TRUE(registry.CreateLocalPart({{"Alice", 1, "alice"},
                                          {"o'brien", 1, "obrien"},
                                          {"zoë", 2, "zoe"},
                                          {"alice", 2, "other"}}));
  }
  // "-" when the look-up fails.
  static std::string Ask(EmailOwner& registry, const std::string& address) {
    std::string owner = "preset";
    return registry.GetOwner(address, owner) ? owner : "-";
  }
};

TEST_F(EmailOwnerTest, Answers) {
  Fill();
  EmailOwner registry(Path());
  const std::pair<std::string, std::string> cases[] = {
      {"alice@example.com", "alice"},
      {"ALICE@EXAMPLE.COM", "alice"},
      {"alice@bücher.example", "other"},
      {"o'brien@example.com", "obrien"},
      {"zoë@bücher.example", "zoe"},
      {"ZOË@bücher.example", ""},  // only ASCII letters have no case
      {"alice@unknown.example", ""},
      {"nobody@example.com", ""},
      {"alice@x@example.com", ""},
      {"@example.com", ""},
      {"alice@", ""},
      {"@", ""},
      {"alice", "-"},
      {"", "-"},
      {"alice%@example.com", ""},
      {"x' OR '1'='1@example.com", ""},
      {std::string(10000, 'a') + "@example.com", ""},
      {std::string("alice\0@example.com", 18), ""},
      {std::string("alice@example.com\0.evil", 23), ""},
  };
  for (const auto& [address, owner] : cases) {
    EXPECT_EQ(Ask(registry, address), owner) << address;
  }
}

TEST_F(EmailOwnerTest, FirstOwnerStays) {
  Fill();
  EmailOwner registry(Path());
  ASSERT_TRUE(registry.CreateLocalPart({{"Alice", 1, "thief"}, {"ALICE", 1, "late"}}));
  ASSERT_TRUE(registry.CreateDomainPart({{"Example.com", 9}, {"example.com", 2}}));
  EXPECT_EQ(Ask(registry, "ALICE@example.com"), "alice");
  EXPECT_FALSE(registry.CreateLocalPart({{"new", 1, "n"}, {std::string("a\0b", 3), 1, "x"}}));
  EXPECT_TRUE(Logged("lib-domain/db/email_owner:"));
  EXPECT_FALSE(registry.CreateDomainPart({{std::string("a\0b", 3), 1}}));
  EXPECT_TRUE(Logged("fail to create insert cmd"));
  EXPECT_EQ(Ask(registry, "new@example.com"), "");  // nothing of the list was written
  EXPECT_TRUE(registry.CreateLocalPart({}));
}

TEST_F(EmailOwnerTest, DefaultFileAndSchema) {
  Write("/var/packages/Postara-Server/target/etc/placeholder", "");
  EmailOwner registry;
  SqliteFile file(root() + "/var/packages/Postara-Server/target/etc/email_owner.db");
  EXPECT_EQ(
      file.Rows("SELECT sql FROM sqlite_master WHERE type='table' ORDER BY name"),
      (StringList{"CREATE TABLE domain_part(domain_name TEXT PRIMARY KEY, domain_idx INTEGER NOT "
                  "NULL )",
                  "CREATE TABLE local_part(local_part TEXT NOT NULL, domain_idx INTEGER NOT NULL, "
                  "user_name TEXT NOT NULL, PRIMARY KEY (local_part, domain_idx))"}));
  // A look-up reads no table from end to end.
  for (const std::string& step : file.Rows(
           "EXPLAIN QUERY PLAN SELECT user_name FROM local_part WHERE local_part = 'a' COLLATE "
           "NOCASE AND domain_idx = (SELECT domain_idx FROM domain_part WHERE domain_name = 'd' "
           "COLLATE NOCASE LIMIT 1)")) {
    EXPECT_EQ(step.find("SCAN"), std::string::npos) << step;
  }
}

TEST_F(EmailOwnerTest, OlderFileWithoutTheIndexesGetsThem) {
  Fill();
  SqliteFile(Path()).Run("DROP INDEX IDX_local_part_nocase; DROP INDEX IDX_domain_part_nocase");
  EmailOwner registry(Path());
  EXPECT_EQ(Ask(registry, "ALICE@example.com"), "alice");
  EXPECT_EQ(SqliteFile(Path()).Rows("SELECT count(*) FROM sqlite_master WHERE sql LIKE '%NOCASE%'"),
            StringList{"2"});
}

TEST_F(EmailOwnerTest, ReadOnlyFileAnswersAndTakesNothing) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs to give up its rights for a moment";
  }
  Fill();
  SqliteFile(Path()).Run("DROP INDEX IDX_local_part_nocase; DROP INDEX IDX_domain_part_nocase");
  chmod(root().c_str(), 0755);
  chmod(Path().c_str(), 0444);
  ASSERT_EQ(seteuid(65534), 0);
  {
    EmailOwner registry(Path());
    EXPECT_EQ(Ask(registry, "ALICE@example.com"), "alice");
    EXPECT_FALSE(registry.CreateLocalPart({{"new", 1, "n"}}));
    EXPECT_TRUE(Logged("fail to insert local_part table"));
    EXPECT_TRUE(Logged("[" + Path() + "]: attempt to write a readonly database"));
    EXPECT_FALSE(registry.CreateDomainPart({{"new.example", 1}}));
    EXPECT_TRUE(Logged("fail to insert domain_name table"));
  }
  ASSERT_EQ(seteuid(0), 0);
}

TEST_F(EmailOwnerTest, UnusableFile) {
  Fill();
  SqliteFile other(Path());
  other.Run("BEGIN EXCLUSIVE");
  EmailOwner registry(Path());
  EXPECT_TRUE(Logged("Cannot open database [" + Path() + "]: database is locked"));
  EXPECT_EQ(Ask(registry, "alice@example.com"), "-");
  EXPECT_TRUE(Logged("Open DBHandler cannot open before"));
  EXPECT_FALSE(registry.CreateLocalPart({}));
  EXPECT_TRUE(Logged("Open DBHandler cannot open before"));
}

TEST_F(EmailOwnerTest, FailuresBetweenLookUpsAreTold) {
  Fill();
  EmailOwner registry(Path());
  EXPECT_EQ(Ask(registry, "alice@example.com"), "alice");
  {
    SqliteFile other(Path());
    other.Run("BEGIN EXCLUSIVE");
    EXPECT_EQ(Ask(registry, "alice@example.com"), "-");
    EXPECT_TRUE(Logged("sqlite3_step error, database is locked"));
    EXPECT_FALSE(registry.CreateLocalPart({{"new", 1, "n"}}));
    EXPECT_TRUE(Logged("fail to insert local_part table"));
  }
  EXPECT_EQ(Ask(registry, "alice@example.com"), "alice");
  SqliteFile(Path()).Run("ALTER TABLE local_part ADD COLUMN note TEXT");
  EXPECT_EQ(Ask(registry, "alice@example.com"), "alice");
  SqliteFile(Path()).Run("DROP TABLE local_part");
  EXPECT_EQ(Ask(registry, "alice@example.com"), "-");
  EXPECT_TRUE(Logged("fail to prepare get owner cmd"));
}

}  // namespace
