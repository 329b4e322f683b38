// The library's own indexes and views: made where they may be, and of the same answers as the
// file's own views, on models that nobody would make on purpose.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/statement.h"
#include "lib-domain/db/user.h"
#include "lib-domain/sync/owner_registry.h"
#include "platform/include/sqlite.h"
#include "tests/support/domain_db.h"
#include "tests/support/random_model.h"

namespace {

using MDOMAIN::DB::DomainDBFilter;
using MDOMAIN::DB::DomainDBHandler;
using test::SqliteFile;
using test::StringList;
namespace RECORD = MDOMAIN::RECORD;

constexpr const char* kOwnIndexes =
    "SELECT count(*) FROM sqlite_master WHERE type = 'index' AND name LIKE 'mdomain%'";
constexpr int kModels = 300;

class OwnIndexes : public test::DomainDbTest, protected test::ModelMaker {
 protected:
  static DomainDBHandler& Open() {
    DomainDBHandler::CloseDomainDBHandler();
    DomainDBHandler* handler = DomainDBHandler::GetDomainDBHandler();
    EXPECT_NE(handler, nullptr);
    return *handler;
  }

  // The same file as a program without our indexes has it.
  static std::string PlainPath() { return DbPath() + ".plain"; }
  static void MakePlain() {
    std::filesystem::remove(PlainPath());
    SqliteFile file(DbPath());
    file.Run("VACUUM INTO '" + PlainPath() + "'");
    SqliteFile plain(PlainPath());
    for (const std::string& name : plain.Rows("SELECT name FROM sqlite_master WHERE type = 'index' "
                                              "AND name LIKE 'mdomain%'")) {
      plain.Run("DROP INDEX " + name);
    }
  }
  void MakeModel(SqliteFile& plain) {
    const std::string model =
        RandomModel() +  // and rows that another program left
        "PRAGMA foreign_keys = off; INSERT INTO domain_user_role_table VALUES(1,99,'normal',0);"
        "INSERT INTO domain_user_alias_table VALUES(1,99,'x',1),(NULL,1001,'a',1),(1,NULL,'a',1);";
    Run(model);
    plain.Run(model);
  }

  // The users that the filter selects, one after the other or all at once.
  static StringList Listed(MDOMAIN::DB::DomainUser& store, DomainDBFilter filter, bool one_by_one) {
    StringList texts;
    const auto append = [&texts](const RECORD::DomainUser& user) {
      texts.push_back(std::to_string(user.GetDomainIdx()) + " " + std::to_string(user.GetUID()) +
                      " " + user.GetUserName() + " " + user.GetRole() +
                      (user.IsUnderGroupControl() ? " by group" : ""));
      for (const auto& [alias, flagged] : user.GetAliasDuplicatedPairs()) {
        texts.back() += " " + alias + (flagged ? "!" : "");
      }
    };
    if (one_by_one) {
      EXPECT_TRUE(store.ForEachDomainUser(filter, append));
      return texts;
    }
    std::vector<RECORD::DomainUser> users;
    EXPECT_TRUE(store.ListDomainUsers(filter, users, true));
    std::for_each(users.begin(), users.end(), append);
    return texts;
  }

  using OwnersByAddress = std::map<std::pair<int, std::string>, std::string>;
  void ExpectStaleRows(const OwnersByAddress& owners);

