// Operations on few users: what they cost does not depend on the company, and what they leave is
// what reading everything would leave.
#include <sqlite3.h>

#include <functional>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/sync/auto_add_roles.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/sqlite.h"
#include "tests/support/random_model.h"
#include "tests/support/sync_fixture.h"

namespace {

using MDOMAIN::API::Domain;
using MDOMAIN::API::DomainGroup;
using MDOMAIN::API::DomainUser;
using MDOMAIN::DB::DomainDBHandler;
using test::SqliteFile;
using test::StringList;
namespace RECORD = MDOMAIN::RECORD;
using Aliases = std::vector<RECORD::DomainUserAlias>;
using Users = std::vector<RECORD::DomainUser>;

struct Cost {
  int statements = 0;
  int steps = 0;  // of SQLite's machine: each row that is read costs some
} cost;

int Count(unsigned /*type*/, void* /*context*/, void* statement, void* /*nanoseconds*/) {
  ++cost.statements;
  cost.steps +=
      sqlite3_stmt_status(static_cast<sqlite3_stmt*>(statement), SQLITE_STMTSTATUS_VM_STEP, 1);
  return 0;
}

int CountEverything(sqlite3* db, char** /*error*/, const void* /*routines*/) {
  return sqlite3_trace_v2(db, SQLITE_TRACE_PROFILE, Count, nullptr);
}

class FewUsers : public test::SyncTest {
 protected:
  static Users One(int domain_idx, unsigned uid, const StringList& aliases,
                   const std::string& role = "normal") {
    std::vector<std::pair<std::string, bool>> pairs;
    for (const std::string& alias : aliases) {
      pairs.emplace_back(alias, false);
    }
    return {{domain_idx, uid, "", pairs, role}};
  }
  static bool Set(Users users) {
    Users conflicts;
    return DomainUser().Set(users, conflicts);
  }
  static bool Add(int domain_idx, unsigned uid, const std::string& name) {
    Aliases aliases = {{domain_idx, uid, name, false}};
    return DomainUser().AddMembers(domain_idx, {name}, {}, aliases);
  }

  // `users` people, all of them in the first domain, in groups of ten that are in the second.
  void Grow(int users) {
    Accounts accounts;
    Groups groups;
    for (int i = 0; i < users; ++i) {
      accounts.emplace_back("u" + std::to_string(i), 2000 + i);
      if (i % 10 == 0) {
        groups.emplace_back("g" + std::to_string(i) + ":" + std::to_string(4000 + i), "");
      }
      groups.back().second += (i % 10 == 0 ? "u" : ",u") + std::to_string(i);
    }
    SetAccounts(accounts, groups);
    EXPECT_TRUE(MDOMAIN::API::Updater().Refresh());
    TakeLog();
  }
};

TEST_F(FewUsers, CostTheSameInACompanyOfAnySize) {
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(CountEverything));
  DomainDBHandler::CloseDomainDBHandler();
  CreateDomain("one.example", true);
  CreateDomain("two.example", false);
  const unsigned uid = 2003;
  int created = 0;
  RECORD::Domain small(-1, "three.example", "", "<a>", false, false, false);
  std::string owner;
  Aliases none;
  Users preview;
  StringList addresses;
  std::vector<std::tuple<unsigned, std::string, std::string>> members;
  const std::pair<const char*, std::function<bool()>> operations[] = {
      {"create", [&] { return Domain().Create(small, created); }},
      {"describe",
       [&] {
         RECORD::Domain changed(created, "three.example", "x", "<a>", false, false, false);
         return Domain().Set(changed);
       }},
      {"name", [&] { return Domain().CreateAdditionalDomains(created, {"four.example"}); }},
      {"add there", [&] { return Add(created, uid, "u3"); }},
      {"preview",
       [&] {
         return DomainUser().Preview(1, {{"user", "u3"}}, preview);
       }},
      {"add", [] { return Add(2, uid, "u3"); }},
      {"aliases",
       [] {
         return Set(One(1, uid, {"u3", "other"}));
       }},
      {"role", [] { return Set(One(1, uid, {"u3"}, "domain_admin")); }},
      {"addresses", [&] { return DomainUser().GetMailAddresses(uid, addresses); }},
      {"by name", [&] { return DomainUser().GetMailAddresses(std::string("u3"), addresses); }},
      {"owner", [&] { return DomainUser().GetAliasUser(1, "U3", owner); }},
      {"nobody", [] { return !DomainUser().IsExists(1, "nobody"); }},
      {"exists", [] { return DomainUser().IsExists(1, "u3"); }},
      {"alias exists", [] { return DomainUser().IsAliasExist("u3"); }},
      {"status", [&] { return DomainGroup().GetMemberStatus(1, 4000, members); }},
      {"add a group", [&] { return DomainUser().AddMembers(created, {}, {"g0"}, none); }},
      {"remove it", [&] { return DomainGroup().Delete(created, {4000}); }},
      {"remove", [] { return DomainUser().Delete(1, {uid}); }},
      {"remove elsewhere", [] { return DomainUser().Delete(2, {uid}); }},
      {"delete", [&] { return Domain().Delete({created}); }},
      {"add again", [] { return Add(1, uid, "u3"); }},
  };
  std::map<std::string, Cost> costs;
  for (const int users : {10, 11, 20, 1000}) {  // the first times make tables, files and statements
    Grow(users);
    for (const auto& [name, run] : operations) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(users));
      cost = Cost();
      ASSERT_TRUE(run());
      if (users == 1000) {
        EXPECT_EQ(cost.statements, costs[name].statements);
        EXPECT_LE(cost.steps, costs[name].steps * 11 / 10);
      }
      costs[name] = cost;
    }
  }
  sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(CountEverything));
}

