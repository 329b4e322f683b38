// Disclaimer lists, their texts, and what leaves with users, groups and domains.
#include "lib-domain/api/mimedefang.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <filesystem>
#include <sstream>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "tests/support/domain_db.h"
#include "tests/support/platform_faults.h"

namespace {

namespace fs = std::filesystem;
using namespace MDOMAIN;

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  in >> value;
  return value;
}

class MimeDefangTest : public test::DomainDbTest {
 protected:
  MimeDefangTest() {
    WriteAccounts(
        "alice:x:1001:1001:Alice:/:/bin/sh\nbob:x:1002:1002:Bob:/:/bin/sh\n"
        "carol:x:1003:1003:Carol:/:/bin/sh\n",
        "staff:x:2000:alice,bob\n");
    Create("example.com", "<a>");
    Create("bücher.example", "<a>.x");
    EXPECT_TRUE(API::Updater().Refresh());
  }
  ~MimeDefangTest() override { test::ClearFaults(); }

  void Create(const std::string& name, const std::string& pattern) {
    RECORD::Domain domain(name);
    domain.SetDefaultAliasPattern(pattern);
    int idx = 0;
    ASSERT_TRUE(API::Domain().Create(domain, idx));
  }

  static Json::Value Two() {
    return Parse(R"([
      {"id": 1, "name": "one", "enabled": true, "op": "or", "disabled_for_local_recipient": true,
       "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1001},
                           {"target": "sender", "pattern_type": "gid", "pattern": "1001"}],
       "exception_rule_list": [{"target": "recipient", "pattern_type": "uid", "pattern": "1002"}],
       "content_html": "<b>\u00fc\u2028&amp;</b>", "content_txt": "line\r\n\ttwo \"q\" \\ \u0001"},
      {"id": 2, "name": "two", "enabled": false, "op": "and",
       "match_rule_list": [{"target": "recipient", "pattern_type": "email", "pattern": "*@x.org"}],
       "exception_rule_list": [], "content_html": "", "content_txt": "second"}])");
  }

  Json::Value List(int domain_idx) {
    Json::Value list;
    EXPECT_EQ(mimedefang_.GetDisclaimerList(domain_idx, list), 0);
    return list;
  }
  Json::Value All() {
    Json::Value all;
    EXPECT_EQ(mimedefang_.GetSystemAllDisclaimerList(all), 0);
    return all;
  }

  MimeDefang mimedefang_;
};

TEST_F(MimeDefangTest, ListsComeBackWithTheirTexts) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  EXPECT_EQ(List(1), Two());
  EXPECT_EQ(List(2), Json::Value(Json::arrayValue));

  std::string stored;
  ASSERT_EQ(mailConfGet("mimedefang_disclaimers-1", stored), 0);
  EXPECT_EQ(stored.find("content_"), std::string::npos);
  const std::string path = PATHS::DisclaimerContent(1);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms{0640});
  EXPECT_EQ(fs::status(PATHS::DisclaimerDir()).permissions(), fs::perms{0755});
  const std::string bytes = Read(path.substr(root().size()));
  EXPECT_NE(bytes.find("ü\u2028"), std::string::npos) << bytes;
}

TEST_F(MimeDefangTest, IdsAreNumbersHoweverTheyAreWritten) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  Json::Value list = Parse(R"([{"id": "001"}, {"id": 2}, {"id": "x"}])");
  ASSERT_EQ(mimedefang_.MergeDisClaimerWithContent(1, list), 0);
  EXPECT_EQ(list[0]["content_txt"], Two()[0]["content_txt"]);
  EXPECT_EQ(list[1]["content_txt"], Two()[1]["content_txt"]);
  EXPECT_FALSE(list[2].isMember("content_txt"));
}

TEST_F(MimeDefangTest, TextsNeverGoToADisclaimerWithoutAnId) {
  Json::Value list = Two();
  list[0].removeMember("id");
  list[1].removeMember("id");
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, list), 0);
  for (const Json::Value& disclaimer : List(1)) {
    EXPECT_FALSE(disclaimer.isMember("id"));
    EXPECT_FALSE(disclaimer.isMember("content_txt"));
  }
}

