#include "platform/include/batch_scope.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "platform/include/sqlite.h"
#include "tests/support/children.h"
#include "tests/support/fixture.h"

namespace {

namespace fs = std::filesystem;
using korvmailserver::Connection;
using korvmailserver::Statement;

constexpr const char* kSchema = "CREATE TABLE t(a TEXT UNIQUE);CREATE TABLE u(b INTEGER)";

class DbHandlerTest : public test::RootTest {
 protected:
  std::string Path() const { return root() + "/test.db"; }
  // What another connection sees of table t, in order.
  std::string Stored() {
    Connection db;
    std::string rows;
    EXPECT_EQ(db.Open(Path(), Connection::Mode::kRead, 0), SQLITE_OK);
    Statement(db.Get(), "SELECT a FROM t ORDER BY rowid").ForEachRow([&](const Statement& row) {
      rows += row.Text(0);
    });
    return rows;
  }
  static SQLCmd Put(const std::string& a) { return {"INSERT INTO t VALUES('" + a + "')"}; }

  DBHandler handler{Path(), kSchema};
};

// Holds a lock on a database until it goes out of scope.
class Locker {
 public:
  explicit Locker(const std::string& path, const char* lock = "BEGIN EXCLUSIVE") {
    EXPECT_EQ(db_.Open(path, Connection::Mode::kWrite, 0), SQLITE_OK);
    EXPECT_EQ(db_.Run(lock), SQLITE_OK);
  }

