// Domains as wholes: refusals, the primary domain, additional names, what a deletion removes and
// what each failing step of it leaves behind.
#include "lib-domain/control/domain.h"

#include <functional>

#include "lib-domain/base/error_code.h"
#include "lib-domain/control/domain_internal.h"
#include "tests/control/control_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
using MDOMAIN::CONTROL::Domain;
namespace PATHS = MDOMAIN::PATHS;
namespace RECORD = MDOMAIN::RECORD;

class DomainControl : public ControlTest {
 protected:
  // "ok", "false", or the code of the exception, whose log line counts as announced.
  std::string Outcome(const std::function<bool()>& operation) {
    try {
      return operation() ? "ok" : "false";
    } catch (const korvmailserver::LogException& e) {
      EXPECT_TRUE(Logged("(" + std::to_string(e.code) + ")"));
      return std::to_string(e.code) + " " + e.what();
    }
  }
  std::string Create(const std::string& name) {
    RECORD::Domain record(-1, name, "text", "<a>", false, false, false);
    int domain_idx = -1;
    const std::string outcome = Outcome([&] { return Domain().Create(record, domain_idx); });
    EXPECT_EQ(record.GetDomainIdx() == domain_idx, outcome == "ok" || domain_idx != -1);
    return outcome == "ok" ? std::to_string(domain_idx) : outcome;
  }
  void AddMember(int domain_idx, unsigned int uid, const std::string& role = "normal") {
    const std::string key = std::to_string(domain_idx) + "," + std::to_string(uid);
    Run("INSERT OR IGNORE INTO user_table VALUES(" + std::to_string(uid) +
        ",'u');"
        "INSERT INTO domain_user_role_table VALUES(" +
        key + ",'" + role +
        "',0);"
        "INSERT INTO domain_user_alias_table VALUES(" +
        key + ",'a" + std::to_string(uid) + "',0)");
  }
  StringList Names() { return Rows("SELECT domain_idx,domain_name FROM domain_table ORDER BY 1"); }
};

TEST_F(DomainControl, NamesAreRefusedOrTaken) {
  const std::pair<const char*, const char*> cases[] = {
      {"example.com", "1"},
      {"EXAMPLE.com", "3002 Unable to create domain [EXAMPLE.com]"},
      {"b\u00fccher.example", "2"},
      {"xn--bcher-kva.example", "3002 Unable to create domain [xn--bcher-kva.example]"},
      {"localhost", "3003 Unable to create domain [localhost]"},
      {"system.alias.to.user.POSTARA",
       "3003 Unable to create domain [system.alias.to.user.POSTARA]"},
      {"", "3003 Unable to create domain []"},
      {"more.example", "3002 Unable to create domain [more.example]"},
      {"o'k.example", "3003 Unable to create domain [o'k.example]"},
      {"B\u00dcCHER.example", "3003 Unable to create domain [B\u00dcCHER.example]"},
  };
  for (const auto& [name, want] : cases) {
    EXPECT_EQ(Create(name), want);
    if (std::string(want) == "1") {
      EXPECT_TRUE(Domain().CreateAdditionalDomains(1, {"More.example"}, false));
    }
  }
  EXPECT_TRUE(Logged("Domain name [localhost] without \".\" is not valid"));
  EXPECT_TRUE(Logged("Domain name [system.alias.to.user.POSTARA] is reserved"));
  TakeLog();
  EXPECT_EQ(Names(), (StringList{"1|example.com", "2|b\u00fccher.example"}));
  EXPECT_EQ(Rows("SELECT * FROM primary_domain_table"), StringList{"1"});
  EXPECT_EQ(SqliteFile(PATHS::SettingsDb())
                .Rows("SELECT domain_id FROM multi_domain_rate_table ORDER BY 1"),
            (StringList{"1", "2"}));
}