TEST_F(MimeDefangTest, BrokenStoresAreNeverWrittenOver) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  const std::string path = "/var/packages/Postara-Server/etc/disclaimer_content/domain-1";
  const std::string texts = Read(path);
  for (const char* broken : {"not json", "{}", "[1]", "[{}] x", "[["}) {
    ASSERT_EQ(mailConfSet("mimedefang_disclaimers-1", broken, true, 0), 0);
    EXPECT_FALSE(mimedefang_.RemoveRulesByUsers(1, {1001})) << broken;
    EXPECT_TRUE(Logged("Failed to get disclamer, domain_id[1]"));
    std::string stored;
    mailConfGet("mimedefang_disclaimers-1", stored);
    EXPECT_EQ(stored, broken);
    EXPECT_EQ(Read(path), texts);
  }
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  Write(path, "garbage");
  EXPECT_FALSE(mimedefang_.RemoveRulesByUsers(1, {1001}));
  EXPECT_TRUE(Logged("disclaimer content parse failed, domain_id[1]"));
  EXPECT_EQ(Read(path), "garbage");

  fs::remove(root() + path);
  EXPECT_FALSE(List(1)[0].isMember("content_txt"));
  EXPECT_TRUE(Logged("disclaimer content file not exist, domain_id[1]"));
}

TEST_F(MimeDefangTest, AFailedReplacementLeavesTheOldOnes) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  test::FailOn("mailConfSet", "mimedefang_disclaimers-1");
  Json::Value changed = Two();
  changed[0]["id"] = 7;
  changed[0]["content_txt"] = "changed";
  EXPECT_LT(mimedefang_.SetDisclaimerList(1, changed), 0);
  EXPECT_TRUE(Logged("Failed to set Config"));
  test::ClearFaults();
  EXPECT_EQ(List(1), Two());
  EXPECT_LT(mimedefang_.SetDisclaimerList(1, Parse(R"({"id": 1})")), 0);
  EXPECT_TRUE(Logged("Failed to set Config"));
}

// The machine stops after the list was stored and before the texts were renamed into their place.
TEST_F(MimeDefangTest, ACutOffReplacementShowsTheNewOnesWhole) {
  Json::Value changed = Two();
  changed[0]["id"] = 7;
  const std::string path = PATHS::DisclaimerContent(1);
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  fs::copy_file(path, root() + "/old");

  // Stopped at the rename by a folder that stands in its way.
  fs::remove(path);
  fs::create_directory(path);
  Write("/var/packages/Postara-Server/etc/disclaimer_content/domain-1/x", "");
  EXPECT_LT(mimedefang_.SetDisclaimerList(1, changed), 0);
  EXPECT_TRUE(Logged("Failed to replace [" + path + "], Is a directory"));
  EXPECT_TRUE(Logged("fail to open disclaimer content file"));
  fs::remove_all(path);
  fs::rename(root() + "/old", path);

  EXPECT_EQ(List(1), changed);
  // The next one fails before its list: the texts that wait must not be cleared away for it.
  test::FailOn("mailConfSet", "mimedefang_disclaimers-1");
  EXPECT_LT(mimedefang_.SetDisclaimerList(1, Two()), 0);
  EXPECT_TRUE(Logged("Failed to set Config"));
  test::ClearFaults();
  EXPECT_EQ(List(1), changed);
  std::vector<std::string> names;
  ASSERT_EQ(postara::sdk::EnumDirectory(PATHS::DisclaimerDir(), names), 0);
  EXPECT_EQ(names, std::vector<std::string>{"domain-1"});
}

TEST_F(MimeDefangTest, RulesLeaveWithUsersAndGroupsOnly) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  ASSERT_EQ(mimedefang_.SetDisclaimerList(2, Two()), 0);
  EXPECT_TRUE(CONTROL::INTERNAL::RemoveUsersFromDisclaimers(1, {1001, 1002}));
  Json::Value want = Two();
  Json::Value gid_rule = want[0]["match_rule_list"][1];
  want[0]["match_rule_list"] = Json::arrayValue;
  want[0]["match_rule_list"].append(gid_rule);
  want[0]["exception_rule_list"] = Json::arrayValue;
  EXPECT_EQ(List(1), want);
  EXPECT_TRUE(CONTROL::INTERNAL::RemoveGroupsFromDisclaimers(1, {1001}));
  EXPECT_TRUE(List(1)[0]["match_rule_list"].empty());
  EXPECT_EQ(List(2), Two());
  EXPECT_EQ(CONTROL::INTERNAL::DeleteDomainDisclaimers(1),
            CONTROL::INTERNAL::DisclaimerOutcome::kDone);
  EXPECT_TRUE(List(1).empty());
}

