// The facade for domains: error numbers, roll-back, publication as part of the result.
#include "lib-domain/api/domain.h"

#include <unistd.h>

#include "lib-domain/api/domain_user.h"
#include "tests/support/children.h"
#include "tests/support/sync_fixture.h"

namespace {

using MDOMAIN::API::Domain;
using test::StringList;
namespace RECORD = MDOMAIN::RECORD;

class DomainApiTest : public test::SyncTest {
 protected:
  static RECORD::Domain Record(const std::string& name, int domain_idx = -1) {
    return {domain_idx, name, "", "<a>", false, false, false};
  }
  static StringList Domains() {
    return Rows("SELECT domain_idx,domain_name,is_primary FROM domain_view ORDER BY 1");
  }
  static StringList Additional() {
    return Rows("SELECT additional_domain FROM domain_to_additional_domain_table ORDER BY 1");
  }
};

TEST_F(DomainApiTest, RefusalsLeaveTheirNumberBehind) {
  Domain api;
  int domain_idx = -1;
  RECORD::Domain first = Record("example.com");
  ASSERT_TRUE(api.Create(first, domain_idx));
  EXPECT_EQ(api.GetErrorCode(), 0U);
  RECORD::Domain taken = Record("EXAMPLE.com");
  EXPECT_FALSE(api.Create(taken, domain_idx));
  EXPECT_EQ(api.GetErrorCode(), 5618U);
  // A success afterwards does not reset it, nor does a plain failure set it.
  RECORD::Domain second = Record("example.org");
  EXPECT_TRUE(api.Create(second, domain_idx));
  EXPECT_FALSE(api.Delete({1}));
  EXPECT_EQ(api.GetErrorCode(), 5618U);
  RECORD::Domain invalid = Record("dotless");
  EXPECT_FALSE(api.Create(invalid, domain_idx));
  EXPECT_EQ(api.GetErrorCode(), 5633U);

  const auto number = [](const std::function<bool(Domain&)>& call) {
    Domain one;
    EXPECT_FALSE(call(one));
    return one.GetErrorCode();
  };
  EXPECT_EQ(number([](Domain& one) { return one.Set(Record("Example.org", 2)); }), 5618U);
  EXPECT_EQ(number([](Domain& one) { return one.Set(Record("", 2)); }), 5633U);
  EXPECT_EQ(number([](Domain& one) {
              return one.CreateAdditionalDomains(1, {"new.example", "example.org"});
            }),
            5618U);
  EXPECT_EQ(number([](Domain& one) { return one.SetAdditionalDomains(1, {}, {"example.org"}); }),
            5618U);
  EXPECT_TRUE(Additional().empty());
  EXPECT_EQ(Domains(), (StringList{"1|example.com|1", "2|example.org|0"}));
  EXPECT_TRUE(Logged("Failed to Delete domain_ids"));
  TakeLog();
}

TEST_F(DomainApiTest, ChangeThatIsNotPublishedIsAFailureAndStays) {
  Domain api;
  RECORD::Domain domain = Record("example.com");
  int domain_idx = -1;
  test::FailOn("setFile");
  const std::pair<const char*, std::function<bool()>> calls[] = {
      {"Create", [&] { return api.Create(domain, domain_idx); }},
      {"Set", [&] { return api.Set(Record("example.org", 1)); }},
      {"SetPrimary", [&] { return api.SetPrimary(1); }},
      {"CreateAdditional", [&] { return api.CreateAdditionalDomains(1, {"a.example"}); }},
      {"SetAdditional",
       [&] {
         return api.SetAdditionalDomains(1, {"a.example"}, {"b.example", "c.example"});
       }},
      {"DeleteAdditional", [&] { return api.DeleteAdditionalDomains(1, {"c.example"}); }},
  };
  for (const auto& [name, call] : calls) {
    EXPECT_FALSE(call()) << name;
    EXPECT_TRUE(Logged("Failed to Trigger")) << name;
    TakeLog();
  }
  EXPECT_EQ(api.GetErrorCode(), 5635U);
  EXPECT_EQ(Domains(), (StringList{"1|example.org|1"}));
  EXPECT_EQ(Additional(), (StringList{"b.example"}));
  EXPECT_EQ(Configured("virtual_multiple_domain"), "");
}

// Nothing of the new domain stays, whichever step fails, and another domain is primary again.
TEST_F(DomainApiTest, NewPrimaryDomainIsTakenBackWhenItCannotBeFilled) {
  const std::string old = "1|old.example|1, 2|second.example|0 ";
  const test::FailingStep steps[] = {
      {"DomainSetting::CreateSettings", "", "Failed to _InitDomainRelatedSettings", "0 users, 0"},
      {test::kBatch, "domain_idx) values ('3')", "Failed to SetPrimaryDomain, domain_id: [3]",
       "0 users, 0"},
      {"KLIBGroupEnum", "", "Failed to GetAllZelmGroups\nFailed to _CreatePrimaryImp",
       "0 users, 5634"},
      {test::kBatch, "domain_group_role_table",
       "Failed to create domain groups, new_primary_domain_id: [3]\nFailed to _CreatePrimaryImp",
       "2 users, 0"},
      {test::kBatch, "domain_user_role_table", "Failed to Refresh\nFailed to _CreatePrimaryImp",
       "3 users, 5634"},
  };
  CreateDomain("old.example", false);
  CreateDomain("second.example", false);
  unsigned int error = 0;
  const auto create = [&error] {
    Domain api;
    RECORD::Domain domain("example.com");
    int domain_idx = -1;
    const bool done = api.CreatePrimary(domain, domain_idx);
    error = api.GetErrorCode();
    return done;
  };
  const auto left = [&error] {
    const std::string users = Rows("SELECT count(*) || ' users, ' FROM user_table")[0];
    Run("DELETE FROM user_table; DELETE FROM group_table");
    return test::Text(Domains()) + " " + users + std::to_string(error);
  };
  for (const test::FailingStep& step : steps) {
    ExpectStops({{step.function, step.text, step.logged, old + step.left}}, create, left);
  }
  // Without another domain, the model is not one that was emptied on purpose.
  Run("DELETE FROM domain_table");
  ExpectStops({{test::kBatch, "DELETE FROM primary_domain_table",
                "Failed to SetPrimaryDomain\nFailed to _CreatePrimaryImp", " 0 users, 0"}},
              create, left);
  EXPECT_EQ(Rows("PRAGMA application_id"), StringList{"0"});
}

// Killed at its first write, its second, and so on, until it lives to its end.
TEST_F(DomainApiTest, KilledCreationOfThePrimaryDomainLeavesTheOldOne) {
  CreateDomain("old.example", false);
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  bool done = false;
  int writes = 0;
  for (; !done && writes < 100; ++writes) {
    const auto create = [&writes](int) {
      int left = writes;
      test::WhenCalled(test::kBatch, [&left] {
        if (left-- == 0) {
          _exit(1);
        }
      });
      RECORD::Domain domain("example.com");
      int domain_idx = -1;
      return Domain().CreatePrimary(domain, domain_idx);
    };
    done = test::FailingChildren(1, create) == 0;
    const StringList domains = Domains();
    EXPECT_TRUE(domains == StringList{"1|old.example|1"} ||
                domains == (StringList{"1|old.example|0", "2|example.com|1"}))
        << writes << ": " << test::Text(domains);
    if (domains.size() > 1) {
      break;  // the rest of the writes are behind it
    }
  }
  EXPECT_GT(writes, 5);
}

// Of a name that all want, one gets it; nobody loses an index, and the last publication is whole.
TEST_F(DomainApiTest, ProcessesThatCreateAtOnceShareIndexesAndNames) {
  CreateDomain("first.example", false);
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  constexpr int kEach = 12;
  const auto create = [](int number) {
    bool done = true;
    for (int i = 0; i < kEach; ++i) {
      RECORD::Domain own =
          Record("p" + std::to_string(number) + "-" + std::to_string(i) + ".example");
      RECORD::Domain wanted_by_all = Record("all-" + std::to_string(i) + ".example");
      int domain_idx = -1;
      Domain api;
      done = api.Create(own, domain_idx) && done;
      done = (api.Create(wanted_by_all, domain_idx) || api.GetErrorCode() == 5618) && done;
    }
    return done;
  };
  EXPECT_EQ(test::FailingChildren(4, create), 0);
  EXPECT_EQ(Rows("SELECT count(*), count(DISTINCT domain_name), max(domain_idx) FROM domain_table"),
            StringList{"61|61|61"});
  std::string entries;
  for (const std::string& entry :
       Rows("SELECT domain_idx || '/' || domain_name FROM domain_table ORDER BY domain_idx")) {
    entries += (entries.empty() ? "" : ", ") + entry;
  }
  EXPECT_EQ(Configured("virtual_multiple_domain"), entries);
}

// Another process creates domains while this one publishes what it had read before, as long as it
// gets the lock.
TEST_F(DomainApiTest, PublicationThatWasOvertakenIsRepeated) {
  CreateDomain("first.example", false);
  std::string entries = "1/first.example";
  int last_idx = 1;
  int calls = 0;
  test::WhenCalled("ls", [&] {
    if (++calls > 5) {
      return;  // the model is published, and the lock given back
    }
    const std::string idx = std::to_string(last_idx + 1);
    if (test::SqliteFile(DbPath()).IsRun("INSERT INTO domain_table VALUES(" + idx + ",'" + idx +
                                         "','','<a>',0)")) {
      entries += ", " + idx + "/" + idx;
      ++last_idx;
    }
  });
  EXPECT_TRUE(MDOMAIN::UTILS::Updater().Trigger());
  EXPECT_EQ(Configured("virtual_multiple_domain"), entries);
  EXPECT_EQ(last_idx, 5);
  // Without the lock nobody can say that the newest state is published.
  test::FailOn(test::kBatch, ";");
  calls = 0;
  EXPECT_FALSE(MDOMAIN::UTILS::Updater().Trigger());
  EXPECT_TRUE(Logged("what is published may be older"));
  TakeLog();
}

TEST_F(DomainApiTest, ModelWithoutDomainsEmptiesNothing) {
  using MDOMAIN::DB::DomainDBHandler;
  const auto publish = [] {
    CreateDomain("example.com", false);
    MDOMAIN::API::Updater updater;
    EXPECT_TRUE(updater.Trigger());
  };
  const auto lose = [&publish](bool is_file_left) {
    publish();
    DomainDBHandler::CloseDomainDBHandler();
    EXPECT_EQ(is_file_left ? truncate(DbPath().c_str(), 0) : unlink(DbPath().c_str()), 0);
  };
  const struct {
    const char* name;
    std::function<void()> arrange;
    const char* said;  // empty: published as it is
  } cases[] = {
      {"nothing published", [] {}, ""},
      {"no domain in the older settings",
       [] { mailConfSet("smtp_main_domain", "localdomain", true, 0); }, ""},
      {"older settings", [] { mailConfSet("smtp_main_domain", "old.example", true, 0); },
       "the older settings name \"old.example\""},
      {"lost file", [&] { lose(false); }, "it was lost or emptied"},
      {"file of no length", [&] { lose(true); }, "it was lost or emptied"},
      {"emptied from outside",
       [&] {
         publish();
         Run("DELETE FROM domain_table");
       },
       "local_DOMAIN.db has no domain any more"},
      {"other account domain",
       [&] {
         publish();
         mailConfSet("acc_domain_name", "dir.example", true, 0);
         mailConfSet("account_type", "ldap", true, 0);
         DomainDBHandler::CloseDomainDBHandler();
       },
       "dir.example_DOMAIN.db has no domain, and the published domains are those of "
       "local_DOMAIN.db"},
      {"deleted on purpose",
       [&] {
         publish();
         EXPECT_TRUE(MDOMAIN::CONTROL::Domain().Delete({1}, true));
       },
       ""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    unlink(DbPath().c_str());
    for (const char* key : {"account_type", "virtual_multiple_domain", "smtp_main_domain",
                            "mdomain_model", "mailserver_domain_db"}) {
      mailConfSet(key, key == std::string("account_type") ? "local" : "", true, 0);
    }
    one.arrange();
    const std::string main_domain = Configured("smtp_main_domain");
    const bool is_kept = *one.said != '\0';
    EXPECT_EQ(MDOMAIN::API::Updater().Trigger(), !is_kept);
    EXPECT_EQ(Logged(is_kept ? one.said : "Nothing is published"), is_kept) << one.said;
    TakeLog();
    EXPECT_EQ(Configured("smtp_main_domain"), is_kept ? main_domain : "");
    MDOMAIN::API::Updater forced;
    forced.AllowEmptyPublication(true);
    EXPECT_TRUE(forced.Trigger());
    EXPECT_EQ(Configured("virtual_multiple_domain") + Configured("smtp_main_domain"), "");
  }
}

TEST_F(DomainApiTest, MigratingCanBeRepeated) {
  Domain api;
  RECORD::Domain domain("example.com");
  ASSERT_TRUE(api.Migrate(domain, {"a.example", "b.example"}));
  EXPECT_EQ(Members(1).size(), 3U);
  RECORD::Domain renamed("example.org");
  ASSERT_TRUE(api.Migrate(renamed, {"a.example", "b.example", "c.example"}));
  EXPECT_EQ(Domains(), (StringList{"1|example.org|1"}));
  EXPECT_EQ(Additional(), (StringList{"a.example", "b.example", "c.example"}));
  EXPECT_EQ(Configured("additional_domain-1"), "a.example, b.example, c.example");
  EXPECT_FALSE(api.Migrate(renamed, {"example.ORG"}));
  EXPECT_EQ(api.GetErrorCode(), 5618U);
  TakeLog();
}

TEST_F(DomainApiTest, PrimaryDomainComesFirst) {
  for (const char* name : {"one.example", "two.example", "three.example"}) {
    CreateDomain(name, false);
  }
  ASSERT_TRUE(Domain().SetPrimary(3));
  for (const bool names_only : {false, true}) {
    std::vector<RECORD::Domain> listed;
    ASSERT_TRUE(names_only ? Domain().ListNames(listed)
                           : MDOMAIN::API::INTERNAL::GetAllDomains(listed));
    StringList names;
    for (const RECORD::Domain& domain : listed) {
      names.push_back(domain.GetDomainName() + (domain.IsPrimary() ? "!" : ""));
    }
    EXPECT_EQ(names, (StringList{"three.example!", "one.example", "two.example"}));
  }
}

// An empty list of those that somebody may see is not that of all.
TEST_F(DomainApiTest, NothingIsListedOfDomainsThatAreNotAllowed) {
  CreateDomain("example.com", false);
  CreateDomain("example.org", false);
  EXPECT_TRUE(MDOMAIN::API::Updater().Refresh());
  using Idxs = std::vector<int>;
  const struct {
    Idxs asked, allowed, listed;
  } cases[] = {
      {{}, {}, {}}, {{1, 2}, {}, {}}, {{}, {2}, {2}}, {{1, 2}, {2, 9}, {2}}, {{1}, {2}, {}}};
  for (const auto& one : cases) {
    MDOMAIN::DB::DomainDBFilter filter;
    filter.SetDomainIdxs(one.asked);
    filter.LimitToDomainIdxs(one.allowed);
    std::vector<RECORD::Domain> domains;
    int count = -1;
    EXPECT_TRUE(Domain().List(filter, domains));
    EXPECT_TRUE(Domain().GetDomainCount(filter, count));
    Idxs listed;
    for (const RECORD::Domain& domain : domains) {
      listed.push_back(domain.GetDomainIdx());
    }
    EXPECT_EQ(listed, one.listed);
    EXPECT_EQ(count, static_cast<int>(one.listed.size()));
    std::vector<RECORD::DomainUser> users;
    EXPECT_TRUE(MDOMAIN::API::DomainUser().List(filter, users));
    EXPECT_TRUE(users.empty());
  }
  MDOMAIN::DB::DomainDBFilter sorted;
  std::vector<RECORD::DomainUser> users;
  sorted.SetDomainIdxs({1});
  sorted.SetSortBy("uid LIMIT 0; --");
  EXPECT_FALSE(MDOMAIN::API::DomainUser().List(sorted, users));
  TakeLog();
}

}  // namespace