 private:
  Connection db_;
};

TEST_F(DbHandlerTest, CreatesTheFileWithItsModeAndSchemaOnce) {
  const mode_t mask = umask(077);
  EXPECT_EQ(handler.connect(), 0);
  EXPECT_EQ(handler.connect(), 0);
  umask(mask);
  struct stat info {};
  ASSERT_EQ(stat(Path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644U);
  EXPECT_EQ(handler.exeCmds(Put("x"), true), 0);
  handler.disconnect();
  EXPECT_EQ(handler.exeCmds(Put("y"), true), SQLITE_MISUSE);
  EXPECT_EQ(handler.connect(), 0);
  EXPECT_EQ(handler.GetTableDataCount("t"), 1);
  EXPECT_EQ(handler.GetTableDataCount("no \"such' table"), -1);
}

TEST_F(DbHandlerTest, OwnerAndModeThatAKillOrACopyLeftAreMended) {
  WriteAccounts("Postara-Server:x:80:81::/:\n", "");
  const std::tuple<const char*, mode_t, mode_t> cases[] = {
      {"", 0600, 0644}, {"made", 0640, 0640}, {"made", 0666, 0644}};
  for (const auto& [content, mode, wanted] : cases) {
    fs::remove(Path());
    if (*content == '\0') {
      Write("/test.db", "");
    } else {
      ASSERT_EQ(DBHandler(Path(), kSchema).connect(), 0);
    }
    ASSERT_EQ(chown(Path().c_str(), geteuid(), getegid()), 0);
    chmod(Path().c_str(), mode);
    EXPECT_EQ(DBHandler(Path(), kSchema).connect(), 0);
    struct stat info {};
    ASSERT_EQ(stat(Path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, wanted);
    EXPECT_EQ(info.st_uid, geteuid() == 0 ? 80U : geteuid());
  }
}

TEST_F(DbHandlerTest, IsNotOpenedWhereSomebodyElseDecidesWhatItIs) {
  fs::create_symlink(root() + "/target.db", Path());
  EXPECT_NE(DBHandler(Path(), kSchema).connect(), 0);
  EXPECT_TRUE(Logged("[" + Path() + "]: it is a symbolic link"));
  EXPECT_NE(Connection().Open(Path(), Connection::Mode::kCreate, 0), SQLITE_OK);
  EXPECT_FALSE(fs::exists(root() + "/target.db"));
  fs::create_directory(root() + "/open");
  chmod((root() + "/open").c_str(), 0777);
  EXPECT_NE(DBHandler(root() + "/open/x.db", kSchema).connect(), 0);
  EXPECT_TRUE(Logged("[" + root() + "/open/x.db]: everybody may write to the folder"));
}

TEST_F(DbHandlerTest, GivesTheSchemaToAnEmptyFileAndCreatesOneWithoutASchema) {
  Write("/test.db", "");
  EXPECT_EQ(DBHandler(Path(), kSchema).connect(), 0);
  EXPECT_EQ(DBHandler(root() + "/bare.db", "").connect(), 0);
  EXPECT_TRUE(fs::exists(root() + "/bare.db"));
}

TEST_F(DbHandlerTest, RefusesWhatIsNoDatabaseAndLeavesItAsItWas) {
  const std::pair<const char*, std::string> cases[] = {
      {"one byte", "x"},
      {"short text", "hello\n"},
      {"a page of text", std::string(4096, 'x')},
      {"a cut header", std::string("SQLite format 3\0", 16) + std::string(500, '\xff')}};
  for (const auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    Write("/test.db", bytes);
    EXPECT_NE(handler.connect(), 0);
    EXPECT_EQ(handler.getDB(), nullptr);
    EXPECT_TRUE(Logged("[" + Path() + "]: file is not a database"));
    EXPECT_TRUE(TakeLog().empty());
    EXPECT_TRUE(Read("/test.db") == bytes);
  }
}

TEST_F(DbHandlerTest, SaysWhatStandsInTheWayAndLeavesNothingBehind) {
  fs::create_directory(Path());
  EXPECT_NE(DBHandler(Path(), kSchema).connect(), 0);
  EXPECT_TRUE(Logged("[" + Path() + "]: it is a directory"));
  Write("/file", "");
  EXPECT_NE(DBHandler(root() + "/file/x.db", kSchema).connect(), 0);
  EXPECT_TRUE(Logged("[" + root() + "/file/x.db]: Not a directory"));
  EXPECT_EQ(DBHandler(root() + "/new/folder/x.db", kSchema).connect(), 0);
  EXPECT_NE(DBHandler(root() + "/bad.db", "CREATE TABLE a(b);CREATE nonsense").connect(), 0);
  EXPECT_TRUE(Logged("syntax error"));
  EXPECT_FALSE(fs::exists(root() + "/bad.db"));
}

// Root may write everywhere, so the read-only cases need a process that is not root.
TEST_F(DbHandlerTest, AFileThatMayOnlyBeReadIsReadAndTellsWhoWrites) {
  ASSERT_EQ(DBHandler(Path(), kSchema).connect(), 0);
  chmod(root().c_str(), 0755);
  for (const mode_t mode : {0444, 0000}) {
    chmod(Path().c_str(), mode);
    EXPECT_TRUE(test::InChild([&] {
      if (geteuid() == 0 && setuid(65534) != 0) {
        return false;
      }
      if (mode == 0) {
        return handler.connect() == SQLITE_CANTOPEN && Logged("Permission denied");
      }
      return handler.connect() == 0 && handler.GetTableDataCount("t") == 0 &&
             handler.exeCmds(Put("x"), true) == SQLITE_READONLY &&
             korvmailserver::LastDatabaseFailure() ==
                 "database " + Path() + ": attempt to write a readonly database";
    })) << "mode "
        << mode;
  }
}

TEST_F(DbHandlerTest, ALockedFileIsToldAndChangesNothing) {
  handler.setBusyTimeout(20);
  ASSERT_EQ(handler.connect(), 0);
  DBHandler late(Path(), kSchema);
  late.setBusyTimeout(20);
  {
    const Locker locker(Path());
    EXPECT_EQ(handler.exeCmds(Put("x"), true), SQLITE_BUSY);
    EXPECT_EQ(late.connect(), SQLITE_BUSY);
    EXPECT_TRUE(Logged("database is locked"));
  }
  EXPECT_EQ(handler.exeCmds(Put("y"), true), 0);
  EXPECT_EQ(Stored(), "y");
}

TEST_F(DbHandlerTest, ABatchIsWholeOrNotAtAllAndTellsWhy) {
  ASSERT_EQ(handler.connect(), 0);
  EXPECT_EQ(handler.exeCmds({}, true), 0);
  EXPECT_EQ(
      handler.exeCmds({"INSERT INTO t VALUES('1');INSERT INTO t VALUES('2')", Put("3")[0]}, true),
      0);
  EXPECT_EQ(handler.exeCmds({Put("4")[0], Put("1")[0], Put("5")[0]}, true), SQLITE_CONSTRAINT);
  EXPECT_EQ(handler.GetErr(), SQLITE_CONSTRAINT);
  EXPECT_EQ(handler.GetErrText(), "UNIQUE constraint failed: t.a");
  EXPECT_EQ(Stored(), "123");
  EXPECT_EQ(handler.exeCmds({Put("6")[0], "INSERT nonsense", Put("7")[0]}, false), SQLITE_ERROR);
  EXPECT_EQ(Stored(), "1236");
  EXPECT_EQ(handler.exeCmds({"DELETE FROM t"}, true), 0);
  EXPECT_EQ(handler.GetErr(), 0);
}

TEST_F(DbHandlerTest, AScopeIsOneTransactionOfWholeBatches) {
  ASSERT_EQ(handler.connect(), 0);
  {
    const BatchScope outer(&handler);
    {
      const Locker locker(Path());  // an idle scope takes no lock, so this one can be had
    }
    EXPECT_EQ(handler.exeCmds(Put("a"), true), 0);
    {
      BatchScope inner(&handler);
      EXPECT_EQ(handler.exeCmds({Put("b")[0], Put("a")[0]}, true), SQLITE_CONSTRAINT);
      EXPECT_EQ(inner.Commit(), 0);
    }
    EXPECT_EQ(handler.exeCmds({Put("c")[0], "INSERT nonsense"}, false), SQLITE_ERROR);
    EXPECT_EQ(handler.exeCmds(Put("d"), true), 0);
    EXPECT_EQ(handler.GetTableDataCount("t"), 3);
    EXPECT_EQ(Stored(), "");
  }
  EXPECT_EQ(Stored(), "acd");
  EXPECT_EQ(handler.exeCmds(Put("e"), true), 0) << "no scope is left open";
  EXPECT_EQ(Stored(), "acde");
  const BatchScope scope(&handler);
  EXPECT_EQ(handler.exeCmds(Put("f"), true), 0);
  handler.disconnect();
  EXPECT_EQ(Stored(), "acdef") << "disconnecting keeps the batches";
}

TEST_F(DbHandlerTest, AScopeThatCannotCommitRollsBack) {
  ASSERT_EQ(handler.connect(), 0);
  handler.setBusyTimeout(20);
  auto reader = std::make_unique<Locker>(Path(), "BEGIN; SELECT * FROM t");
  {
    BatchScope scope(&handler);
    EXPECT_EQ(handler.exeCmds(Put("a"), true), 0);
    EXPECT_EQ(scope.Commit(), SQLITE_BUSY);
    EXPECT_EQ(scope.Commit(), 0) << "it has ended";
  }
  {
    const BatchScope scope(&handler);
    EXPECT_EQ(handler.exeCmds(Put("b"), true), 0);
  }
  EXPECT_TRUE(Logged("Cannot commit to database"));
  reader.reset();
  EXPECT_EQ(Stored(), "");
  EXPECT_EQ(handler.exeCmds(Put("c"), true), 0);
  EXPECT_EQ(Stored(), "c");
}

// A full disk makes SQLite roll back more than the batch: later batches must not pass as if the
// earlier ones were stored.
TEST_F(DbHandlerTest, AScopeWhoseTransactionIsLostFailsToItsEnd) {
  ASSERT_EQ(handler.connect(), 0);
  {
    BatchScope scope(&handler);
    EXPECT_EQ(handler.exeCmds(Put("a"), true), 0);
    EXPECT_NE(handler.exeCmds({"INSERT OR ROLLBACK INTO t VALUES('a')"}, true), 0);
    EXPECT_NE(handler.exeCmds(Put("b"), true), 0);
    EXPECT_NE(scope.Commit(), 0);
  }
  EXPECT_EQ(Stored(), "");
  {  // Between two batches a query can fail so.
    BatchScope scope(&handler);
    EXPECT_EQ(handler.exeCmds(Put("a"), true), 0);
    ASSERT_EQ(sqlite3_exec(handler.getDB(), "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(handler.exeCmds(Put("b"), true), SQLITE_ABORT);
    EXPECT_EQ(handler.GetErrText(), "a failed query rolled the transaction back");
    EXPECT_EQ(scope.Commit(), SQLITE_ABORT);
  }
  EXPECT_EQ(Stored(), "");
  EXPECT_EQ(handler.exeCmds(Put("c"), true), 0);
  EXPECT_EQ(Stored(), "c");
}

TEST_F(DbHandlerTest, RegenerationKeepsTheBrokenFileAndItsJournalApart) {
  Write("/test.db", "garbage");
  Write("/test.db-journal", "of the garbage");
  EXPECT_EQ(handler.regenDB(), 0);
  EXPECT_EQ(handler.exeCmds(Put("a"), true), 0);
  EXPECT_EQ(Read("/test.db.broken"), "garbage");
  EXPECT_EQ(Read("/test.db.broken-journal"), "of the garbage");

  Write("/other.db", "old");
  DBHandler failing(root() + "/other.db", "CREATE nonsense");
  EXPECT_NE(failing.regenDB(), 0);
  EXPECT_TRUE(Logged("syntax error"));
  EXPECT_EQ(Read("/other.db"), "old");
}

// Every process finds the file missing or empty, and exactly one may run the schema.
TEST_F(DbHandlerTest, ProcessesThatCreateTheFileAtOnceAllSucceed) {
  EXPECT_EQ(test::FailingChildren(6,
                                  [&](int number) {
                                    return handler.connect() == 0 &&
                                           handler.exeCmds(Put(std::to_string(number)), true) == 0;
                                  }),
            0);
  EXPECT_EQ(Stored().size(), 6U);
}

}  // namespace