  static void ExpectTheSameEmails() {
    std::map<std::string, StringList> wanted;
    ASSERT_TRUE(MDOMAIN::API::DomainUser().GetAllUser2EmailsMap(true, wanted));
    std::vector<std::pair<std::string, StringList>> found;
    const auto keep = [&](const auto& name, const auto& emails) {
      found.emplace_back(name, emails);
    };
    ASSERT_TRUE(MDOMAIN::API::DomainUser().ForEachUserEmails(true, keep));
    ASSERT_EQ(found, decltype(found)(wanted.begin(), wanted.end()));
  }
};

// Of a registry with some of the owners, in other letter cases, and rows that nobody has.
void OwnIndexes::ExpectStaleRows(const OwnersByAddress& owners) {
  const std::string path = root() + "/owners.db";
  std::filesystem::remove(path);
  SqliteFile registry(path);
  std::string rows =
      "BEGIN; CREATE TABLE domain_part(domain_name, domain_idx);"
      "CREATE TABLE local_part(local_part, domain_idx, user_name);";
  StringList wanted;
  const auto add = [&](const std::string& alias, int domain_idx, const std::string& name,
                       bool stale) {
    rows += korvmailserver::FormatSql("INSERT INTO local_part VALUES('%q', %d, '%q');",
                                      alias.c_str(), domain_idx, name.c_str());
    if (stale) {
      wanted.push_back(alias + "/" + std::to_string(domain_idx) + "/" + name);
    }
  };
  for (const auto& [address, owner] : owners) {
    const std::string name = owner.substr(owner.find(" of ") + 4);
    const bool is_right = Draw(3) > 0;
    add(address.second, address.first, is_right ? name : name + "x", !is_right);
    if (Draw(4) == 0) {
      add(address.second, address.first + 3, name, true);
      add(address.second + "y", address.first, name,
          owners.count({address.first, address.second + "y"}) == 0);
    }
  }
  registry.Run(rows + "COMMIT");
  StringList found;
  ASSERT_EQ(MDOMAIN::UTILS::FindStaleOwners(
                path, [](const auto& /*part*/) { ADD_FAILURE(); },
                [&found](const RECORD::LocalPart& part) {
                  found.push_back(part.GetLocalPart() + "/" + std::to_string(part.GetDomainIdx()) +
                                  "/" + part.GetUserName());
                }),
            MDOMAIN::UTILS::OwnerCheck::kDone);
  ASSERT_EQ(found, wanted);
}

TEST_F(OwnIndexes, AreMadeOnceWhereTheFileMayBeWritten) {
  EXPECT_TRUE(Open().HasOwnViews());
  const StringList made = Rows(kOwnIndexes);
  EXPECT_GT(std::stoi(made[0]), 5);
  Run("DROP INDEX mdomain_alias");
  EXPECT_TRUE(Open().HasOwnViews());
  EXPECT_EQ(Rows(kOwnIndexes), made);

  Run("DROP INDEX mdomain_alias");
  SqliteFile other(DbPath());
  other.Run("BEGIN IMMEDIATE");
  EXPECT_FALSE(Open().HasOwnViews());  // whoever opens it next makes it
  std::vector<RECORD::User> users;
  EXPECT_TRUE(MDOMAIN::DB::User().List(MDOMAIN::DB::UserDBFilter("*"), users));
}

// What a program asks that knows no other views than the file's gives the same rows, in the same
// order, as through this connection.
TEST_F(OwnIndexes, GiveTheRowsOfTheFilesOwnViews) {
  DomainDBHandler& handler = Open();
  ASSERT_TRUE(handler.HasOwnViews());
  MakePlain();
  SqliteFile plain(PlainPath());
  const StringList statements = {
      "SELECT * FROM domain_user_view WHERE domain_idx = 1",
      "SELECT * FROM domain_user_view WHERE uid IN (1000,1003,1004) ORDER BY uid, domain_idx",
      ("SELECT * FROM domain_user_view WHERE domain_idx IN (1,2) AND uid IN "
       "(1001,1002,1003,1004,1005) ORDER BY is_duplicated DESC, user_name ASC"),
      "SELECT * FROM domain_view",
      "SELECT * FROM domain_view WHERE is_primary = 1",
      ("SELECT domain_idx FROM domain_user_view WHERE uid = 1003 AND role = 'domain_admin' ORDER "
       "BY "
       "domain_idx"),
      "SELECT EXISTS (SELECT 1 FROM domain_user_view WHERE uid=1002 AND domain_idx=1 LIMIT 1)",
      "SELECT DISTINCT uid FROM domain_user_view WHERE domain_idx IN (1,3)",
      ("SELECT domain_idx, gid FROM domain_group_effected_user_view WHERE domain_idx = 1 AND uid = "
       "1003"),
  };
  for (int model = 0; model < kModels; ++model) {
    MakeModel(plain);
    for (const std::string& statement : statements) {
      StringList own;
      for (const auto& row : handler.ExecSelectCmd(statement)) {
        own.push_back(MDOMAIN::BASE::Join(row, "|"));
      }
      // An order that we give is the one that the plain plan has.
      StringList expected = plain.Rows(statement.substr(0, statement.find(" ORDER BY domain_idx")));
      for (std::string& row : expected) {
        for (size_t at = 0; (at = row.find('-', at)) != std::string::npos;) {
          row.erase(at, 1);
        }
      }
      EXPECT_EQ(own, expected) << "model " << model << ": " << statement;
      if (HasFailure()) {
        return;
      }
    }
  }
}

// The pages, counts and searches of users, against the statements over the file's views.
TEST_F(OwnIndexes, PagesCountsAndSearchesAreTheSame) {
  ASSERT_TRUE(Open().HasOwnViews());
  MakePlain();
  SqliteFile plain(PlainPath());
  MDOMAIN::DB::DomainUser users;
  for (int model = 0; model < kModels; ++model) {
    MakeModel(plain);
    DomainDBFilter filter("domain_user_view");
    filter.SetDomainIdxs(Draw(3) == 0 ? std::vector<int>{1, 2} : std::vector<int>{1});
    const std::string query = OneOf({"", "", "a", "%", "Z"});
    Draw(2) == 0 ? filter.SetLiteralQuery(query) : filter.SetQuery(query);
    filter.SetQueryType(OneOf({"", "user_name", "account_alias"}));
    filter.SetSortBy(OneOf({"", "user_name", "uid", "role", "account_alias"}));
    filter.SetSortDirection(OneOf({"ASC", "DESC"}));
    filter.SetLimit(OneOf({"-1", "2"}) == "2" ? 2 : -1);
    filter.SetOffset(static_cast<int>(Draw(3)));

    DomainDBFilter given = filter;
    StringList uids;
    std::vector<unsigned int> own_uids;
    ASSERT_TRUE(users.GetDistinctUIDs(filter, own_uids));
    for (const unsigned int uid : own_uids) {
      uids.push_back(std::to_string(uid));
    }
    ASSERT_EQ(uids, plain.Rows(given.ComposeDistinctUIDQueryCmd()))
        << "model " << model << ": " << given.ComposeDistinctUIDQueryCmd();
    int count = -1;
    ASSERT_TRUE(users.GetDomainUsersCount(filter, count));
    given.SetSelect("count(distinct uid)");
    ASSERT_EQ(StringList{std::to_string(count)}, plain.Rows(given.ComposeQueryCmd()));

    ASSERT_EQ(Listed(users, filter, true), Listed(users, filter, false)) << "model " << model;
    ExpectTheSameEmails();
    StringList emails;
    ASSERT_TRUE(users.ListDuplicatedEmail(1, emails));
    ASSERT_EQ(emails,
              plain.Rows("SELECT coalesce(alias, '') FROM (SELECT DISTINCT account_alias COLLATE "
                         "NOCASE AS alias FROM "
                         "domain_user_alias_table WHERE is_duplicated = 1 AND domain_idx = 1)"));

    std::vector<RECORD::Domain> domains;
    DomainDBFilter all;
    ASSERT_TRUE(MDOMAIN::DB::Domain().List(all, domains));
    for (const RECORD::Domain& domain : domains) {
      ASSERT_EQ(StringList{std::to_string(domain.GetUserNum())},
                plain.Rows("SELECT count(distinct uid) FROM domain_user_view WHERE domain_idx = " +
                           std::to_string(domain.GetDomainIdx()) + " AND role IS NOT NULL"));
    }
    std::map<int, std::vector<unsigned int>> without;
    ASSERT_TRUE(users.GetUsersWithoutRole(without));
    for (const auto& [domain_idx, listed] : without) {
      StringList texts;
      for (const unsigned int uid : std::set<unsigned int>(listed.begin(), listed.end())) {
        texts.push_back(std::to_string(uid));
      }
      ASSERT_EQ(texts,
                plain.Rows("SELECT DISTINCT uid FROM domain_user_view WHERE role IS NULL AND "
                           "domain_idx = " +
                           std::to_string(domain_idx) + " ORDER BY uid"));
    }
  }
}

// A listing reads its users in pieces, whose order is that of the whole.
TEST_F(OwnIndexes, ALongListingIsOneListing) {
  Open();
  SqliteFile plain(DbPath());
  plain.Run(
      "BEGIN; INSERT INTO domain_table VALUES(1,'a','','',0);"
      "WITH n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2500) "
      "INSERT INTO user_table SELECT i * 7919 % 2503, 'u' || i FROM n;"
      "INSERT INTO domain_user_role_table SELECT 1, uid, 'normal', 0 FROM user_table;"
      "INSERT INTO domain_user_alias_table SELECT 1, uid, user_name || n, CASE (uid * n) % 97 WHEN "
      "0 THEN 1 WHEN 1 THEN NULL WHEN 2 THEN -1 ELSE 0 END FROM user_table, (SELECT 1 AS n UNION "
      "SELECT 2) ORDER BY user_name; COMMIT");
  MDOMAIN::DB::DomainUser users;
  DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs({1});
  filter.SetLimit(-1);
  ASSERT_EQ(Listed(users, filter, true).size(), 2500U);
  EXPECT_EQ(Listed(users, filter, true), Listed(users, filter, false));
  ExpectTheSameEmails();
  filter.SetQuery("2");
  filter.SetOffset(100);
  filter.SetLimit(1200);
  EXPECT_EQ(Listed(users, filter, true), Listed(users, filter, false));
}

// An address has one owner: the first who has it unflagged, else the first.
TEST_F(OwnIndexes, OwnersAreThoseOfTheListing) {
  Open();
  SqliteFile plain(DbPath());
  for (int model = 0; model < kModels; ++model) {
    plain.Run(RandomModel());
    if (Draw(2) == 0) {  // the empty role, which nothing here gives, leads another way
      plain.Run(
          "UPDATE domain_user_role_table SET role = NULL WHERE role = '';"
          "UPDATE domain_group_role_table SET role = 'other' WHERE role = ''");
    }
    if (Draw(2) == 0) {  // as a refresh leaves it
      plain.Run(
          "UPDATE domain_user_alias_table SET account_alias = coalesce(account_alias, 'n');"
          "UPDATE domain_user_alias_table AS a SET is_duplicated = rowid <> (SELECT max(rowid) "
          "FROM "
          "domain_user_alias_table AS b WHERE b.domain_idx = a.domain_idx AND b.account_alias = "
          "a.account_alias COLLATE NOCASE) OR uid = 1001;"
          "REPLACE INTO domain_user_role_table SELECT DISTINCT domain_idx, uid, 'normal', 0 FROM "
          "domain_user_alias_table");
    }
    DomainDBFilter filter("domain_user_view");
    filter.SetDomainIdxs({1, 2, 3});
    filter.SetLimit(-1);
    std::vector<RECORD::DomainUser> users;
    ASSERT_TRUE(MDOMAIN::DB::DomainUser().ListDomainUsers(filter, users, false));
    std::map<std::pair<int, std::string>, std::string> wanted;
    for (const bool flagged : {false, true}) {
      for (const RECORD::DomainUser& user : users) {
        for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
          if (is_flagged == flagged && !user.GetRole().empty()) {
            wanted.emplace(std::pair(user.GetDomainIdx(), MDOMAIN::BASE::ToLowerAscii(alias)),
                           alias + " of " + user.GetUserName());
          }
        }
      }
    }
    MDOMAIN::UTILS::OwnerRegistryContent content;
    ASSERT_TRUE(MDOMAIN::UTILS::CollectOwners(content));
    OwnersByAddress owners;
    for (const RECORD::LocalPart& part : content.local_parts) {
      owners[{part.GetDomainIdx(), MDOMAIN::BASE::ToLowerAscii(part.GetLocalPart())}] =
          part.GetLocalPart() + " of " + part.GetUserName();
    }
    ASSERT_EQ(owners, wanted) << "model " << model;
    ASSERT_EQ(content.local_parts.size(), wanted.size());
    ExpectStaleRows(owners);
  }
}

