// A kept connection serves only while nothing about its file is another; else the usual way is
// gone.
#include "platform/include/kept_database.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/children.h"
#include "tests/support/fixture.h"

namespace test {

namespace fs = std::filesystem;
using korvmailserver::CompiledStatements;
using korvmailserver::Connection;
using korvmailserver::KeptDatabase;

class KeptDatabaseTest : public RootTest {
 protected:
  KeptDatabaseTest() {
    fs::create_directory(root() + "/a");
    Make(Path(), 1);
    Kept().Keep(Path());
  }
  std::string Path() const { return root() + "/a/kept.db"; }
  KeptDatabase& Kept() const { return KeptDatabase::Of(Path()); }
  static void Make(const std::string& path, int rows) {
    Connection file;
    ASSERT_EQ(file.Open(path, Connection::Mode::kCreate, 0), SQLITE_OK);
    ASSERT_EQ(file.Run("CREATE TABLE t(x)"), SQLITE_OK);
    for (int i = 0; i < rows; ++i) {
      ASSERT_EQ(file.Run("INSERT INTO t VALUES(1)"), SQLITE_OK);
    }
  }
  // The number of rows; -1 where nothing usable is kept.
  int Rows(const std::string& path) const {
    int rows = -1;
    const bool is_read = Kept().Run(path, [&](sqlite3* db, CompiledStatements& compiled) {
      return compiled.Get(db, "SELECT count(*) FROM t").ForEachRow([&](const auto& row) {
        rows = row.Int(0);
      });
    });
    return is_read ? rows : -1;
  }
  // The same, known from before where nobody has committed since.
  int KnownRows(const std::string& path) const {
    const int* const rows =
        Kept().Ask<int>(path, "rows", [](sqlite3* db, CompiledStatements& compiled, int& answer) {
          return compiled.Get(db, "SELECT count(*) FROM t").ForEachRow([&](const auto& row) {
            answer = row.Int(0);
          });
        });
    return rows == nullptr ? -1 : *rows;
  }
};

TEST_F(KeptDatabaseTest, ServesUntilSomethingIsAnother) {
  const struct {
    const char* name;
    std::function<void()> change;
    int rows;
  } cases[] = {
      {"nothing", [] {}, 1},
      {"another row",
       [&] {
         Connection file;
         file.Open(Path(), Connection::Mode::kWrite, 0);
         file.Run("INSERT INTO t VALUES(2)");
       },
       2},
      {"another file",
       [&] {
         Make(root() + "/new.db", 3);
         fs::rename(root() + "/new.db", Path());
       },
       -1},
      {"no file", [&] { fs::remove(Path()); }, -1},
      {"an empty file", [&] { fs::resize_file(Path(), 0); }, -1},
      {"no database", [&] { Write("/a/kept.db", std::string(8192, 'g')); }, -1},
      {"a link",
       [&] {
         fs::rename(Path(), root() + "/b.db");
         fs::create_symlink(root() + "/b.db", Path());
       },
       -1},
      {"rights to the file", [&] { chmod(Path().c_str(), 0666); }, -1},
      {"rights to the folder", [&] { chmod((root() + "/a").c_str(), 0777); }, -1},
      {"no table",
       [&] {
         Connection file;
         file.Open(Path(), Connection::Mode::kWrite, 0);
         file.Run("DROP TABLE t");
       },
       -1},
  };
  for (const auto& one : cases) {
    fs::remove_all(root() + "/a");
    fs::create_directory(root() + "/a");
    Make(Path(), 1);
    Kept().Keep(Path());
    EXPECT_EQ(Rows(Path()), 1) << one.name;
    EXPECT_EQ(KnownRows(Path()), 1) << one.name;
    one.change();
    EXPECT_EQ(KnownRows(Path()), one.rows) << one.name;
    EXPECT_EQ(Rows(Path()), one.rows) << one.name;
  }
}

TEST_F(KeptDatabaseTest, IsOfOnePathAndOneProcessAndDoesNotWait) {
  EXPECT_TRUE(InChild([&] { return Rows(Path()) == -1; }));
  EXPECT_EQ(KnownRows(Path()), 1);
  Connection writer;
  ASSERT_EQ(writer.Open(Path(), Connection::Mode::kWrite, 0), SQLITE_OK);
  ASSERT_EQ(writer.Run("BEGIN EXCLUSIVE"), SQLITE_OK);
  EXPECT_EQ(KnownRows(Path()), 1) << "nothing is committed yet";
  EXPECT_EQ(Rows(Path()), -1);
  ASSERT_EQ(writer.Run("ROLLBACK"), SQLITE_OK);
  EXPECT_EQ(Rows(Path()), -1) << "nothing is kept after a failure";
  Kept().Keep(Path());
  Make(root() + "/kept.db", 2);
  EXPECT_EQ(Rows(root() + "/kept.db"), -1) << "the same name elsewhere";
}

}  // namespace test
