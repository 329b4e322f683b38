// Queries whose compiled statements are kept: they give what their texts give.
#include "lib-domain/db/sql.h"

#include <filesystem>
#include <stdexcept>

#include "lib-domain/base/error_code.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/statement.h"
#include "tests/support/domain_db.h"

namespace {

using MDOMAIN::DB::DomainDBHandler;
using MDOMAIN::DB::INTERNAL::Sql;
using test::SqliteFile;
using test::StringList;

constexpr const char* kById = "SELECT a, b, typeof(b), c FROM odd WHERE b = '%d' OR b = %u";
constexpr const char* kByText = "SELECT a, b, c FROM odd WHERE c = '%q' COLLATE NOCASE OR a = '%q'";

class SqlTest : public test::DomainDbTest {
 protected:
  void SetUp() override {
    DomainDbTest::SetUp();
    handler_ = DomainDBHandler::GetDomainDBHandler();
    Run("CREATE TABLE odd(a TEXT, b INTEGER, c TEXT);INSERT INTO odd VALUES(NULL,NULL,NULL),"
        "('','',''),('1',1,'1'),('x','x','X'),('o''neil',-1,'O''NEIL'),('zo\xc3\xab',4294967295,"
        "'zo\xc3\x8b'),(x'6100','5.0',x'41'),('a',5.5,'a%q'),('\xff','1e3','?1')");
  }
  StringList Read(const Sql& sql, const std::function<bool()>& go_on = nullptr) {
    StringList rows;
    handler_->ForEachRow(sql, [&](const korvmailserver::Statement& row) {
      std::string text;
      for (const std::string& cell : row.Texts()) {
        text += cell + "|";
      }
      rows.push_back(text);
      return !go_on || go_on();
    });
    return rows;
  }
  // What the query throws.
  std::string Failure(const Sql& sql) {
    try {
      Read(sql);
    } catch (const korvmailserver::LogException& exception) {
      TakeLog();
      return exception.what();
    }
    return "";
  }
  static int DeletedFilesOpen() {
    int open = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      const std::string target = std::filesystem::read_symlink(entry, gone);
      open += target.find("(deleted)") != std::string::npos ? 1 : 0;
    }
    return open;
  }

  DomainDBHandler* handler_ = nullptr;
};

TEST_F(SqlTest, BoundValuesFindWhatWrittenOnesFind) {
  size_t found = 0;
  for (const int number : {0, 1, -1, 5, 1000}) {
    for (const unsigned id : {0U, 1U, 5U, 4294967295U}) {
      const std::string text = MDOMAIN::DB::INTERNAL::FormatStatement(kById, number, id);
      EXPECT_EQ(Sql(kById, number, id).Text(), text);
      const StringList rows = Read(Sql(kById, number, id));
      EXPECT_EQ(rows, Read(Sql(text))) << text;
      found += rows.size();
    }
  }
  const std::string zero("x\0y", 3);
  for (const std::string& value :
       {std::string(), std::string("1"), std::string("x"), std::string("o'Neil"), zero,
        std::string("zo\xc3\xab"), std::string("a%q"), std::string("a\0", 2), std::string("?1"),
        std::string("\xff"), std::string("'; DROP TABLE odd; --")}) {
    const std::string text =
        MDOMAIN::DB::INTERNAL::FormatStatement(kByText, value.c_str(), value.c_str());
    EXPECT_EQ(Sql(kByText, value, value).Text(), text);
    const StringList rows = Read(Sql(kByText, value, value));
    EXPECT_EQ(rows, Read(Sql(text))) << text;
    found += rows.size();
  }
  EXPECT_GT(found, 20U);
  const std::string quotes(600000, '\'');
  EXPECT_FALSE(Sql(kByText, quotes, "").Fits());
  EXPECT_TRUE(Sql(kByText, quotes.substr(0, 400000), "").Fits());
}

TEST_F(SqlTest, AStatementInUseIsNotHandedOutAgain) {
  const StringList all = Read("SELECT rowid FROM odd");
  StringList inner;
  EXPECT_EQ(Read("SELECT rowid FROM odd",
                 [&] {
                   inner = Read("SELECT rowid FROM odd", [&] {
                     EXPECT_EQ(Read("SELECT rowid FROM odd"), all);
                     return true;
                   });
                   return true;
                 }),
            all);
  EXPECT_EQ(inner, all);
  EXPECT_EQ(Read("SELECT rowid FROM odd", [] { return false; }).size(), 1U);
  EXPECT_THROW(
      Read("SELECT rowid FROM odd", []() -> bool { throw std::runtime_error("in between"); }),
      std::runtime_error);
  Run("DELETE FROM odd");  // nobody reads any more
  EXPECT_EQ(Read("SELECT rowid FROM odd"), StringList{});
}

TEST_F(SqlTest, AFailureShowsTheTextWithItsValuesAndTheNextRunIsNew) {
  constexpr const char* kOverflow = "SELECT abs(-9223372036854775807 - %d), 'it''s', '%q'";
  EXPECT_EQ(Failure(Sql(kOverflow, 1, "o'neil")),
            "sqlite3_step: integer overflow, cmd: SELECT abs(-9223372036854775807 - 1), 'it''s', "
            "'o''neil'");
  EXPECT_EQ(Read(Sql(kOverflow, 0, "")), StringList{"9223372036854775807|it's||"});
  const Sql by_id(kById, 1, 1U);
  const StringList rows = Read(by_id);
  const std::string other = "SELECT count(*) FROM odd";
  EXPECT_EQ(Read(other.c_str()), StringList{"9|"});
  Run("ALTER TABLE odd RENAME TO even");
  EXPECT_EQ(Failure(by_id), "sqlite3_step: no such table: odd, cmd: " + by_id.Text());
  EXPECT_EQ(Failure(other.c_str()), "Failed to prepare: no such table: odd, cmd: " + other);
  Run("ALTER TABLE even RENAME TO odd");
  EXPECT_EQ(Read(by_id), rows);
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(Read(Sql(("SELECT " + std::to_string(i)).c_str())),
              StringList{std::to_string(i) + "|"});
  }
}

TEST_F(SqlTest, TheFileIsClosedWithItsStatements) {
  const auto replace = [&] {
    std::filesystem::copy(DbPath(), DbPath() + ".new");
    SqliteFile(DbPath() + ".new").Run("UPDATE odd SET a = 'new'");
    std::filesystem::rename(DbPath() + ".new", DbPath());
    return handler_->FollowFile();
  };
  const StringList old = Read("SELECT a FROM odd");
  StringList now;
  EXPECT_EQ(Read("SELECT a FROM odd",
                 [&] {
                   now = now.empty() && replace() ? Read("SELECT a FROM odd") : now;
                   return true;
                 }),
            old);
  EXPECT_EQ(now, StringList(9, "new|"));
  EXPECT_EQ(DeletedFilesOpen(), 0);
  EXPECT_EQ(Read("SELECT a FROM odd"), now);
  Run("UPDATE odd SET a = 'old'");
  replace();
  EXPECT_EQ(DeletedFilesOpen(), 0);
}

}  // namespace
