// The owner registry is replaced while other programs have it open.
#include "lib-domain/sync/owner_registry.h"

#include <filesystem>

#include "lib-domain/api/email_owner.h"
#include "tests/support/domain_db.h"

// Files that another program holds are not worth ten seconds of waiting here.
extern "C" int sqlite3_busy_timeout(sqlite3* /*db*/, int /*milliseconds*/) {
  return SQLITE_OK;
}

namespace {

using MDOMAIN::API::EmailOwner;
using MDOMAIN::UTILS::ReplaceOwnerRegistry;
using test::SqliteFile;
using test::StringList;

class OwnerRegistryTest : public test::RootTest {
 protected:
  std::string Path() const { return root() + "/owner.db"; }
  // A registry in which a@x.example belongs to `owner`.
  bool Replace(const std::string& owner) const {
    return ReplaceOwnerRegistry(Path(), {{{"x.example", 1}}, {{"a", 1, owner}}});
  }
  static std::string Owner(EmailOwner& registry) {
    std::string owner = "preset";
    return registry.GetOwner("a@x.example", owner) ? owner : "-";
  }
};

// A mail service keeps its object for weeks.
TEST_F(OwnerRegistryTest, WhoHasItOpenSeesTheNewOne) {
  ASSERT_TRUE(Replace("ann"));
  EmailOwner registry(Path());
  EXPECT_EQ(Owner(registry), "ann");
  ASSERT_TRUE(Replace("ben"));
  EXPECT_EQ(Owner(registry), "ben");
  ASSERT_TRUE(Replace("cat"));
  EXPECT_TRUE(registry.CreateLocalPart({{"b", 1, "dan"}}));
  EXPECT_EQ(SqliteFile(Path()).Rows("SELECT user_name FROM local_part ORDER BY 1"),
            (StringList{"cat", "dan"}));

  std::filesystem::remove(Path());
  EXPECT_EQ(Owner(registry), "cat");  // nothing better is known
  EXPECT_FALSE(std::filesystem::exists(Path()));
  Write("/owner.db", "garbage");
  EXPECT_EQ(Owner(registry), "-");
  EXPECT_TRUE(Logged("file is not a database"));
  TakeLog();
  ASSERT_TRUE(Replace("eve"));
  EXPECT_EQ(Owner(registry), "eve");
}

// Its journal would be played into the new file.
TEST_F(OwnerRegistryTest, IsNotReplacedUnderAWriter) {
  ASSERT_TRUE(Replace("ann"));
  SqliteFile writer(Path());
  writer.Run("BEGIN IMMEDIATE");
  EXPECT_FALSE(Replace("ben"));
  EXPECT_TRUE(Logged("another program is writing it"));
  writer.Run("INSERT INTO local_part VALUES('b', 1, 'dan')");
  EXPECT_FALSE(Replace("ben"));
  EXPECT_TRUE(Logged("another program is writing it"));
  writer.Run("COMMIT");
  EXPECT_EQ(SqliteFile(Path()).Rows("SELECT user_name FROM local_part ORDER BY 1"),
            (StringList{"ann", "dan"}));
  EXPECT_TRUE(Replace("ben"));
  for (const auto& entry : std::filesystem::directory_iterator(root())) {
    EXPECT_TRUE(entry.path() == Path() || entry.is_directory()) << entry.path();
  }
}

}  // namespace