// The faster road gives way to the one that tells what is wrong.
TEST_F(FewUsers, AddressesOfADamagedModelFailWithTheirReason) {
  CreateDomain("one.example", false);
  CreateDomain("two.example", false);
  const std::pair<const char*, StringList> damages[] = {
      {"UPDATE domain_table SET domain_idx = 4294967296 WHERE domain_idx = 2",
       {"Failed to stoi [4294967296]", "Failed to List domains", "Failed to GetAllDomains"}},
      {"UPDATE domain_table SET domain_idx = 2 WHERE domain_idx = 4294967296;"
       "DROP TABLE domain_user_alias_table",
       {"no such table: domain_user_alias_table, cmd: SELECT account_alias FROM "
        "domain_user_alias_table WHERE domain_idx = 1 AND uid = 7 ORDER BY rowid",
        "failed to ExecSelectCmd", "Failed to GetDomainUserAlias, domain_id: [1], uid: [7]"}},
  };
  StringList addresses;
  EXPECT_TRUE(DomainUser().GetMailAddresses(7U, addresses));
  TakeLog();
  for (const auto& [damage, lines] : damages) {
    Run(damage);
    EXPECT_FALSE(DomainUser().GetMailAddresses(7U, addresses));
    for (const std::string& line : lines) {
      EXPECT_TRUE(Logged(line)) << line;
    }
    TakeLog();
  }
}

// Random models, each with a random operation.
class RandomUsers : public FewUsers, protected test::ModelMaker {
 protected:
  static constexpr int kModels = 120;

  std::string Name() {
    return OneOf({"anna", "Anna", "DOM\\anna", "anna@x", "ANNA@x@y", "ben", "DOM\\ben@x", "B\\",
                  "zo\xc3\xab", "an_a", "o'neil", "an[", "@anna", "a", "q\"\x01\xff"});
  }
  std::string Alias() {
    return OneOf({"a", "A", "anna", "aNNa", "ben", "zo\xc3\xab", "o'neil", "an_a", "c", "d"});
  }
  std::string Role() { return OneOf({"normal", "normal", "domain_admin"}); }
  unsigned Uid() { return 1000 + Draw(14); }
  int DomainIdx() { return 1 + static_cast<int>(Draw(2)); }
  std::string User() { return std::to_string(Uid()); }
  std::string Gid() { return std::to_string(500 + Draw(4)); }
  std::string Idx() { return std::to_string(DomainIdx()); }

  // As a refresh leaves it, and then with other roles of groups.
  void MakeModel() {
    std::string sql =
        "PRAGMA foreign_keys = on; PRAGMA synchronous = off; BEGIN; DELETE FROM user_table;"
        "DELETE FROM group_table;";
    for (int uid = 1000; uid < 1014; ++uid) {
      sql +=
          korvmailserver::FormatSql("INSERT INTO user_table VALUES(%d,'%q');", uid, Name().c_str());
    }
    sql += "INSERT INTO group_table VALUES(500,'a',''),(501,'b',''),(502,'c',''),(503,'d','');";
    sql += Insert("group_to_user_table", 12, [&] { return Gid() + "," + User(); });
    sql += Insert("domain_group_role_table", 4,
                  [&] { return Idx() + "," + Gid() + ",'" + Role() + "'"; });
    sql += Insert("domain_user_role_table", 12, [&] {
      return Idx() + "," + User() + ",'" + Role() + "'," + OneOf({"0", "1"});
    });
    sql += Insert("domain_group_removed_user_table", 5,
                  [&] { return Idx() + "," + Gid() + "," + User(); });
    sql += Insert("domain_user_alias_table", 20, [&] {
      return korvmailserver::FormatSql("%d,%u,'%q',0", DomainIdx(), Uid(), Alias().c_str());
    });
    Run(sql + "COMMIT");
    EXPECT_TRUE(DomainUser().UpdateAllDuplicateAlias());
    Run("UPDATE domain_group_role_table SET role = '" + Role() + "' WHERE gid < 502");
    EXPECT_TRUE(MDOMAIN::UTILS::Updater().RemoveUnnecessaryAutoAddedUserRole());
  }

