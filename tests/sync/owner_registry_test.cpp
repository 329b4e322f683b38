// The owner registry is replaced while other programs have it open.
#include "lib-domain/sync/owner_registry.h"

#include <dlfcn.h>
#include <sys/stat.h>

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

// What differs is written where it lies, as one transaction; nothing where nothing differs.
TEST_F(OwnerRegistryTest, AChangeWritesWhatItChanges) {
  const auto build = [this](const std::vector<MDOMAIN::RECORD::LocalPart>& parts, int state) {
    EXPECT_TRUE(ReplaceOwnerRegistry(Path(), {{{"x.example", 1}, {"y.example", 2}}, parts, state}));
    return SqliteFile(Path()).Rows(
        "SELECT local_part || '@' || domain_name || ' ' || user_name FROM local_part JOIN "
        "domain_part USING (domain_idx) UNION SELECT user_version FROM pragma_user_version");
  };
  const auto look = [this] {
    struct stat info {};
    EXPECT_EQ(stat(Path().c_str(), &info), 0);
    return std::pair(info.st_ino, Read("/owner.db"));
  };
  EXPECT_EQ(build({{"b", 1, "ben"}, {"a", 1, "ann"}, {"a", 2, "ann"}}, 5),
            (StringList{"5", "a@x.example ann", "a@y.example ann", "b@x.example ben"}));
  const auto before = look();
  build({{"a", 1, "ann"}, {"a", 2, "ann"}, {"b", 1, "ben"}, {"b", 1, "cat"}}, 5);
  EXPECT_EQ(look(), before);
  SqliteFile(Path()).Run(
      "INSERT INTO local_part VALUES('c', 7, 'x'); UPDATE domain_part SET "
      "domain_idx = 9 WHERE domain_name = 'y.example'");
  EXPECT_EQ(build({{"a", 1, "ben"}, {"a", 2, "ann"}, {"A", 2, "dan"}, {"d", 2, "o'neil"}}, 6),
            (StringList{"6", "A@y.example dan", "a@x.example ben", "a@y.example ann",
                        "d@y.example o'neil"}));
  // Also where everything differs, for whoever has the file open, and for odd rows of others.
  std::vector<MDOMAIN::RECORD::LocalPart> many;
  many.reserve(3000);
  for (int i = 0; i < 3000; ++i) {
    many.emplace_back("u" + std::to_string(i), 1, "eve");
  }
  SqliteFile reader(Path());
  reader.Rows("SELECT count(*) FROM local_part");
  EXPECT_EQ(build(many, 7).size(), 3001U);
  EXPECT_EQ(reader.Rows("SELECT count(*) FROM local_part"), StringList{"3000"});
  SqliteFile(Path()).Run("UPDATE local_part SET domain_idx = 'odd'");
  EXPECT_EQ(build({{"a", 1, "ben"}}, 8), (StringList{"8", "a@x.example ben"}));
  EXPECT_EQ(look().first, before.first);
  SqliteFile(Path()).Run("CREATE TABLE other(x)");  // made anew
  EXPECT_EQ(build({{"a", 1, "ben"}}, 6), (StringList{"6", "a@x.example ben"}));
  EXPECT_NE(look().first, before.first);
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
