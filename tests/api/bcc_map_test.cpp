// The lines of the generated maps, and what destinations stand for.
#include <sstream>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/user.h"
#include "platform/include/alias.h"
#include "platform/include/mail_conf.h"
#include "tests/api/bcc_fixture.h"

namespace {

using internal::GetBccToConfigValue;
using ::testing::ElementsAre;

constexpr const char* kMap = "/map";

class BccMapTest : public test::BccFixture {
 protected:
  void SetUp() override {
    BccFixture::SetUp();
    WriteAccounts(
        "alice:x:1000:1000::/:/\nBob:x:1001:1000::/:/\ndora:x:1002:1000::/:/\n"
        "carl:x:1003:1000::/:/\neve:x:1004:1000::/:/\nEve:x:1005:1000::/:/\n"
        "Fay:x:1006:1000::/:/\nfay:x:1007:1000::/:/\n",
        "users:x:1000:\n");
    bcc_ = BCC::getInstance();
    ASSERT_NE(nullptr, bcc_);
  }
  void TearDown() override {
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    BccFixture::TearDown();
  }

  // What the mail services read: "1/example.com, 2/..." and the further names of domain 1.
  static void Publish(const std::string& domains, const std::string& additional_of_1 = "") {
    ASSERT_EQ(0, mailConfSet("virtual_multiple_domain", domains, true, 0));
    ASSERT_EQ(0, mailConfSet("additional_domain-1", additional_of_1, true, 0));
  }

  // Domains 1 and 2 in the domain database; alice, Bob and dora with aliases in domain 1.
  static void Mirror() {
    using MDOMAIN::RECORD::DomainUserAlias;
    MDOMAIN::DB::Domain domains;
    ASSERT_TRUE(domains.Create({1, "example.com", "", "<a>", false, false, true}));
    ASSERT_TRUE(domains.Create({2, "other.example", "", "<a>", false, false, false}));
    ASSERT_TRUE(MDOMAIN::DB::User().Create({{1000, "alice"},
                                            {1001, "Bob"},
                                            {1002, "dora"},
                                            {1003, "carl"},
                                            {1004, "eve"},
                                            {1005, "Eve"},
                                            {1006, "Fay"},
                                            {1007, "fay"}}));
    ASSERT_TRUE(MDOMAIN::DB::DomainUser().CreateUsersAliases(
        {DomainUserAlias(1, 1001, "a.second", true), DomainUserAlias(1, 1001, "b.first", false),
         DomainUserAlias(1, 1000, "alice", false), DomainUserAlias(1, 1000, "a.second", false),
         DomainUserAlias(1, 1003, "a.second", true), DomainUserAlias(1, 1004, "e.lower", false),
         DomainUserAlias(1, 1005, "e.upper", false), DomainUserAlias(1, 1007, "f.lower", false),
         DomainUserAlias(2, 1000, "a.other", false)}));
  }

