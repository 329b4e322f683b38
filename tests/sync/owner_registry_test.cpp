// The owner registry is replaced while other programs have it open.
#include "lib-domain/sync/owner_registry.h"

#include <dlfcn.h>

#include <filesystem>

#include "lib-domain/api/email_owner.h"
#include "tests/support/children.h"
#include "tests/support/domain_db.h"

namespace {

bool is_patient = false;

}  // namespace

// Files that another program holds are not worth ten seconds of waiting here.
extern "C" int sqlite3_busy_timeout(sqlite3* db, int milliseconds) {
  using Function = int (*)(sqlite3*, int);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "sqlite3_busy_timeout"));
  return real(db, is_patient ? milliseconds : 0);
}

namespace {

using MDOMAIN::API::EmailOwner;
using MDOMAIN::UTILS::OwnerRegistryContent;
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
  void ExpectNothingBeside() const {
    for (const auto& entry : std::filesystem::directory_iterator(root())) {
      EXPECT_TRUE(entry.path() == Path() || entry.is_directory()) << entry.path();
    }
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
  ExpectNothingBeside();
}

// They once shared the name of the file that they filled.
TEST_F(OwnerRegistryTest, BuildersAtOnceGiveOneWholeRegistry) {
  is_patient = true;
  const auto build = [this](int number) {
    OwnerRegistryContent content = {{{"x.example", 1}}, {}};
    for (int i = 0; i < 500; ++i) {
      content.local_parts.emplace_back(std::to_string(i), 1, std::to_string(number));
    }
    bool is_built = true;
    for (int i = 0; i < 10; ++i) {
      is_built = ReplaceOwnerRegistry(Path(), content) && is_built;
    }
    return is_built;
  };
  EXPECT_EQ(test::FailingChildren(3, build), 0);
  is_patient = false;
  EXPECT_EQ(SqliteFile(Path()).Rows("SELECT count(*), count(DISTINCT user_name) FROM local_part"),
            StringList{"500|1"});
  ExpectNothingBeside();
}

}  // namespace