TEST_F(MimeDefangTest, TheFilterRunsWhenAnythingNeedsIt) {
  const auto runs = [&] {
    EXPECT_EQ(mimedefang_.SaveSettings(), 0);
    return mailConfCheckKeyValue("mimedefang_enable", "yes");
  };
  EXPECT_FALSE(runs());
  for (const char* key : {"spam_enable", "anti_virus_enable", "enable_dangerous_content_scan",
                          "mcp_enable", "enable_dkim", "enable_dmarc"}) {
    mailConfSet(key, "yes", true, 0);
    EXPECT_TRUE(runs()) << key;
    mailConfSet(key, "no", true, 0);
    EXPECT_FALSE(runs()) << key;
  }
  ASSERT_EQ(mimedefang_.SetDisclaimerList(2, Two()), 0);
  EXPECT_TRUE(runs());
  Json::Value off = Two();
  off[0]["enabled"] = false;
  ASSERT_EQ(mimedefang_.SetDisclaimerList(2, off), 0);
  EXPECT_FALSE(runs());
  mailConfSet("mimedefang_disclaimers-2", "broken", true, 0);
  EXPECT_TRUE(runs());
  EXPECT_TRUE(Logged("Failed to get disclamer, domain_id[2]"));
}

TEST_F(MimeDefangTest, BackupAndRestoreAreInverse) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  const Json::Value before = All();
  const std::string file = root() + "/backup.json";
  ASSERT_EQ(mimedefang_.BackupDisclaimerToFile(file), 0);
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Json::Value(Json::arrayValue)), 0);
  ASSERT_EQ(mimedefang_.SetDisclaimerList(2, Two()), 0);
  ASSERT_EQ(mimedefang_.RestoreDisclaimerFromFile(file), 0);
  EXPECT_EQ(All(), before);

  // Bad files are refused before anything is removed.
  EXPECT_LT(mimedefang_.RestoreDisclaimerFromFile(root() + "/missing"), 0);
  EXPECT_TRUE(Logged("open file fail: " + root() + "/missing, error[No such file or directory]"));
  for (const char* bad :
       {"", "x", "{}", "[1]", R"([{"disclaimer_list": []}])", R"([{"id": 1, "name": "a list"}])",
        R"([{"domain_id": 1, "disclaimer_list": [1]}])"}) {
    Write("/bad.json", bad);
    EXPECT_LT(mimedefang_.RestoreDisclaimerFromFile(root() + "/bad.json"), 0) << bad;
    EXPECT_TRUE(Logged("json parse fail: " + root() + "/bad.json"));
  }
  Write("/bad.json", R"([{"domain_id": 9, "disclaimer_list": [{"id": 1}]}])");
  EXPECT_LT(mimedefang_.RestoreDisclaimerFromFile(root() + "/bad.json"), 0);
  EXPECT_TRUE(Logged("Failed to set Config, domain_id[9]"));
  EXPECT_EQ(All(), before);

  // A move that fails half-way keeps what was to be moved.
  EXPECT_LT(mimedefang_.BackupRestoreDisclaimerFile(file, root() + "/no/such/folder"), 0);
  EXPECT_TRUE(Logged("move disclaimer list fail: " + root() + "/no/such/folder"));
  EXPECT_TRUE(fs::exists(file));
  EXPECT_LT(mimedefang_.MoveDisclaimerToBkpAccount("local", "../corp"), 0);
  EXPECT_TRUE(Logged("failed to back and restore disclaimer file"));
  EXPECT_EQ(All(), before);

  // Each account domain has its own; going there and back again loses nothing.
  ASSERT_EQ(mimedefang_.MoveDisclaimerToBkpAccount("local", "corp"), 0);
  EXPECT_TRUE(List(1).empty());
  ASSERT_EQ(mimedefang_.SetDisclaimerList(2, Two()), 0);
  ASSERT_EQ(mimedefang_.MoveDisclaimerToBkpAccount("corp", "local"), 0);
  EXPECT_EQ(All(), before);
}