TEST_F(DomainControl, CreationThatFailsLateLeavesNothing) {
  const FailingStep steps[] = {
      {"DomainSetting::CreateSettings", "", "lib-domain/control/domain:", ""},
      {kBatch, "primary_domain_table",
       "fail to insert primary_domain_table\nFailed to SetPrimaryDomain", ""},
      {kBatch, "INSERT INTO  domain_table", "fail to insert domain_table\nFailed to Create domain",
       ""},
  };
  ExpectStops(
      steps, [this] { return Create("x.example") != "false"; }, [this] { return Text(Names()); });
  // What the domain that was taken back may have left must go first, and a damaged database keeps
  // it.
  Write("/var/packages/Postara-Server/etc/mailserver.db", "no database");
  EXPECT_EQ(Create("y.example"), "false");
  EXPECT_EQ(Names(), StringList());
  TakeLog();
}

TEST_F(DomainControl, RenamingTellsTheMembers) {
  ASSERT_EQ(Create("a.example"), "1");
  ASSERT_EQ(Create("b.example"), "2");
  AddMember(2, 1007);
  AddMember(2, 1003);
  const auto set = [this](const std::string& name, const std::string& description) {
    return Outcome([&] {
      return Domain().Set(RECORD::Domain(2, name, description, "<a>", true, false, false));
    });
  };
  EXPECT_EQ(set("b.example", "it's new"), "ok");
  EXPECT_EQ(Configured("smtp_changed_uids"), "");
  EXPECT_EQ(set("B.example", ""), "3002 Unable to set domain [B.example]");
  EXPECT_EQ(set("A.EXAMPLE", ""), "3002 Unable to set domain [A.EXAMPLE]");
  EXPECT_EQ(set("bad name", ""), "3003 Unable to set domain [bad name]");
  EXPECT_TRUE(Logged("without \".\""));
  EXPECT_TRUE(Logged("Domain name [bad name] is invalid"));
  EXPECT_EQ(Configured("smtp_changed_uids"), "");
  EXPECT_EQ(set("c.example", "it's new"), "ok");
  EXPECT_EQ(Configured("smtp_changed_uids"), "1003, 1007");
  EXPECT_TRUE(KLIBCFileExist((PATHS::ChangedUserDir() + "1007").c_str()));
}

// A notice is only a notice: the change is made all the same.
TEST_F(DomainControl, NoticesThatFailAreLogged) {
  ASSERT_EQ(Create("a.example"), "1");
  for (unsigned int uid : {7U, 8U, 9U}) {
    AddMember(1, uid);
  }
  const struct {
    const char* function;
    const char* text;
    std::string logged;
    bool is_last_touched;
  } cases[] = {
      {"KORVFSMkdirP", "",
       "failed to mkdir, path [" + PATHS::ChangedUserDir() + "], error[Permission denied]", false},
      {"KLIBCFileTouch", "/8", "Failed to KLIBCFileTouch, path: [" + PATHS::ChangedUserDir() + "8]",
       true},
      {"mailConfSet", "smtp_changed_uids",
       "Failed to mailConfSet, key = [smtp_changed_uids], val = [7, 8, 9]", true},
  };
  for (const auto& c : cases) {
    FailOn(c.function, c.text);
    const std::string name = std::string(c.function) + ".example";
    EXPECT_TRUE(Domain().Set(RECORD::Domain(1, name, "", "<a>", true, false, false)));
    ClearFaults();
    EXPECT_TRUE(Logged(c.logged)) << c.logged;
    EXPECT_TRUE(Logged("Failed to NotifySMTPChangedUIDs"));
    EXPECT_EQ(Names(), StringList{"1|" + name});
    EXPECT_EQ(KLIBCFileExist((PATHS::ChangedUserDir() + "9").c_str()), c.is_last_touched);
    EXPECT_EQ(Configured("smtp_changed_uids"), "");  // kept back when a flag is missing
  }
}

class DomainDeletion : public DomainControl {
 protected:
  DomainDeletion() {
    Create("primary.example");
    Create("second.example");
    Domain().CreateAdditionalDomains(2, {"more.example"}, false);
    AddMember(2, 1001);
    for (int domain_idx : {1, 2}) {
      Alias alias(PATHS::AliasDb());
      alias.load();
      alias.set({"all", domain_idx, {{Alias::MemberKind::User, "alice"}}});
      mailConfSet("enable_dkim_sign-" + std::to_string(domain_idx), "yes", true, 0);
      mailConfSet("dkim_selector-" + std::to_string(domain_idx), "s1", true, 0);
      for (const char* key : {"dkim.private-", "dkim.public-"}) {
        Write("/var/packages/Postara-Server/etc/dkim.key/" + (key + std::to_string(domain_idx)),
              "");
      }
    }
  }