// A uid that is none disturbs its own page only. A "count..." select list has no pages.
TEST_F(OwnIndexes, OddUidsAndCountsDisturbNoPage) {
  Open();
  Run("INSERT INTO domain_table VALUES(1,'a','','',0),(2,'b','','',0);"
      "INSERT INTO user_table VALUES(-5,'a'),(1,'b'),(2,'c'),(3,'d');"
      "INSERT INTO domain_user_role_table SELECT domain_idx,uid,'normal',0 FROM user_table, "
      "domain_table WHERE uid > 0 OR domain_idx = 1; INSERT INTO domain_user_alias_table SELECT "
      "domain_idx,uid,'x',0 FROM domain_user_role_table ORDER BY uid");
  DomainDBFilter filter;
  filter.SetLimit(2);
  std::vector<unsigned int> uids;
  for (const char* sort_by :
       {"", "uid", "uid", "2", "2"}) {  // the second time reads the whole list
    const bool counts = *sort_by == '2';
    filter.SetDomainIdxs({counts ? 2 : 1});
    filter.SetOffset(counts ? 0 : 1);
    filter.SetSelect(counts ? "count" : "*");
    filter.SetSortBy(counts ? "uid" : sort_by);
    EXPECT_TRUE(MDOMAIN::DB::DomainUser().GetDistinctUIDs(filter, uids));
  }
  EXPECT_EQ(uids, (std::vector<unsigned int>{1, 2, 1, 2, 1, 2, 1, 2, 3, 1, 2, 3}));
}