  static std::string Text(const Users& users) {
    std::string text;
    for (const RECORD::DomainUser& user : users) {
      text += std::to_string(user.GetUID()) + user.GetUserName() + user.GetRole();
      for (const auto& [alias, is_duplicated] : user.GetAliasDuplicatedPairs()) {
        text += " " + alias + (is_duplicated ? "!" : "");
      }
      text += "=" + test::Text(user.GetConflictingAccountNames()) + ";";
    }
    return text;
  }

  std::string Operate(bool looks_up) {
    DomainUser api;
    Users users;
    Users found;
    Aliases aliases;
    StringList names;
    // So many that reading everything is cheaper than looking them up.
    const unsigned many = Draw(4) == 0 ? 20 : 0;
    for (unsigned i = Draw(3) + 1 + many; i > 0; --i) {
      names.push_back(TrimDomainName(Name()));
      aliases.emplace_back(DomainIdx(), Uid(), Alias(), false);
      users.push_back(One(DomainIdx(), Uid(), {Alias(), Alias()},
                          OneOf({"normal", "domain_admin", "group"}))[0]);
    }
    switch (Draw(6)) {
      case 0: {
        bool is_done = api.CreateFromUser(1, names) && api.CreateUsersAliases(aliases);
        is_done = (looks_up ? MDOMAIN::UTILS::INTERNAL::RemoveUnnecessaryRolesOf(names, {})
                            : MDOMAIN::UTILS::Updater().RemoveUnnecessaryAutoAddedUserRole()) &&
                  is_done;
        for (const RECORD::DomainUserAlias& alias : aliases) {
          found.push_back(One(alias.GetDomainIdx(), alias.GetUID(), {alias.GetAccountAlias()},
                              alias.IsDuplicated() ? "!" : "")[0]);
        }
        return "add " + std::to_string(is_done) + Text(found);
      }
      case 1: {
        std::vector<std::pair<std::string, std::string>> entries;
        for (const std::string& name : names) {
          entries.emplace_back("user", name);
        }
        return "preview " + std::to_string(api.Preview(1, entries, found)) + Text(found);
      }
      case 2: {
        const bool is_done = api.MDOMAIN::CONTROL::DomainUser::Set(users, found);
        return "set " + std::to_string(is_done) + Text(users) + Text(found);
      }
      case 3: {
        const std::vector<unsigned> gids = {500 + Draw(2), 502 + Draw(2)};
        return "remove groups " +
               std::to_string(DomainGroup().MDOMAIN::CONTROL::DomainGroup::Delete(
                   users[0].GetDomainIdx(), gids));
      }
      case 4: {
        StringList addresses;
        const bool is_done = api.GetMailAddresses(Uid(), addresses) &&
                             api.GetMailAddresses(names[0], addresses) &&
                             api.GetMailAddrIncludingAdditionalDomain(names[0], addresses);
        return "addresses " + std::to_string(is_done) + test::Text(addresses);
      }
      default:
        return "remove " + std::to_string(api.MDOMAIN::CONTROL::DomainUser::Delete(
                               users[0].GetDomainIdx(),
                               {users[0].GetUID(), aliases[0].GetUID(), aliases.back().GetUID()}));
    }
  }

  // What each model's operation answered, logged, announced and left.
  std::vector<StringList> RunAll(bool looks_up) {
    random_.seed(7);
    std::vector<StringList> all;
    for (int model = 0; model < kModels; ++model) {
      MakeModel();
      TakeLog();
      StringList result = {Operate(looks_up)};
      for (const test::LogLine& line : TakeLog()) {
        result.push_back(line.text.substr(line.text.find(' ')));
      }
      result.push_back(Configured("smtp_changed_uids"));
      for (const char* table : {"domain_user_alias_table", "domain_user_role_table", "user_table",
                                "domain_group_removed_user_table"}) {
        for (const std::string& row : Rows(std::string("SELECT rowid, * FROM ") + table)) {
          result.push_back(row);
        }
      }
      all.push_back(result);
    }
    return all;
  }
};

TEST_F(RandomUsers, AreLeftAsByReadingEverything) {
  CreateDomain("one.example", false);
  CreateDomain("two.example", false);
  Run("UPDATE primary_domain_table SET domain_idx = 2;"
      "INSERT INTO domain_to_additional_domain_table VALUES(1, 'further.example')");
  ASSERT_TRUE(DomainDBHandler::GetDomainDBHandler()->HasOwnViews());
  const std::vector<StringList> looked_up = RunAll(true);
  DomainDBHandler::CloseDomainDBHandler();
  {
    Run("DROP INDEX mdomain_alias");
    SqliteFile other(DbPath());
    other.Run("BEGIN IMMEDIATE");
    ASSERT_FALSE(DomainDBHandler::GetDomainDBHandler()->HasOwnViews());
  }
  const std::vector<StringList> read = RunAll(false);
  for (int model = 0; model < kModels; ++model) {
    ASSERT_EQ(looked_up[model], read[model]) << "model " << model;
  }
}

}  // namespace