  // What is left of a domain outside the domain database.
  std::string Remains(int domain_idx) {
    const std::string index = std::to_string(domain_idx);
    Alias alias(PATHS::AliasDb());
    alias.load();
    std::string left = alias.isAlias("all", domain_idx) ? "alias " : "";
    SqliteFile settings(PATHS::SettingsDb());
    if (!settings.Rows("SELECT 1 FROM multi_domain_enable_table WHERE domain_id=" + index)
             .empty()) {
      left += "limits ";
    }
    left += Configured("mimedefang_disclaimers-" + index).empty() ? "disclaimers " : "";
    left += Configured("enable_dkim_sign-" + index) == "yes" ? "sign " : "";
    left += Configured("dkim_selector-" + index) == "s1" ? "selector " : "";
    left += KLIBCFileExist(PATHS::DkimPrivateKey(domain_idx).c_str()) ? "private " : "";
    left += KLIBCFileExist(PATHS::DkimPublicKey(domain_idx).c_str()) ? "public" : "";
    return left;
  }
};

constexpr const char* kEverything = "alias limits disclaimers sign selector private public";

TEST_F(DomainDeletion, RefusesThePrimaryDomainAsAWhole) {
  EXPECT_FALSE(Domain().Delete({2, 1}, false));
  EXPECT_TRUE(Logged("Can't delete primary domain"));
  EXPECT_EQ(Names().size(), 2U);
  EXPECT_EQ(Remains(2), kEverything);
  EXPECT_EQ(Configured("smtp_changed_uids"), "");
  EXPECT_TRUE(Domain().Delete({2, 1}, true));
  EXPECT_EQ(Rows("SELECT * FROM primary_domain_table"), StringList{});
  EXPECT_EQ(Remains(1), "");
}

TEST_F(DomainDeletion, RemovesWhatHangsOnTheDomainAndNothingElse) {
  EXPECT_TRUE(Domain().Delete({2}, false));
  EXPECT_EQ(Names(), StringList{"1|primary.example"});
  for (const char* table :
       {"domain_to_additional_domain_table", "domain_user_role_table", "domain_user_alias_table"}) {
    EXPECT_EQ(Rows(std::string("SELECT * FROM ") + table), StringList{}) << table;
  }
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001");
  EXPECT_EQ(Remains(2), "");
  EXPECT_EQ(Configured("enable_dkim_sign-2"), "no");
  EXPECT_EQ(Remains(1), kEverything);
  std::string published;
  EXPECT_TRUE(KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::getFile("bcc_db", published));
  EXPECT_EQ(published, PATHS::SettingsDb());
  EXPECT_TRUE(Domain().Delete({}, false));
}

// One domain loses its settings step by step, a step further with each fault; the domain behind it
// in the list keeps all of its own.
TEST_F(DomainDeletion, StopsAtTheStepThatFails) {
  const std::string keys = "sign selector private public";
  // Without a rule there is nothing to delete, and nothing that fails.
  SqliteFile(PATHS::SettingsDb())
      .Run("INSERT INTO bcc_table VALUES('anna',0,'boss',1),('anna',0,'boss',2)");
  const FailingStep steps[] = {
      {"Alias::load", "", "Failed to load alias", kEverything},
      {"Alias::delDomainAlias", "", "Failed to delDomainAlias, domain_id: [2]", kEverything},
      {"DomainSetting::DelSettings", "", "Failed to DelSettings, domain_id: [2]",
       "limits disclaimers " + keys},
      {kBatch, "DELETE FROM bcc_table", "Failed to deleteAllBCC, domain_id: [2]",
       "disclaimers " + keys},
      {"Config::LoadSettings", "", "Failed to load mimedefang settings", "disclaimers " + keys},
      {"Config::SaveSettings", "", "Failed to save mimedefang settings", keys},
      {"mailConfSet", "enable_dkim_sign-2", "Failed to mailConfSet", keys},
      {"mailConfSet", "dkim_selector-2", "Failed to mailConfSet", "selector private public"},
  };
  ExpectStops(
      steps,
      [] {
        Run("INSERT OR IGNORE INTO domain_table VALUES(1,'primary.example','','<a>',0),"
            "(2,'second.example','','<a>',0)");
        return Domain().Delete({2, 1}, true);
      },
      [this] {
        EXPECT_EQ(Names(), StringList{});
        EXPECT_EQ(Remains(1), kEverything);
        return Remains(2);
      });
}

