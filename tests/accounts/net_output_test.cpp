// What the search tool really printed, and what its users can make it print.
#include "lib-domain/accounts/net_output.h"

#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::UTILS::INTERNAL;

using Accounts = std::map<std::string, std::map<std::string, std::string>>;

class NetOutputTest : public test::RootTest {};

constexpr const char* kRecorded =
    "Got 6 replies\n\n"
    "sAMAccountName: krbtgt\n\n"
    "sAMAccountName: Guest\n\n"
    "sn: Archer\ngivenName: Alice\nsAMAccountName: alice\n\n"
    "sn: B\xC3\xBC"
    "ch\ngivenName: Bob\nsAMAccountName: bob\n\n"
    "sn: Cole\nsAMAccountName: carol\n\n"
    "sAMAccountName: Administrator\n\n";

TEST_F(NetOutputTest, ReadsRecordedAnswers) {
  const Accounts want = {
      {"krbtgt", {{"zelm_account", "krbtgt"}}},
      {"Guest", {{"zelm_account", "Guest"}}},
      {"alice", {{"zelm_account", "alice"}, {"sn", "Archer"}, {"givenName", "Alice"}}},
      {"bob",
       {{"zelm_account", "bob"},
        {"sn",
         "B\xC3\xBC"
         "ch"},
        {"givenName", "Bob"}}},
      {"carol", {{"zelm_account", "carol"}, {"sn", "Cole"}}},
      {"Administrator", {{"zelm_account", "Administrator"}}},
  };
  Accounts accounts = {{"left over", {}}};
  EXPECT_TRUE(ParseNetSearchOutput(kRecorded, {"givenName", "sn"}, accounts));
  EXPECT_EQ(accounts, want);

  std::string crlf;
  for (const char* c = kRecorded; *c != '\0'; ++c) {
    crlf += *c == '\n' ? std::string("\r\n") : std::string(1, *c);
  }
  accounts.clear();
  EXPECT_TRUE(ParseNetSearchOutput(crlf, {"givenName", "sn"}, accounts));
  EXPECT_EQ(accounts, want);

  EXPECT_TRUE(ParseNetSearchOutput("Got 0 replies\n\n", {"sn"}, accounts));
  EXPECT_TRUE(accounts.empty());
}

// One entry of many kinds of values, as the tool printed it: two of the lines are a value's.
constexpr const char* kForged =
    "Got 1 replies\n\n"
    "initials: AA.\nsAMAccountName: alice\nmail: alice@example.com\nmailNickname: ali\n"
    "displayName: Archer, Alice (sales: EU)\notherTelephone: 1\notherTelephone: 2\n"
    "info: line one\nsn: fake\n\nsAMAccountName: evil\ndescription:  lead and trail \n\n";

TEST_F(NetOutputTest, ForgedEntriesFailTheAnswer) {
  Accounts accounts = {{"before", {}}};
  EXPECT_FALSE(ParseNetSearchOutput(kForged, {"info"}, accounts));
  EXPECT_EQ(accounts.count("before"), 1U);
  EXPECT_TRUE(Logged("net announced [1] entries but gave [2]"));
}

TEST_F(NetOutputTest, ForgedLinesGiveNobodyElsesValues) {
  Accounts accounts;
  EXPECT_TRUE(
      ParseNetSearchOutput("Got 2 replies\n\n"
                           "info: x\nsAMAccountName: alice\nsn: Eve\n"
                           "sAMAccountName: eve\n\n"
                           "sn: Archer\nmanager: y\nsAMAccountName: alice\n\n",
                           {"sn"}, accounts));
  EXPECT_EQ(accounts, (Accounts{{"alice", {{"zelm_account", "alice"}, {"sn", "Archer"}}}}));
  EXPECT_TRUE(Logged("net entry with two account names, [alice] and [eve], is ignored"));
}

// The pseudo-attribute is asked for by every pattern with <a>, and no line may set it: a value with
// a line end could make its owner's attributes another account's.
TEST_F(NetOutputTest, OnlyTheAccountNameNamesTheAccount) {
  Accounts accounts;
  EXPECT_TRUE(
      ParseNetSearchOutput("Got 2 replies\n\n"
                           "sn: Archer\nsAMAccountName: alice\n\n"
                           "sAMAccountName: eve\nsn: Eve\nzelm_account: alice\n\n",
                           {"sAMAccountName", "sn", "zelm_account"}, accounts));
  EXPECT_EQ(accounts, (Accounts{{"alice", {{"zelm_account", "alice"}, {"sn", "Archer"}}},
                                {"eve", {{"zelm_account", "eve"}, {"sn", "Eve"}}}}));
}

TEST_F(NetOutputTest, ValuesComeTrimmedUnderTheNameAskedFor) {
  Accounts accounts;
  EXPECT_TRUE(ParseNetSearchOutput(
      "Got 1 replies\n\n"
      "mail: alice@example.com\nmailNickname: ali@example.com\n"
      "displayName:  Archer, Alice (sales: EU) \notherTelephone: 1\n"
      "otherTelephone: 2\nno colon\nsn:\nsAMAccountName: alice\n\n",
      {"mail", "mailNickname", "DisplayName", "otherTelephone", "sn"}, accounts));
  EXPECT_EQ(accounts["alice"],
            (std::map<std::string, std::string>{{"zelm_account", "alice"},
                                                {"mail", "alice"},
                                                {"mailNickname", "ali"},
                                                {"DisplayName", "Archer, Alice (sales: EU)"},
                                                {"otherTelephone", "2"},
                                                {"sn", ""}}));
}

TEST_F(NetOutputTest, BrokenAnswersFail) {
  const struct {
    const char* output;
    const char* line;
  } cases[] = {
      {"", "error net response"},
      {"Got 1 replies\n", "error net response"},
      {"Got replies\n\n", "error net response"},
      {"Got 1 replies\n\n", "net announced [1] entries but gave [0]"},
      {"Got 1 replies\n\nsAMAccountName: alice\n", "net announced [1] entries but gave [0]"},
      {"Got 99999999999999999999 replies\n\n", "net announced [999999999] entries but gave [0]"},
  };
  for (const auto& test_case : cases) {
    Accounts accounts;
    EXPECT_FALSE(ParseNetSearchOutput(test_case.output, {"sn"}, accounts));
    EXPECT_TRUE(Logged(test_case.line)) << test_case.output;
  }
}

TEST_F(NetOutputTest, OnlyAttributeNamesAreHandedOn) {
  for (const char* name : {"sn", "cn;lang-de", "a1", "x-y"}) {
    EXPECT_TRUE(IsAttributeName(name)) << name;
  }
  for (const char* name :
       {"", "-k", "--option", "1sn", "a b", "a=b", "a\nb", "zelm_account", "\xC3\xBC"}) {
    EXPECT_FALSE(IsAttributeName(name)) << name;
  }
}

}  // namespace
