// The domain store: indexes, names, the primary marker, lists with counts.
#include "lib-domain/db/domain.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "lib-domain/db/domain_names.h"
#include "lib-domain/db/notice.h"
#include "platform/include/batch_scope.h"
#include "platform/include/eai.h"
#include "tests/support/children.h"
#include "tests/support/domain_db.h"

namespace {

using MDOMAIN::DB::Domain;
using MDOMAIN::DB::DomainDBFilter;
using Record = MDOMAIN::RECORD::Domain;
using test::StringList;

Record Make(int idx, const std::string& name, const std::string& desc = "") {
  return {idx, name, desc, "<a>", false, false, false};
}

class DomainStoreTest : public test::DomainDbTest {
 protected:
  Domain store_;
};

TEST_F(DomainStoreTest, OddValuesComeBackAsTheyWere) {
  const std::string names[] = {"", "o'b; DROP TABLE x;--.example", "zoë.example",
                               "\"q\"%_\\\n\t.example", std::string(150000, '\'')};
  int idx = 0;
  for (const std::string& name : names) {
    ++idx;
    ASSERT_TRUE(store_.Create({idx, name, name, name, idx % 2 == 0, false, false}));
  }
  DomainDBFilter filter;
  std::vector<Record> domains;
  ASSERT_TRUE(store_.List(filter, domains));
  ASSERT_EQ(domains.size(), 5U);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(domains[i].GetDomainIdx(), i + 1);
    EXPECT_TRUE(domains[i].GetDomainName() == names[i] && domains[i].GetDomainDesc() == names[i] &&
                domains[i].GetDefaultAliasPattern() == names[i])
        << names[i];
    EXPECT_EQ(domains[i].IsAutomaticallyAddingUsers(), i % 2 == 1);
    EXPECT_FALSE(domains[i].IsPrimary() || domains[i].IsDuplicatedAliasExist());
  }
  EXPECT_FALSE(store_.Set(Make(1, "a.example", std::string(1000000, 'd'))));
  EXPECT_TRUE(Logged("fail to update domain_table"));
  EXPECT_FALSE(store_.Create(Make(9, "a.example", std::string(500000, '\''))));
  EXPECT_TRUE(Logged("a statement is too long"));
  EXPECT_TRUE(Logged("fail to insert domain_table"));
  EXPECT_EQ(Rows("SELECT domain_name, domain_desc FROM domain_table WHERE domain_idx IN (1,9)"),
            StringList{"|"});
  EXPECT_FALSE(store_.Create(Make(1, "again.example")));
  EXPECT_TRUE(Logged("fail to insert domain_table"));
  EXPECT_TRUE(Logged("local_DOMAIN.db]: UNIQUE constraint failed: domain_table.domain_idx"));
  EXPECT_TRUE(store_.Set(Make(77, "nobody.example")));
}

TEST_F(DomainStoreTest, IndexesFollowTheHighest) {
  const auto next = [this] {
    int idx = -5;
    EXPECT_TRUE(store_.GetNextDomainIDX(idx));
    return idx;
  };
  EXPECT_EQ(next(), 1);
  for (const int idx : {1, 2, 5}) {
    ASSERT_TRUE(store_.Create(Make(idx, "d" + std::to_string(idx) + ".example")));
  }
  EXPECT_EQ(next(), 6);
  ASSERT_TRUE(store_.Delete({5, 99}));
  EXPECT_EQ(next(), 3);
  ASSERT_TRUE(store_.Delete({}));
  int count = 0;
  EXPECT_TRUE(store_.GetAllDomainCount(count));
  EXPECT_EQ(count, 2);
  ASSERT_TRUE(store_.Create(Make(2147483647, "last.example")));
  EXPECT_FALSE(store_.GetNextDomainIDX(count));
  EXPECT_TRUE(Logged("no domain_idx is left"));
}