// Whether the filter has to run was not settled any more, and the deletion was said to be done.
TEST_F(DomainDeletion, GoesOnWhenDisclaimersCannotBeEmptiedAndSaysSo) {
  const std::string list = R"([{"id":1,"name":"n","enabled":true}])";
  mailConfSet("mimedefang_disclaimers-2", list, true, 0);
  FailOn("mailConfSet", "mimedefang_disclaimers-2");
  EXPECT_FALSE(Domain().Delete({2}, false));
  EXPECT_TRUE(Logged("Failed to set Config"));
  EXPECT_TRUE(Logged("The deleted domain still has disclaimers ("));
  EXPECT_EQ(Configured("mimedefang_enable"), "no");
  EXPECT_EQ(Configured("mimedefang_disclaimers-2"), list);
  EXPECT_EQ(Remains(2), "");
}

TEST_F(DomainControl, AdditionalNames) {
  ASSERT_EQ(Create("a.example"), "1");
  ASSERT_EQ(Create("b.example"), "2");
  const auto create = [this](const StringList& names, bool skip) {
    return Outcome([&] { return Domain().CreateAdditionalDomains(1, names, skip); });
  };
  const auto stored = [] {
    StringList names;
    EXPECT_TRUE(Domain().ListAdditionalDomains(1, names));
    return names;
  };
  EXPECT_EQ(create({"x.example", "", "X.example", "B.example"}, false),
            "3002 Unable to create additional domain [B.example]");
  EXPECT_EQ(stored(), StringList{});
  EXPECT_EQ(create({"x.example", "", "X.example", "B.example", "nodot"}, true), "ok");
  EXPECT_TRUE(Logged("domain_name [B.example] exists, skipped"));
  EXPECT_TRUE(Logged("without \".\""));
  EXPECT_EQ(stored(), StringList{"x.example"});

  const auto set = [this](const StringList& current, const StringList& wanted) {
    return Outcome([&] { return Domain().SetAdditionalDomains(1, current, wanted); });
  };
  EXPECT_EQ(set({"x.example"}, {"y.example", "b.example", "A.example"}),
            "3002 Unable to set additional domains");
  EXPECT_TRUE(Logged("domain name [b.example] exists, need_fall_back"));
  EXPECT_TRUE(Logged("domain name [A.example] exists, need_fall_back"));
  EXPECT_EQ(stored(), StringList{"x.example"});
  EXPECT_EQ(set({"x.example"}, {"X.example", "z.example"}), "ok");
  EXPECT_EQ(stored(), (StringList{"X.example", "z.example"}));

  // A refusal leaves what was stored, whatever the caller and today's rule for names say of it.
  Run("INSERT INTO domain_to_additional_domain_table VALUES(1,'nodot')");
  EXPECT_EQ(set({"z.example", "nodot", "never.example"}, {"b.example"}),
            "3002 Unable to set additional domains");
  EXPECT_TRUE(Logged("domain name [b.example] exists, need_fall_back"));
  EXPECT_EQ(stored(), (StringList{"X.example", "nodot", "z.example"}));
  Run("DELETE FROM domain_to_additional_domain_table WHERE additional_domain = 'nodot'");

  FailOn(kBatch, "INSERT OR IGNORE INTO  domain_to_additional_domain_table");
  EXPECT_EQ(set({"z.example"}, {"w.example"}), "false");
  EXPECT_TRUE(Logged("fail to insert domain_to_additional_domain_table"));
  EXPECT_TRUE(Logged("Failed to CreateAdditionalDomains, domain_id: [1]"));
  EXPECT_EQ(stored(), StringList{"X.example"});
}