// Values that are bound to a statement leave what values in its text leave.
TEST_F(OwnIndexes, BoundValuesAreStoredAsThoseInTexts) {
  Open();
  SqliteFile plain(DbPath());
  const StringList names = {"anna", "o'brien", "zoë", "1",    "0x10", "",
                            "1e3",  "a\"b",    "%q",  "NULL", "\xff"};
  std::vector<RECORD::User> users;
  std::vector<RECORD::DomainUserAlias> aliases;
  std::string texts;
  for (size_t i = 0; i < names.size(); ++i) {
    const unsigned int uid = i == 0 ? 4294967294U : 1000 + static_cast<unsigned int>(i);
    users.emplace_back(uid, names[i]);
    aliases.emplace_back(1, uid, names[i], i % 2 == 0);
    texts += RECORD::User(uid, names[i]).IsValid()
                 ? korvmailserver::FormatSql("INSERT OR IGNORE INTO copy VALUES ('%u', '%q');", uid,
                                             names[i].c_str())
                 : "";
  }
  plain.Run("CREATE TABLE copy(uid INTEGER PRIMARY KEY,user_name TEXT);" + texts);
  EXPECT_TRUE(MDOMAIN::DB::User().Create(users));
  EXPECT_EQ(plain.Rows("SELECT *, typeof(uid), typeof(user_name) FROM user_table"),
            plain.Rows("SELECT *, typeof(uid), typeof(user_name) FROM copy"));
  plain.Run("INSERT INTO domain_table VALUES(1,'a','','',0)");
  EXPECT_TRUE(MDOMAIN::DB::DomainUser().CreateUsersAliases(aliases));
  for (const std::string& row :
       plain.Rows("SELECT typeof(domain_idx), typeof(uid), typeof(account_alias), "
                  "typeof(is_duplicated) FROM domain_user_alias_table")) {
    EXPECT_EQ(row, "integer|integer|text|integer");
  }
  // One text that is too long for a statement fails all of them.
  users.emplace_back(5, std::string(999'999, 'x'));
  EXPECT_FALSE(MDOMAIN::DB::User().Set(users));
  EXPECT_TRUE(Logged("fail to insert user_table"));
  TakeLog();
}

}  // namespace