// A failed move used to empty both copies when it was called again.
TEST_F(MimeDefangTest, AFailedMoveLosesNothingHoweverOftenItIsCalled) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  const Json::Value before = All();
  const std::string kept = "/var/spool/@Postara-Server/alias_bkp/disclaimer_list-corp";
  // The other account domain's, whose second domain has another index here.
  Write(kept, R"([{"domain_id": 1, "domain_name": "gone.example", "disclaimer_list": []},
                  {"domain_id": 7, "domain_name": "xn--bcher-kva.example", "disclaimer_list":
                    [{"id": 5, "name": "corp", "content_html": "", "content_txt": "c"}]}])");
  const std::string theirs = Read(kept);
  for (int i = 0; i < 2; ++i) {
    test::FailOn("mailConfSet", "mimedefang_disclaimers-2");
    EXPECT_LT(mimedefang_.MoveDisclaimerToBkpAccount("local", "corp"), 0);
    EXPECT_TRUE(Logged("failed to restore disclaimer from file"));
    test::ClearFaults();
    TakeLog();
    EXPECT_EQ(Read(kept), theirs);
    EXPECT_EQ(All()[0], before[0]);
  }
  ASSERT_EQ(mimedefang_.MoveDisclaimerToBkpAccount("local", "corp"), 0);
  EXPECT_TRUE(List(1).empty());
  EXPECT_EQ(List(2)[0]["name"], "corp");
  // Again, as after a run that was stopped before it could say that it was done.
  ASSERT_EQ(mimedefang_.MoveDisclaimerToBkpAccount("corp", "local"), 0);
  EXPECT_EQ(All(), before);
  EXPECT_NE(Read(kept).find("\"corp\""), std::string::npos);

  // Nothing is touched for a backup that cannot come back.
  for (const char* bad : {R"([{"domain_id": 1, "domain_name": "gone.example",
                               "disclaimer_list": [{"id": 1}]}])",
                          "{}"}) {
    Write(kept, bad);
    EXPECT_LT(mimedefang_.MoveDisclaimerToBkpAccount("local", "corp"), 0);
    TakeLog();
    EXPECT_EQ(Read(kept), bad);
    EXPECT_EQ(All(), before);
  }
}

TEST_F(MimeDefangTest, AnAccountSystemThatIsSilentHasNotDroppedAnybody) {
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, Two()), 0);
  Json::Value config;
  ASSERT_EQ(mimedefang_.GenDisclaimerConfigs(config), 0);
  TakeLog();
  fs::remove(root() + "/etc/passwd");
  fs::create_directory(root() + "/etc/passwd");
  Json::Value untouched = "untouched";
  EXPECT_LT(mimedefang_.GenDisclaimerConfigs(untouched), 0);
  EXPECT_EQ(untouched, "untouched");
  EXPECT_TRUE(Logged("The account system does not tell whether '1001' exists"));
  EXPECT_TRUE(Logged("disclaimer 'one' of domain_id[1] cannot be worked out now"));
  TakeLog();
}

