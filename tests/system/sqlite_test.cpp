#include "platform/include/sqlite.h"

#include <gtest/gtest.h>

namespace {

using korvmailserver::Connection;
using korvmailserver::Statement;
using korvmailserver::Transaction;

class SqliteTest : public ::testing::Test {
 protected:
  SqliteTest() {
    EXPECT_EQ(db.Open(":memory:", Connection::Mode::kCreate, 0), SQLITE_OK);
    EXPECT_EQ(db.Run("CREATE TABLE t(a UNIQUE)"), SQLITE_OK);
  }
  bool Insert(std::string_view text) {
    Statement insert(db.Get(), "INSERT INTO t VALUES(?1)");
    insert.Bind(1, text);
    return insert.Run();
  }
  int Count() {
    Statement count(db.Get(), "SELECT COUNT(*) FROM t");
    return count.Step() == SQLITE_ROW ? count.Int(0) : -1;
  }
  Connection db;
};

TEST_F(SqliteTest, BoundValuesComeBack) {
  const std::string zero("a\0'b", 4);
  Statement select(db.Get(), "SELECT ?1, ?2, ?3, ?4, ?5");
  EXPECT_TRUE(select.Bind(1, zero) && select.Bind(2, std::string_view()) && select.Bind(3, -7) &&
              select.Bind(4, 5000000000LL) && select.Bind(5, nullptr));
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(select.Step(), SQLITE_ROW);
    EXPECT_EQ(select.Texts(), (std::vector<std::string>{zero, "", "-7", "5000000000", ""}));
    EXPECT_EQ(select.Int64(3), 5000000000);
    EXPECT_FALSE(select.IsNull(1));
    EXPECT_TRUE(select.IsNull(4));
    EXPECT_TRUE(select.IsNull(99));
    select.Reset();
  }
}

TEST_F(SqliteTest, FailuresAreNotTheEndOfTheRows) {
  int rows = 0;
  const auto count = [&](const Statement&) { ++rows; };
  EXPECT_FALSE(Statement(db.Get(), "SELECT nonsense").ForEachRow(count));
  EXPECT_FALSE(Statement(nullptr, "SELECT 1").ForEachRow(count));
  Statement unbound(db.Get(), "SELECT ?1");
  EXPECT_FALSE(unbound.Bind(2, "x"));
  EXPECT_FALSE(unbound.ForEachRow(count)) << "a value is missing";
  EXPECT_EQ(rows, 0);
  // The second row's number is too large for abs().
  const char* const breaks =
      "SELECT abs(x) FROM (SELECT 1 AS x UNION ALL SELECT -9223372036854775807 - 1)";
  Statement broken(db.Get(), breaks);
  EXPECT_FALSE(broken.ForEachRow(count));
  EXPECT_EQ(rows, 1);
  EXPECT_STREQ(broken.Error(), "integer overflow");
}

TEST_F(SqliteTest, ATransactionIsRolledBackUnlessItIsCommitted) {
  for (const bool commit : {false, true}) {
    Transaction transaction(db.Get(), Transaction::Kind::kWrite);
    EXPECT_EQ(transaction.Begun(), SQLITE_OK);
    EXPECT_TRUE(Insert("x")) << "the first was rolled back";
    EXPECT_NE(Transaction(db.Get(), Transaction::Kind::kRead).Begun(), SQLITE_OK) << "no nesting";
    EXPECT_FALSE(Insert("x"));
    EXPECT_STREQ(sqlite3_errmsg(db.Get()), "UNIQUE constraint failed: t.a");
    EXPECT_EQ(Count(), 1);
    EXPECT_EQ(commit ? transaction.Commit() : SQLITE_OK, SQLITE_OK);
  }
  EXPECT_EQ(Count(), 1);
}

TEST_F(SqliteTest, AConnectionKeepsTheTextOfItsFailure) {
  EXPECT_EQ(db.Run("INSERT nonsense"), SQLITE_ERROR);
  EXPECT_EQ(db.Run("SELECT 1"), SQLITE_OK);
  EXPECT_EQ(db.Error(), "near \"nonsense\": syntax error");
  EXPECT_EQ(db.Open("/no/such/folder/x.db", Connection::Mode::kRead, 0), SQLITE_CANTOPEN);
  EXPECT_EQ(db.Get(), nullptr);
  EXPECT_EQ(db.Error(), "unable to open database file");
  EXPECT_EQ(db.Run("SELECT 1"), SQLITE_MISUSE);
}

}  // namespace