TEST_F(DomainStoreTest, NameIsTakenInEitherSpellingAndCase) {
  ASSERT_TRUE(store_.Create(Make(1, "Example.com")));
  ASSERT_TRUE(store_.Create(Make(2, "münchen.example")));
  ASSERT_TRUE(store_.CreateAdditionalDomains(1, {"xn--kln-sna.example", "o.example"}));
  const std::pair<const char*, bool> cases[] = {
      {"example.COM", true}, {"xn--mnchen-3ya.example", true}, {"köln.example", true},
      {"O.Example", true},   {"zürich.example", false},        {"example.co", false},
      {"", false},           {"x' OR '1'='1", false},          {"XN--MNCHEN-3YA.EXAMPLE", true}};
  for (const auto& [name, taken] : cases) {
    EXPECT_EQ(store_.IsDomainNameExist(name), taken) << name;
  }
  EXPECT_TRUE(store_.IsDomainNameChanged(Make(1, "example.com")));
  EXPECT_FALSE(store_.IsDomainNameChanged(Make(1, "Example.com")));
  EXPECT_FALSE(store_.IsDomainNameChanged(Make(9, "other.example")));
  EXPECT_FALSE(store_.IsDomainNameExist(std::string(400000, 'x')));
  EXPECT_TRUE(Logged("failed to ExecSelectCmd"));
}

TEST_F(DomainStoreTest, AdditionalNames) {
  ASSERT_TRUE(store_.Create(Make(1, "a.example")));
  ASSERT_TRUE(store_.Create(Make(2, "b.example")));
  ASSERT_TRUE(store_.CreateAdditionalDomains(1, {"z.example", "nodot", "m.example", "z.example"}));
  EXPECT_TRUE(Logged("Domain name [nodot] is invalid, ignore"));
  TakeLog();  // the name rule's own line
  ASSERT_TRUE(store_.CreateAdditionalDomains(2, {"y.example", "b2.example", "a2.example"}));
  ASSERT_TRUE(store_.CreateAdditionalDomains(2, {}));
  Run("INSERT INTO domain_to_additional_domain_table VALUES(NULL,'x'),('y','x')");  // nobody's
  // All domains at once answer as one by one.
  std::map<int, StringList> all;
  ASSERT_TRUE(store_.ListAllAdditionalDomains(all));
  for (const int idx : {1, 2}) {
    StringList names;
    ASSERT_TRUE(store_.ListAdditionalDomains(idx, names));
    EXPECT_EQ(all[idx], names);
  }
  EXPECT_THAT(all[1], testing::UnorderedElementsAre("m.example", "z.example"));
  StringList names;
  EXPECT_TRUE(store_.ListAdditionalDomains(-1, names));
  EXPECT_FALSE(store_.ListAdditionalDomains(-2, names));
  EXPECT_TRUE(Logged("domain_idx is invalid"));

  EXPECT_TRUE(store_.DeleteAdditionalDomains(
      1, {std::string(2049, 'l'), "Z.example", "m.example", std::string(2047, '\'')}));
  EXPECT_TRUE(Logged("domain name is too long: lll"));
  EXPECT_EQ(Rows("SELECT additional_domain FROM domain_to_additional_domain_table WHERE "
                 "domain_idx=1"),
            StringList{"z.example"});  // exact spelling
  EXPECT_TRUE(store_.DeleteAdditionalDomains(1, {}));
  EXPECT_TRUE(store_.DeleteAdditionalDomains(1, StringList(2000, std::string(2000, '\''))));
  EXPECT_TRUE(store_.DeleteAdditionalDomains(1, {"z.example"}));
  EXPECT_EQ(Rows("SELECT count(*) FROM domain_to_additional_domain_table WHERE domain_idx=2"),
            StringList{"3"});
  EXPECT_FALSE(store_.CreateAdditionalDomains(9, {"ok.example"}));
  EXPECT_TRUE(Logged("fail to insert domain_to_additional_domain_table"));
}

