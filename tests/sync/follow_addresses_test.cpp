// The registry of address owners follows each change of the model, whoever makes it, and ends as
// the one that is built anew.
#include "lib-domain/sync/follow_addresses.h"

#include <filesystem>
#include <set>

#include "lib-domain/base/paths.h"
#include "lib-domain/db/address_change.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/owner_registry.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/alias.h"
#include "platform/include/eai.h"
#include "platform/include/postfix_map.h"
#include "tests/support/domain_db.h"
#include "tests/support/random_model.h"

namespace {

using korvmailserver::FoldMapKey;
using korvmailserver::MapEntries;
using korvmailserver::PostfixMap;
using MDOMAIN::UTILS::BuildOwners;
using MDOMAIN::UTILS::FollowAddresses;
using MDOMAIN::UTILS::OwnerCounts;
using MDOMAIN::UTILS::OwnerRegistryContent;
using test::SqliteFile;
using test::StringList;

constexpr const char* kMarker =
    "INSERT OR IGNORE INTO local_part VALUES('written', 9, 'by others')";

class FollowAddressesTest : public test::DomainDbTest, protected test::ModelMaker {
 protected:
  void SetUp() override {
    test::DomainDbTest::SetUp();
    ASSERT_NE(MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler(), nullptr);
  }
  static std::set<std::string> Registered() {
    const StringList rows = SqliteFile(MDOMAIN::PATHS::EmailOwnerDb())
                                .Rows(
                                    "SELECT domain_name || ' ' || domain_idx FROM domain_part "
                                    "UNION SELECT local_part || '@' || domain_idx || ' ' || "
                                    "user_name FROM local_part WHERE domain_idx <> 9");
    return {rows.begin(), rows.end()};
  }
  static std::set<std::string> Wanted() {
    OwnerRegistryContent content;
    EXPECT_TRUE(MDOMAIN::UTILS::CollectOwners(content));
    std::set<std::string> rows;
    for (const auto& part : content.domains) {
      rows.insert(part.GetDomainName() + " " + std::to_string(part.GetDomainIdx()));
    }
    for (const auto& part : content.local_parts) {
      rows.insert(part.GetLocalPart() + "@" + std::to_string(part.GetDomainIdx()) + " " +
                  part.GetUserName());
    }
    return rows;
  }
  static MapEntries Map(const std::string& path) {
    MapEntries entries;
    std::string error;
    EXPECT_TRUE(PostfixMap(path).GetAll(entries, error)) << error;
    return entries;
  }
  // Every alias that is a local part at every name of its domain; of two that Postfix takes for one
  // the first.
  static MapEntries WantedAddresses() {
    OwnerRegistryContent content;
    EXPECT_TRUE(MDOMAIN::UTILS::CollectOwners(content));
    MapEntries entries;
    std::map<std::string, std::string> firsts;
    for (const auto& part : content.local_parts) {
      const std::string alias = MDOMAIN::BASE::ToLowerAscii(part.GetLocalPart());
      for (const auto& name : content.domains) {
        const std::string key = FoldMapKey(alias + "@" + name.GetDomainName());
        if (name.GetDomainIdx() == part.GetDomainIdx() && !part.GetUserName().empty() &&
            KORV::POSTARA_SERVER::IsValidEaiLocalPart(alias, true) &&
            (firsts.count(key) == 0 || alias <= firsts[key])) {
          firsts[key] = alias;
          entries[key] = part.GetUserName() + "@localhost";
        }
      }
    }
    MDOMAIN::UTILS::MailTarget target;
    MDOMAIN::DB::INTERNAL::SpecialAddresses special;
    EXPECT_TRUE(target.Read() && CollectSpecialAddresses(target, special));
    for (const auto& [key, address] : special) {
      for (const auto& name : content.domains) {
        if (name.GetDomainIdx() == key.first) {
          std::string& entry = entries[FoldMapKey(key.second + "@" + name.GetDomainName())];
          entry = entry.empty() || !address.gives_way ? address.addresses : entry;
        }
      }
    }
    return entries;
  }
  // An entry of the alias table comes, changes or goes.
  void ChangeEntry() {
    using Table = ::Alias;
    using Kind = Table::MemberKind;
    Table table(MDOMAIN::PATHS::AliasDb());
    ASSERT_EQ(table.load(), 0);
    const Table::Entry entry = {OneOf({"a", "list", "postmaster", "STRASSE"}),
                                static_cast<int>(1 + Draw(3)),
                                {{Kind::User, OneOf({"anna", "Ben", "nobody"})},
                                 {Draw(2) == 0 ? Kind::Group : Kind::User, "g"},
                                 {Kind::Address, OneOf({"x@y.example", "z@y.example"})}}};
    EXPECT_EQ(Draw(3) == 0 ? table.del(entry.name, entry.domain_id) : table.set(entry), 0);
  }
  static std::set<std::string> WantedNames() {
    std::set<std::string> names;
    std::vector<MDOMAIN::RECORD::DomainPart> parts;
    EXPECT_TRUE(MDOMAIN::UTILS::CollectDomainNames(parts));
    for (const auto& part : parts) {
      names.insert(FoldMapKey(part.GetDomainName()));
    }
    return names;
  }
  // What others wrote stays while single rows follow, and goes when everything is built.
  static bool WasBuiltAnew() {
    return SqliteFile(MDOMAIN::PATHS::EmailOwnerDb())
        .Rows("SELECT 1 FROM local_part WHERE domain_idx = 9")
        .empty();
  }
  std::string Change() {
    const std::string domain = Domain();
    if (Draw(2) == 0) {  // one address for Postfix, two aliases here
      const std::string alias = OneOf({"'straße'", "'strasse'", "'STRASSE'", "'StraſSe'"});
      return OneOf({"INSERT INTO domain_user_alias_table VALUES(1," + Uid() + "," + alias + ",0)",
                    "DELETE FROM domain_user_alias_table WHERE account_alias = " + alias});
    }
    const std::string user = "domain_idx = " + Domain() + " AND uid = " + Uid();
    return OneOf(
        {"INSERT INTO domain_user_alias_table VALUES(" + Domain() + "," + Uid() + "," + Alias() +
             "," + Flag() + ")",
         "UPDATE domain_user_alias_table SET is_duplicated = 0 WHERE " + user,
         "UPDATE domain_user_alias_table SET account_alias = " + Alias() + " WHERE " + user,
         "DELETE FROM domain_user_alias_table WHERE " + user,
         "INSERT OR REPLACE INTO domain_user_role_table VALUES(" + Domain() + "," + Uid() + "," +
             Role() + ",0)",
         "DELETE FROM domain_user_role_table WHERE " + user,
         "INSERT OR IGNORE INTO group_to_user_table VALUES(" + Gid() + "," + Uid() + ")",
         "DELETE FROM group_to_user_table WHERE uid = " + Uid(),
         "INSERT OR REPLACE INTO domain_group_role_table VALUES(" + Domain() + "," + Gid() + "," +
             Role() + ")",
         "DELETE FROM domain_group_role_table WHERE gid = " + Gid(),
         "INSERT OR IGNORE INTO domain_group_removed_user_table VALUES(" + Domain() + "," + Gid() +
             "," + Uid() + ")",
         "DELETE FROM domain_group_removed_user_table WHERE " + user,
         "UPDATE user_table SET user_name = user_name || '2' WHERE uid = " + Uid(),
         "DELETE FROM user_table WHERE uid = " + Uid(),
         "DELETE FROM group_table WHERE gid = " + Gid(),
         "INSERT OR IGNORE INTO user_table VALUES(" + Uid() + ",'new')",
         "INSERT OR IGNORE INTO domain_to_additional_domain_table VALUES(" + domain + ",'" +
             OneOf({"bücher", "Z"}) + domain + "')",
         "DELETE FROM domain_to_additional_domain_table WHERE domain_idx = " + Domain(),
         "UPDATE domain_table SET domain_name = domain_name || 'x' WHERE domain_idx = " + Domain(),
         "DELETE FROM domain_table WHERE domain_idx = " + Domain(),
         "INSERT OR IGNORE INTO domain_table VALUES(" + domain + ",'n" + domain + "','','',0)"});
  }
  static std::string AsARefreshLeavesIt() {
    return "DELETE FROM domain_user_alias_table WHERE account_alias IS NULL OR rowid NOT IN "
           "(SELECT min(rowid) FROM domain_user_alias_table GROUP BY domain_idx, uid, "
           "lower(account_alias));"
           "UPDATE domain_user_alias_table AS a SET is_duplicated = rowid <> (SELECT max(rowid) "
           "FROM domain_user_alias_table AS b WHERE b.domain_idx = a.domain_idx AND "
           "b.account_alias = a.account_alias COLLATE NOCASE);"
           "INSERT OR REPLACE INTO domain_user_role_table SELECT DISTINCT domain_idx, uid, "
           "'normal', 0 FROM domain_user_alias_table;";
  }
};

// Written by a connection of its own, as another program would.
TEST_F(FollowAddressesTest, EndsAsTheOneThatIsBuiltAnew) {
  OwnerCounts counts;
  ASSERT_TRUE(BuildOwners(counts) && MDOMAIN::UTILS::BuildPostfixMaps());
  SqliteFile other(DbPath());
  int followed = 0;
  int built_anew = 0;
  size_t addresses = 0;
  for (int round = 0; round < 200; ++round) {
    SqliteFile(MDOMAIN::PATHS::EmailOwnerDb()).Run(kMarker);
    other.Run(round % 20 == 0 ? RandomModel() +
                                    "UPDATE user_table SET user_name = coalesce("
                                    "user_name, 'none')"
                              : "PRAGMA foreign_keys = on");
    std::string sql;
    for (unsigned i = 1 + Draw(4); i > 0; --i) {
      const std::string change = Change();
      sql += other.IsRun(change) ? change + ";" : "";
    }
    other.Run(Draw(3) != 0 ? AsARefreshLeavesIt() : "");
    if (Draw(4) == 0) {
      ChangeEntry();
    }
    ASSERT_TRUE(FollowAddresses());
    ASSERT_EQ(Registered(), Wanted()) << "round " << round << ": " << sql;
    ASSERT_EQ(Map(MDOMAIN::PATHS::PostfixAddresses()), WantedAddresses())
        << "round " << round << ": " << sql;
    addresses += WantedAddresses().size();
    std::set<std::string> names;
    for (const auto& [name, value] : Map(MDOMAIN::PATHS::PostfixDomains())) {
      names.insert(name);
    }
    ASSERT_EQ(names, WantedNames()) << "round " << round << ": " << sql;
    ++(WasBuiltAnew() ? built_anew : followed);
    if (round % 50 == 0) {  // all that others wrote goes
      ASSERT_TRUE(BuildOwners(counts));
      EXPECT_TRUE(WasBuiltAnew());
      EXPECT_EQ(Registered().size(), counts.domain_names + counts.local_parts);
    }
  }
  EXPECT_GT(addresses, 1000);
  EXPECT_GT(followed, 100);
  EXPECT_GT(built_anew, 5);
}

TEST_F(FollowAddressesTest, IsLeftAloneOrBuiltAnewWhereTheLogDoesNotTell) {
  const std::string path = MDOMAIN::PATHS::EmailOwnerDb();
  const std::string add =
      "INSERT OR IGNORE INTO user_table VALUES(1000,'anna');"
      "INSERT OR IGNORE INTO domain_table VALUES(1,'a.example','','',0);"
      "INSERT OR IGNORE INTO domain_user_role_table VALUES(1,1000,'normal',0);"
      "INSERT INTO domain_user_alias_table VALUES(1,1000,'a' || abs(random()),0)";
  SqliteFile model(DbPath());
  OwnerCounts counts;
  const auto change = [&] {
    model.Run(add);
    return FollowAddresses();
  };
  EXPECT_TRUE(change());
  EXPECT_FALSE(std::filesystem::exists(path));  // nobody built one

  ASSERT_TRUE(BuildOwners(counts));
  const struct {
    const char* what;
    std::function<void()> damage;
    bool is_followed;
  } cases[] = {
      {"nothing", [] {}, true},
      {"an older one came back", [&] { SqliteFile(path).Run("PRAGMA user_version = 1"); }, true},
      {"rows are missing, too",
       [&] { SqliteFile(path).Run("DELETE FROM local_part; PRAGMA user_version = 1"); }, true},
      {"no index", [&] { SqliteFile(path).Run("DROP INDEX IDX_local_part_nocase"); }, true},
      {"somebody else fills it", [&] { SqliteFile(path).Run("PRAGMA user_version = 0"); }, false},
      {"it was removed", [&] { std::filesystem::remove(path); }, false},
  };
  for (const auto& now : cases) {
    SCOPED_TRACE(now.what);
    ASSERT_TRUE(BuildOwners(counts));
    now.damage();
    EXPECT_TRUE(change());
    EXPECT_EQ(std::filesystem::exists(path) && Registered() == Wanted(), now.is_followed);
    EXPECT_EQ(model.Rows("SELECT count(*) FROM mdomain_address_change_table"), StringList{"0"});
    const StringList triggers = model.Rows("SELECT name FROM sqlite_master WHERE type = 'trigger'");
    EXPECT_EQ(triggers.empty(), !now.is_followed);
  }
}

// What cannot be written stays on record.
TEST_F(FollowAddressesTest, AFailureIsMadeUpFor) {
  OwnerCounts counts;
  ASSERT_TRUE(BuildOwners(counts));
  SqliteFile(DbPath()).Run("INSERT INTO domain_table VALUES(1,'a.example','','',0)");
  const std::string path = MDOMAIN::PATHS::EmailOwnerDb();
  std::filesystem::rename(path, path + ".kept");
  std::filesystem::create_directory(path);
  EXPECT_FALSE(FollowAddresses());
  TakeLog();
  std::filesystem::remove(path);
  std::filesystem::rename(path + ".kept", path);
  EXPECT_TRUE(FollowAddresses());
  EXPECT_EQ(Registered(), Wanted());
}

}  // namespace