TEST_F(MimeDefangTest, TheConfigurationNamesDomainsMembersAndConditions) {
  ASSERT_TRUE(API::Domain().CreateAdditionalDomains(1, {"Example.NET"}));
  API::DomainUser users;
  std::vector<RECORD::DomainUserAlias> aliases;
  ASSERT_TRUE(users.AddMembers(1, {}, {"staff"}, aliases));
  Json::Value list = Two();
  list[0]["match_rule_list"][1]["pattern"] = "2000";
  list[0]["match_rule_list"].append(
      Parse(R"({"target": "sender", "pattern_type": "uid", "pattern": 9999})"));
  list[0]["match_rule_list"].append(
      Parse(R"({"target": "sender", "pattern_type": "email", "pattern": "a\\b@x.org"})"));
  Json::Value gone = list[0];
  gone["id"] = 3;
  gone["match_rule_list"] = Json::arrayValue;
  gone["match_rule_list"].append(list[0]["match_rule_list"][2]);
  list.append(gone);
  // An alias without a role, as a removal that was cut off leaves it.
  ASSERT_TRUE(CONTROL::DomainUser().RemoveUsersRoles({{1, 1003}}));
  list[0]["match_rule_list"].append(
      Parse(R"({"target": "sender", "pattern_type": "uid", "pattern": 1003})"));
  Json::Value odd = Two()[0];
  odd["id"] = 4;
  odd["op"] = "xor";
  list.append(odd);
  // Without its second rule it applies to more mail.
  Json::Value narrow = Two()[1];
  narrow["enabled"] = true;
  narrow["match_rule_list"].append(gone["match_rule_list"][0]);
  list.append(narrow);
  ASSERT_EQ(mimedefang_.SetDisclaimerList(1, list), 0);

  Json::Value config;
  ASSERT_EQ(mimedefang_.GenDisclaimerConfigs(config), 0);
  EXPECT_TRUE(Logged("Failed to get user by uid '9999'"));
  EXPECT_TRUE(Logged("Skip invalid rule since user or group may be deleted"));
  EXPECT_TRUE(Logged("invalid rule, skipped."));
  EXPECT_TRUE(Logged("Skip invalid disclaimer (no match rule)"));
  EXPECT_TRUE(Logged("skip invalid disclaimer 'one'"));
  EXPECT_TRUE(Logged("'two' wants all of its match rules, of which 1 could not be used"));
  TakeLog();

  EXPECT_EQ(config["all_domain_map"].getMemberNames(),
            (std::vector<std::string>{"bücher.example", "example.com", "example.net",
                                      "xn--bcher-kva.example"}));
  EXPECT_EQ(config["local_domain_map"], config["all_domain_map"]);
  EXPECT_EQ(config["gid_username_map"]["2000"].getMemberNames(),
            (std::vector<std::string>{"alice", "bob"}));
  ASSERT_EQ(config["disclaimer_list"].size(), 2U);
  const Json::Value& entry = config["disclaimer_list"][0];
  EXPECT_EQ(entry.getMemberNames(),
            (std::vector<std::string>{"condition", "content_html", "content_txt",
                                      "disabled_for_local_recipient"}));
  EXPECT_EQ(entry["condition"].asString(),
            "((exists($all_domain_map{lc $SenderDomain}) && (lc $SenderName eq lc \"alice\")) || "
            "(exists($all_domain_map{lc $SenderDomain}) && "
            "exists($gid_username_map{2000}{lc $SenderName})) || "
            "(exists($all_domain_map{lc $SenderDomain}) && (lc $SenderName eq lc \"carol\"))) && "
            "!((exists($all_domain_map{lc $RecipientDomain}) && "
            "(lc $RecipientName eq lc \"bob\")))");
}

TEST(DisclaimerCheck, NamesTheWrongMember) {
  const struct {
    const char* change;  // members put over a good disclaimer
    const char* error;
  } kCases[] = {
      {R"({})", ""},
      {R"({"id": "1"})", "[0].id: must be an integer"},
      {R"({"id": null})", "[0].id: must be an integer"},
      {R"({"name": ""})", "[0].name: must not be empty"},
      {R"({"enabled": "yes"})", "[0].enabled: must be true or false"},
      {R"({"op": "xor"})", "[0].op: must be \"and\" or \"or\""},
      {R"({"colour": 1})", "[0].colour: unknown member"},
      {R"({"content_txt": 5})", "[0].content_txt: must be a text"},
      {R"({"match_rule_list": {}})", "[0].match_rule_list: must be an array"},
      {R"({"match_rule_list": [5]})", "[0].match_rule_list[0]: must be an object"},
      {R"({"exception_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": -1}]})",
       "[0].exception_rule_list[0].pattern: must be a uid"},
      {R"({"match_rule_list": [{"target": "sender", "pattern_type": "email", "pattern": "a\\@x"}]})",
       "[0].match_rule_list[0].pattern: must be an address pattern"},
      {R"({"match_rule_list": [{"target": "from", "pattern_type": "uid", "pattern": 1}]})",
       "[0].match_rule_list[0].target: must be \"sender\" or \"recipient\""},
  };
  for (const auto& c : kCases) {
    Json::Value list = Parse(R"([{"id": 1, "name": "n", "enabled": true, "op": "or",
                                  "match_rule_list": []}])");
    const Json::Value change = Parse(c.change);
    for (const std::string& name : change.getMemberNames()) {
      list[0][name] = change[name];
    }
    std::string error;
    EXPECT_EQ(MimeDefang::CheckDisclaimerList(list, error), *c.error == '\0') << c.change;
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