// Names that are shared are those that are stored, whoever wrote last and whatever was rolled back.
TEST_F(DomainStoreTest, SharedNamesAreThoseThatAreStored) {
  test::SqliteFile other(DbPath());
  other.Run("PRAGMA foreign_keys = on");
  const auto by_other = [&other](const char* sql) { return [&other, sql] { other.Run(sql); }; };
  const auto as_stored = [this] {
    std::shared_ptr<const MDOMAIN::DB::DomainNames> names;
    EXPECT_TRUE(store_.ShareNames(names));
    StringList rows;
    for (const Record& domain : names->domains) {
      rows.push_back(std::to_string(domain.GetDomainIdx()) + "|" + domain.GetDomainName() + "|" +
                     (domain.IsPrimary() ? "1" : "0"));
    }
    for (const auto& [idx, additional] : names->additional) {
      rows.push_back(std::to_string(idx) + "|" + test::Text(additional));
    }
    StringList stored = Rows(
        "SELECT domain_idx, domain_name, domain_idx IN (SELECT domain_idx FROM "
        "primary_domain_table) FROM domain_table ORDER BY 1");
    for (const std::string& row :
         Rows("SELECT domain_idx, group_concat(additional_domain, ', ') FROM (SELECT * FROM "
              "domain_to_additional_domain_table ORDER BY 1, 2) GROUP BY 1")) {
      stored.push_back(row);
    }
    EXPECT_EQ(rows, stored);
    return names;
  };
  struct Step {
    const char* what;
    std::function<void()> run;
    bool is_kept = false;  // the names are not read again, or are the same object
  } const steps[] = {
      {"own", [this] { EXPECT_TRUE(store_.Create(Make(1, "a.example"))); }},
      {"nothing", [] {}, true},
      {"others' user", by_other("INSERT INTO user_table VALUES(7, 'u')"), true},
      {"others' name", by_other("INSERT INTO domain_table VALUES(2, 'b.example', '', '<a>', 0)")},
      {"own notice", [] { EXPECT_TRUE(MDOMAIN::DB::Notice().Add({7})); }, true},
      {"own text", [this] { EXPECT_TRUE(store_.Set(Make(1, "a.example", "text"))); }, true},
      {"additional", [this] { EXPECT_TRUE(store_.CreateAdditionalDomains(2, {"c.example"})); }},
      {"primary", [this] { EXPECT_TRUE(store_.SetPrimaryDomain(2)); }},
      {"both",
       [&] {
         EXPECT_TRUE(MDOMAIN::DB::Notice().Add({8}));
         other.Run("UPDATE domain_table SET domain_name = 'd.example' WHERE domain_idx = 1");
         EXPECT_TRUE(MDOMAIN::DB::Notice().Add({9}));
       }},
      {"rolled back",
       [this] {
         BatchScope scope(MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler());
         EXPECT_TRUE(store_.Set(Make(1, "e.example")));
         std::shared_ptr<const MDOMAIN::DB::DomainNames> names;
         EXPECT_FALSE(store_.ShareNames(names)) << "nobody else has these";
         std::vector<Record> listed;
         EXPECT_TRUE(store_.ListNames(listed) && listed[0].GetDomainName() == "e.example");
         scope.Drop();
       },
       true},
      {"cascade", [this] { EXPECT_TRUE(store_.Delete({2})); }},
  };
  auto before = as_stored();
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    step.run();
    const auto now = as_stored();
    EXPECT_EQ(now == before, step.is_kept);
    before = now;
  }
  other.Run("INSERT INTO domain_table VALUES(-3, 'odd.example', '', '<a>', 0)");
  EXPECT_FALSE(store_.ShareNames(before)) << "ListNames tells";
}