  std::vector<std::string> Lines(int type) {
    EXPECT_EQ(0, bcc_->GenerateSystemBCCConfig(type, root() + kMap));
    std::istringstream in(Read(kMap));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  BCC* bcc_ = nullptr;
};

TEST_F(BccMapTest, WritesTheThreeFormsForEveryNameOfADomain) {
  Publish("1/example.com, 2/other.example", "Second.example");
  ASSERT_EQ(0, bcc_->setBCC(1, {{"Alice@Example.COM", BCC_RECIPIENT, "copy@example.org"},
                                {"Bob", BCC_RECIPIENT, "copy@example.org"},
                                {"x@second.example", BCC_RECIPIENT, "copy@example.org"},
                                {"anything.example", BCC_DOMAIN, "all@example.org"},
                                {"sender", BCC_SENDER, "not@this.map"}}));
  ASSERT_EQ(0, bcc_->setBCC(2, {{"y@outside.example", BCC_RECIPIENT, "copy@example.org"}}));
  ASSERT_EQ(0, bcc_->setBCC(3, {{"not", BCC_RECIPIENT, "published@example.org"}}));
  EXPECT_THAT(
      Lines(BCC_RECIPIENT),
      ElementsAre(
          "alice@example.com copy@example.org",  //
          "example.com/bob copy@example.org", "example.com/x@second.example copy@example.org",
          "@example.com all@example.org", "second.example/alice@example.com copy@example.org",
          "second.example/bob copy@example.org", "x@second.example copy@example.org",
          "@second.example all@example.org", "other.example/y@outside.example copy@example.org"));
}

TEST_F(BccMapTest, WritesBothSpellingsOnce) {
  Publish("1/bücher.example");
  ASSERT_EQ(0, bcc_->setBCC(1, {{"a@xn--bcher-kva.example", BCC_SENDER, "x@bücher.example"},
                                {"b@BÜCHER.example", BCC_SENDER, "x@example.org"},
                                {"müller", BCC_SENDER, "x@example.org"},
                                {"ünï@straße.example", BCC_SENDER, "x@example.org"},
                                {"w", BCC_DOMAIN, "x@example.org"}}));
  EXPECT_THAT(
      Lines(BCC_SENDER),
      ElementsAre("a@xn--bcher-kva.example x@xn--bcher-kva.example",
                  "a@bücher.example x@xn--bcher-kva.example",
                  "b@bücher.example x@example.org",  //
                  "b@xn--bcher-kva.example x@example.org", "bücher.example/müller x@example.org",
                  "bücher.example/xn--mller-kva x@example.org",
                  "xn--bcher-kva.example/müller x@example.org",
                  "xn--bcher-kva.example/xn--mller-kva x@example.org",
                  "bücher.example/ünï@straße.example x@example.org",
                  "bücher.example/ünï@xn--strae-oqa.example x@example.org",
                  "xn--bcher-kva.example/ünï@straße.example x@example.org",
                  "xn--bcher-kva.example/ünï@xn--strae-oqa.example x@example.org",
                  "@bücher.example x@example.org",  //
                  "@xn--bcher-kva.example x@example.org"));
}

TEST_F(BccMapTest, LeavesOutWhatWouldBreakALine) {
  Publish("1/example.com");
  const std::vector<BccInfo> bad = {{"a b", 0, "x"},
                                    {"a\nroot@example.com", 0, "x"},
                                    {"a", 0, "x y"},
                                    {"a", 0, "x\n@example.com y"},
                                    {"", 0, "x"},
                                    {"a", 0, ""},
                                    {"#a@example.com", 0, "x"},
                                    {"\"q\"@example.com", 0, "x"},
                                    {"a", 0, "x@example.com,y@example.com"},
                                    {"w", BCC_DOMAIN, "x\ty"}};
  for (const BccInfo& rule : bad) {
    ASSERT_EQ(0, bcc_->deleteAllBCC(1));
    ASSERT_EQ(0, bcc_->setBCC(1, {rule, {"z@example.com", 0, "good@example.org"}}));
    EXPECT_THAT(Lines(0), ElementsAre("z@example.com good@example.org")) << rule.name;
    EXPECT_FALSE(TakeLog().empty()) << rule.name << rule.bcc_to;
  }
  ASSERT_EQ(0, bcc_->setBCC(1, {{"a", 0, "x@-bad-"}, {"w", BCC_DOMAIN, "y@-bad-"}}));
  Lines(0);
  EXPECT_TRUE(Logged("failed to convert bcc destination [x@-bad-] to punycode"));
  EXPECT_TRUE(Logged("failed to convert all bcc destination [y@-bad-] to punycode"));
}

TEST_F(BccMapTest, TurnsDestinationsIntoAddresses) {
  Mirror();
  Publish("1/example.com, 2/other.example", "bücher.example");
  Alias table(MDOMAIN::PATHS::AliasDb());
  ASSERT_EQ(0, table.load());
  ASSERT_EQ(0, table.set({"team", 1, {}}));
  ASSERT_EQ(0, table.set({"alice", 2, {}}));
  const struct {
    const char* bcc_to;
    int domain_id;
    const char* want;
  } cases[] = {
      {"bob", 1, "b.first@D"},  // an account by its first clean alias, whatever its case
      {"alice", 1, "alice@D"},  //
      {"eve", 1, "e.lower@D"},  // two accounts that differ in case
      {"Eve", 1, "e.upper@D"},  //
      {"dora", 1, "dora@D"},    // an account without aliases
      {"bob", 2, "bob@D"},      // without aliases there
      {"team", 1, "team@D"},    // an alias entry
      {"alice", 2, "alice@D"},  // an alias entry comes before the account
      {"x@y.example", 1, "x@y.example"},
  };
  int number = 0;
  for (const auto& one : cases) {
    ASSERT_EQ(0, bcc_->setBCC(one.domain_id, {{"r" + std::to_string(++number), 0, one.bcc_to}}));
  }
  // The map says for every rule what the plain function says.
  for (const auto& [domain_id, name, punycode] :
       {std::tuple(1, "example.com", "example.com"),
        std::tuple(1, "bücher.example", "xn--bcher-kva.example"),
        std::tuple(2, "other.example", "other.example")}) {
    const std::vector<std::string> lines = Lines(0);
    number = 0;
    for (const auto& one : cases) {
      ++number;
      if (one.domain_id != domain_id) {
        continue;
      }
      const auto at = [&one](const std::string& domain) {
        const std::string want = one.want;
        return want.back() == 'D' ? want.substr(0, want.size() - 1) + domain : want;
      };
      EXPECT_EQ(at(name), GetBccToConfigValue(one.bcc_to, name, domain_id));
      EXPECT_THAT(lines, ::testing::Contains(std::string(name) + "/r" + std::to_string(number) +
                                             " " + at(punycode)));
    }
  }
  EXPECT_EQ("bob", GetBccToConfigValue("bob", "", 1));
  EXPECT_TRUE(internal::isAlias("team", 1));
  EXPECT_FALSE(internal::isAlias("Team", 1) || internal::isAlias("team", 2));
  // No address is better than somebody else's.
  for (const char* name : {"carl", "EVE", "Fay"}) {
    EXPECT_EQ("", GetBccToConfigValue(name, "example.com", 1)) << name;
  }
  // A destination that no account has.
  EXPECT_EQ("o'nobody@example.com", GetBccToConfigValue("o'nobody", "example.com", 1));
  EXPECT_TRUE(Logged("Convert realname fail o'nobody"));
  TakeLog();  // local accounts are told apart by case, so "bob" is none
}

TEST_F(BccMapTest, TellsTheAddressesOfAccounts) {
  Mirror();
  Publish("1/example.com, 2/other.example");
  Alias table(MDOMAIN::PATHS::AliasDb());
  ASSERT_EQ(0, table.load());
  ASSERT_EQ(0, table.set({"Team", 1, {}}));
  ASSERT_EQ(0, bcc_->setBCC(1, {{"BOB", 0, "x@y.example"},
                                {"Team", 0, "x@y.example"},
                                {"carl", 0, "x@y.example"},
                                {"dora", 0, "carl"},
                                {"Eve", 0, "x@y.example"},
                                {"eve", 0, "nobody@example.com"},
                                {"p@other.example", 0, "x@y.example"},
                                {"q@outside.example", 0, "x@y.example"}}));
  std::vector<std::string> seen;
  ASSERT_EQ(0, bcc_->ForEachMapEntry(0, true, [&seen](const BccMapEntry& entry) {
    std::string text = std::string(entry.name) + " " + std::to_string(entry.name_domain_id);
    text += entry.unknown_destination ? " unknown" : "";
    text += entry.reason.empty() ? "" : ": " + std::string(entry.reason);
    for (const std::string& part :
         entry.local_parts == nullptr ? std::vector<std::string>() : *entry.local_parts) {
      text += " " + part;
    }
    seen.push_back(text);
  }));
  const std::string flagged = "every alias of carl collides with another user's";
  EXPECT_THAT(seen, ElementsAre("carl -1: " + flagged, "dora -1: " + flagged, "bob -1 b.first",
                                "eve -1 e.upper", "team -1 Team", "eve -1 unknown e.lower",
                                "p@other.example 2", "q@outside.example -1"));
  EXPECT_TRUE(Logged("Convert realname fail BOB"));
  // The plain lines have no report, so what is left out of them is logged.
  EXPECT_THAT(Lines(0), ::testing::Not(::testing::Contains(::testing::HasSubstr("dora"))));
  EXPECT_TRUE(Logged("bcc rule [dora] with destination [carl] left out: " + flagged));
}

TEST_F(BccMapTest, AddressesAreThoseOfTheExactName) {
  Mirror();
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"Eve", {"e.upper@example.com"}},
      {"eve", {"e.lower@example.com"}},
      {"Fay", {}},
      {"BOB", {"a.second@example.com", "b.first@example.com"}}};
  for (const auto& [name, want] : cases) {
    std::vector<std::string> addresses;
    EXPECT_TRUE(MDOMAIN::API::DomainUser().GetMailAddresses(std::string(name), addresses));
    EXPECT_EQ(addresses, want) << name;
  }
}