// A database that cannot say whether a name is taken, or does not let this process write.
TEST_F(DomainControl, NameThatCannotBeLookedUpIsNotFree) {
  ASSERT_EQ(Create("a.example"), "1");
  ASSERT_EQ(Create("b.example"), "2");
  const auto create = [] {
    RECORD::Domain record("c.example");
    int domain_idx = -1;
    return Domain().Create(record, domain_idx);
  };
  const auto rename = [] {
    return Domain().Set(RECORD::Domain(2, "c.example", "", "<a>", true, false, false));
  };
  const std::pair<const char*, std::function<bool()>> operations[] = {
      {"Create", create},
      {"Set", rename},
      {"CreateAdditionalDomains",
       [] { return Domain().CreateAdditionalDomains(1, {"c.example"}, true); }},
      {"SetAdditionalDomains", [] { return Domain().SetAdditionalDomains(1, {}, {"c.example"}); }},
  };
  for (const bool is_locked : {false, true}) {
    SqliteFile other(DbPath());
    other.Run(is_locked ? "BEGIN IMMEDIATE" : "DROP TABLE domain_to_additional_domain_table");
    for (const auto& [name, operation] : operations) {
      MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler()->setBusyTimeout(1);
      EXPECT_FALSE(operation()) << name << is_locked;
      EXPECT_TRUE(Logged(is_locked ? "fail to lock domain_table" : "Failed to ")) << name;
      TakeLog();
    }
    EXPECT_EQ(Names(), (StringList{"1|a.example", "2|b.example"}));
    if (!is_locked) {
      Run("CREATE TABLE domain_to_additional_domain_table(domain_idx INTEGER,additional_domain "
          "TEXT)");
    }
  }
  Run("ALTER TABLE domain_table RENAME TO gone");
  EXPECT_FALSE(rename());
  EXPECT_TRUE(Logged("Failed to look up the name of domain_id: [2]"));
  TakeLog();
  Run("ALTER TABLE gone RENAME TO domain_table");
  EXPECT_EQ(Names(), (StringList{"1|a.example", "2|b.example"}));
}

TEST_F(DomainControl, NamesOnceInEitherSpelling) {
  using namespace MDOMAIN::CONTROL::INTERNAL;
  const std::pair<StringList, StringList> cases[] = {
      {{}, {}},
      {{"", "a.example", "A.EXAMPLE", "b.example"}, {"a.example", "b.example"}},
      {{"b\u00fccher.example", "xn--bcher-kva.example"}, {"b\u00fccher.example"}},
      {{"XN--BCHER-KVA.example", "b\u00fccher.example"}, {"XN--BCHER-KVA.example"}},
      {{"bad name", "bad name", "BAD name"}, {"bad name"}},
  };
  for (const auto& [names, want] : cases) {
    EXPECT_EQ(EraseDuplicatedDomainNames(names), want);
  }
}

TEST_F(DomainControl, AdministratorsAndNames) {
  ASSERT_EQ(Create("a.example"), "1");
  ASSERT_EQ(Create("b.example"), "2");
  AddMember(1, 1001, "normal");
  AddMember(2, 1001, "domain_admin");
  AddMember(1, 1002, "normal");
  EXPECT_TRUE(Domain().IsAnyDomainsAdmin(1001));
  EXPECT_FALSE(Domain().IsAnyDomainsAdmin(1002));
  EXPECT_TRUE(Domain().IsDomainAdmin(1001, 2));
  EXPECT_FALSE(Domain().IsDomainAdmin(1001, 1));
  std::string name = "untouched";
  EXPECT_FALSE(Domain().GetDomainNameByIdx(3, name));
  EXPECT_TRUE(Logged("Failed to GetDomainNameByIdx"));
  EXPECT_EQ(name, "untouched");
  EXPECT_TRUE(Domain().GetDomainNameByIdx(2, name));
  EXPECT_EQ(name, "b.example");
}

}  // namespace