TEST_F(DomainStoreTest, PrimaryIsAtMostOneAndWhatIsAbsentStaysUntouched) {
  int idx = -7;
  Record record("untouched.example");
  std::string pattern = "preset";
  EXPECT_TRUE(store_.GetPrimaryDomainIdx(idx));
  EXPECT_TRUE(store_.GetPrimaryDomain(record));
  EXPECT_FALSE(store_.GetDefaultAliasPattern(-2, pattern));
  EXPECT_TRUE(Logged("domain_idx is invalid"));
  EXPECT_TRUE(store_.GetDefaultAliasPattern(-1, pattern));
  EXPECT_EQ(idx, -7);
  EXPECT_EQ(record.GetDomainName() + pattern, "untouched.examplepreset");
  ASSERT_TRUE(store_.Create(Make(1, "a.example")));
  EXPECT_TRUE(store_.GetDefaultAliasPattern(1, pattern));
  EXPECT_EQ(pattern, "<a>");
  ASSERT_TRUE(store_.Create({2, "b.example", "desc", "<g>", true, false, false}));
  ASSERT_TRUE(store_.SetPrimaryDomain(1));
  ASSERT_TRUE(store_.SetPrimaryDomain(2));
  EXPECT_EQ(Rows("SELECT * FROM primary_domain_table"), StringList{"2"});
  ASSERT_TRUE(store_.GetPrimaryDomainIdx(idx));
  ASSERT_TRUE(store_.GetPrimaryDomain(record));
  EXPECT_EQ(idx, 2);
  EXPECT_EQ(record.GetDomainName() + record.GetDomainDesc() + record.GetDefaultAliasPattern(),
            "b.exampledesc<g>");
  EXPECT_TRUE(record.IsPrimary() && record.IsAutomaticallyAddingUsers());
  std::vector<int> adding;
  EXPECT_TRUE(store_.GetAutoAddingUserDomainIds(adding));
  EXPECT_EQ(adding, std::vector<int>{2});
}

// Three domains: 1 with two users (one of them twice), 2 with one by group and one without a role,
// 3 empty.
TEST_F(DomainStoreTest, ListsCountUsersWithARole) {
  for (const int idx : {1, 2, 3}) {
    ASSERT_TRUE(store_.Create(Make(idx, "d" + std::to_string(idx) + ".example")));
  }
  Run("INSERT INTO user_table VALUES(1,'a'),(2,'b'),(3,'c');"
      "INSERT INTO group_table VALUES(5,'g','');INSERT INTO group_to_user_table VALUES(5,3);"
      "INSERT INTO domain_user_role_table VALUES(1,1,'domain_admin',0),(1,2,'normal',0);"
      "INSERT INTO domain_group_role_table VALUES(2,5,'domain_admin');"
      "INSERT INTO domain_user_alias_table VALUES(1,1,'a',0),(1,1,'aa',1),(1,2,'b',0),(2,3,'c',0),"
      "(2,1,'ghost',1)");
  DomainDBFilter filter("domain_group_view");
  filter.SetSelect("*");
  filter.SetLimit(2);
  filter.SetOffset(1);
  int count = 0;
  ASSERT_TRUE(store_.GetDomainCount(filter, count));
  EXPECT_EQ(count, 3);  // a count is never paged
  std::vector<Record> domains;
  ASSERT_TRUE(store_.List(filter, domains));  // and the filter still pages the list
  ASSERT_EQ(domains.size(), 2U);
  filter.SetOffset(0);
  filter.SetLimit(-1);
  domains.clear();
  ASSERT_TRUE(store_.List(filter, domains));
  ASSERT_EQ(domains.size(), 3U);
  EXPECT_EQ(domains[0].GetUserNum(), 2);
  EXPECT_EQ(domains[1].GetUserNum(), 1);
  EXPECT_EQ(domains[2].GetUserNum(), 0);
  EXPECT_TRUE(domains[0].IsDuplicatedAliasExist());
  EXPECT_FALSE(domains[1].IsDuplicatedAliasExist());  // no collision without a role

  std::vector<unsigned int> uids;
  EXPECT_TRUE(store_.GetBelongedUsers({1, 2}, uids));
  EXPECT_THAT(uids, testing::UnorderedElementsAre(1, 2, 3));
  std::vector<int> delegated;
  EXPECT_TRUE(store_.GetDelegatedDomainIds(3, delegated));  // by group
  EXPECT_EQ(delegated, std::vector<int>{2});

  filter.SetSelect("domain_idx");
  EXPECT_FALSE(store_.List(filter, domains));  // narrower than a record
  EXPECT_TRUE(Logged("failed to ExecSelectCmd"));
}