TEST_F(BccMapTest, SaysWhichDestinationsNobodyHas) {
  Mirror();
  Publish("1/example.com, 2/bücher.example");
  Alias table(MDOMAIN::PATHS::AliasDb());
  ASSERT_EQ(0, table.load());
  ASSERT_EQ(0, table.set({"Team", 2, {}}));
  std::list<BccInfo> rules;
  for (const char* destination :
       {"B.First@Example.com", "team@xn--bcher-kva.example", "alice", "x@elsewhere.example",
        "b.frist@example.com", "alice@bücher.example", "dora", "carl"}) {
    rules.push_back({"r", 0, destination});
  }
  std::vector<std::string> warnings;
  ASSERT_EQ(0, BCC::CheckDestinations(1, rules, warnings));
  EXPECT_THAT(warnings, ElementsAre("b.frist@example.com: nobody has this address",
                                    "alice@bücher.example: nobody has this address",
                                    "dora: nobody has this address",
                                    "carl: every alias of carl collides with another user's"));
}

TEST_F(BccMapTest, AFailingSourceKeepsTheOldMap) {
  Publish("1/example.com");
  ASSERT_EQ(0, bcc_->setBCC(1, {{"a", 0, "alice"}}));
  Write(kMap, "old");
  Write("/var/packages/Postara-Server/etc/alias.db", "no database at all, but long enough for one");
  EXPECT_GT(0, bcc_->GenerateSystemBCCConfig(0, root() + kMap));
  EXPECT_EQ("old", Read(kMap));
  std::filesystem::remove(MDOMAIN::PATHS::AliasDb());
  // The domain database.
  std::filesystem::create_directories(MDOMAIN::PATHS::EtcDir() + "local_DOMAIN.db");
  EXPECT_GT(0, bcc_->GenerateSystemBCCConfig(0, root() + kMap));
  EXPECT_EQ("old", Read(kMap));
  EXPECT_GT(0, bcc_->GenerateSystemBCCConfig(BCC_SENDER, root() + "/no/such/folder"));
  EXPECT_TRUE(Logged("open file " + root() + "/no/such/folder fail, error[No such file"));
  TakeLog();
}

TEST_F(BccMapTest, RunsTheCompiler) {
  EXPECT_NE(0, bcc_->GenerateBccMap());
  TakeLog();
  const std::string program = MDOMAIN::PATHS::BccMapCompiler().substr(root().size());
  Write(program, "#!/bin/sh\nexit $((40 + $#))\n");
  std::filesystem::permissions(root() + program, std::filesystem::perms::owner_all);
  EXPECT_EQ(40, bcc_->GenerateBccMap());
}

}  // namespace