// The file does not exist when they start; a late process finds the schema or waits for it.
TEST_F(DomainStoreTest, SeveralProcessesMakeAndWriteOneFile) {
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  std::filesystem::remove(DbPath());
  const auto create = [](int number) {
    bool ok = true;
    for (int i = 0; i < 5; ++i) {
      ok = Domain().Create(Make(100 * number + i, "d.example")) && ok;
    }
    return ok;
  };
  EXPECT_EQ(test::FailingChildren(4, create), 0);
  EXPECT_EQ(Rows("SELECT count(*), user_version FROM domain_view, pragma_user_version"),
            StringList{"20|4"});
}

// A process that waited for another one's upgrade must not run its older scripts over it.
TEST_F(DomainStoreTest, LateUpgradeLeavesWhatIsNewer) {
  Run("PRAGMA user_version = 3; ALTER TABLE domain_table ADD COLUMN quota");
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  const auto upgrade = [&go](int number) {
    char byte = 0;
    if (number == 0) {
      return read(go[0], &byte, 1) == 1 &&
             MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler() != nullptr;
    }
    test::SqliteFile newer(DbPath());
    newer.Run("BEGIN IMMEDIATE; PRAGMA user_version = 7; DROP VIEW domain_view");
    const bool told = write(go[1], &byte, 1) == 1;
    usleep(300000);  // it has read version 3 by now and waits
    newer.Run("COMMIT");
    return told && !HasFailure();
  };
  EXPECT_EQ(test::FailingChildren(2, upgrade), 0);
  close(go[0]);
  close(go[1]);
  EXPECT_EQ(Rows("PRAGMA user_version"), StringList{"7"});
  EXPECT_EQ(Rows("SELECT count(*) FROM sqlite_master WHERE name = 'domain_view'"), StringList{"0"});
}

// Names and what the schema has are remembered as long as nobody commits.
TEST_F(DomainStoreTest, WhatIsRememberedIsWhatIsStored) {
  MDOMAIN::DB::Notice notices;
  const auto read = [&] {
    std::vector<Record> domains;
    std::vector<unsigned int> uids;
    EXPECT_TRUE(store_.ListNames(domains) && notices.List(uids));
    std::string all = MDOMAIN::BASE::Join(uids, " ");
    for (const Record& domain : domains) {
      all += " " + domain.GetDomainName();
    }
    return all;
  };
  const auto expect = [&](const std::string& all) {
    EXPECT_EQ(read(), all);
    EXPECT_EQ(read(), all);
  };
  expect("");
  Run("INSERT INTO domain_table(domain_idx, domain_name) VALUES(1, 'a')");
  expect(" a");
  Run("CREATE TABLE mdomain_notice_table(uid INTEGER PRIMARY KEY);INSERT INTO "
      "mdomain_notice_table VALUES(7)");
  expect("7 a");
  Run("DROP TABLE mdomain_notice_table");
  expect(" a");
  {
    BatchScope scope(MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler());
    ASSERT_TRUE(store_.Create(Make(2, "b")) && notices.Add({8}));
    expect("8 a b");
    ASSERT_TRUE(store_.Delete({2}));
    expect("8 a");
  }
  expect("8 a");
}

TEST_F(DomainStoreTest, MissingTableFailsEveryRead) {
  Run("ALTER TABLE domain_table RENAME TO gone");
  DomainDBFilter filter;
  std::vector<Record> domains;
  int count = 0;
  Record record;
  EXPECT_FALSE(store_.List(filter, domains) || store_.GetDomainCount(filter, count) ||
               store_.IsDomainNameChanged(Make(1, "a.example")) || store_.GetPrimaryDomain(record));
  int failures = 0;
  for (const auto& line : TakeLog()) {
    failures += line.text.find(" failed to ExecSelectCmd") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(failures, 4);
}

}  // namespace
