// What the search tool really printed, and what its users can make it print.
#include "lib-domain/accounts/net_output.h"

#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::UTILS::INTERNAL;

using Accounts = std::map<std::string, std::map<std::string, std::string>>;

class NetOutputTest : public test::RootTest {};

// An account a line with its values, among them its own name, which is not written twice.
std::string Text(const Accounts& accounts) {
  std::string text;
  for (const auto& [account, values] : accounts) {
    text += account + ":";
    for (const auto& [name, value] : values) {
      if (name != kAccountAttr || value != account) {
        text.append(" ").append(name).append("=[").append(value).append("]");
      }
    }
    text += values.count(kAccountAttr) == 0 ? " has no name\n" : "\n";
  }
  return text;
}

const std::string kRecorded =
    "Got 6 replies\n\n"
    "sAMAccountName: krbtgt\n\n"
    "sAMAccountName: Guest\n\n"
    "sn: Archer\ngivenName: Alice\nsAMAccountName: alice\n\n"
    "sn: B\xC3\xBC"
    "ch\ngivenName: Bob\nsAMAccountName: bob\n\n"
    "sn: Cole\nsAMAccountName: carol\n\n"
    "sAMAccountName: Administrator\n\n";

std::string WithCrLf(const std::string& text) {
  std::string crlf;
  for (const char c : text) {
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  }
  return crlf;
}

TEST_F(NetOutputTest, ReadsWhatWasAskedFor) {
  const std::string recorded =
      "Administrator:\nGuest:\nalice: givenName=[Alice] sn=[Archer]\n"
      "bob: givenName=[Bob] sn=[B\u00FCch]\ncarol: sn=[Cole]\nkrbtgt:\n";
  const struct {
    std::string output;
    std::set<std::string> asked;
    std::string want;
  } cases[] = {
      {kRecorded, {"givenName", "sn"}, recorded},
      {WithCrLf(kRecorded), {"givenName", "sn"}, recorded},
      {"Got 0 replies\n\n", {"sn"}, ""},
      // Trimmed, under the name asked for.
      {"Got 1 replies\n\nmail: alice@example.com\nmailNickname: ali@example.com\n"
       "displayName:  Archer, Alice (sales: EU) \notherTelephone: 1\n"
       "otherTelephone: 2\nno colon\nsn:\nsAMAccountName: alice\n\n",
       {"mail", "mailNickname", "DisplayName", "otherTelephone", "sn"},
       "alice: DisplayName=[Archer, Alice (sales: EU)] mail=[alice] mailNickname=[ali] "
       "otherTelephone=[2] sn=[]\n"},
      // Forged lines give nobody else's values.
      {"Got 2 replies\n\ninfo: x\nsAMAccountName: alice\nsn: Eve\nsAMAccountName: eve\n\n"
       "sn: Archer\nmanager: y\nsAMAccountName: alice\n\n",
       {"sn"},
       "alice: sn=[Archer]\n"},
      // Every pattern with <a> asks for the pseudo-attribute. A value with a line end could
      // otherwise make its owner's attributes another account's.
      {"Got 2 replies\n\nsn: Archer\nsAMAccountName: alice\n\n"
       "sAMAccountName: eve\nsn: Eve\nzelm_account: alice\n\n",
       {"sAMAccountName", "sn", "zelm_account"},
       "alice: sn=[Archer]\neve: sn=[Eve]\n"},
  };
  for (const auto& c : cases) {
    Accounts accounts = {{"left over", {}}};
    EXPECT_TRUE(ParseNetSearchOutput(c.output, c.asked, accounts));
    const bool has_two_names = c.output.find("sn: Eve\nsAMAccountName: eve") != std::string::npos;
    EXPECT_EQ(Logged("net entry with two account names, [alice] and [eve], is ignored"),
              has_two_names);
    EXPECT_EQ(Text(accounts), c.want);
  }
}

TEST_F(NetOutputTest, BrokenAndForgedAnswersFail) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "error net response"},
      {"Got 1 replies\n", "error net response"},
      {"Got replies\n\n", "error net response"},
      {"Got 1 replies\n\n", "net announced [1] entries but gave [0]"},
      {"Got 1 replies\n\nsAMAccountName: alice\n", "net announced [1] entries but gave [0]"},
      {"Got 99999999999999999999 replies\n\n", "net announced [999999999] entries but gave [0]"},
      // As the tool printed a value of several lines.
      {"Got 1 replies\n\nsAMAccountName: alice\ninfo: line one\nsn: fake\n\n"
       "sAMAccountName: evil\ndescription:  lead and trail \n\n",
       "net announced [1] entries but gave [2]"},
      {"Got 3 replies\n\nsAMAccountName: alice\n\ninfo: one\n\ntwo\nsAMAccountName: bob\n\n"
       "sAMAccountName: carol\n\n",
       "but gave [4]; a value of one of these accounts may hold empty lines: [alice, bob]"},
  };
  for (const auto& [output, line] : cases) {
    Accounts accounts = {{"before", {}}};
    EXPECT_FALSE(ParseNetSearchOutput(output, {"sn"}, accounts));
    EXPECT_EQ(accounts.count("before"), 1U);
    EXPECT_TRUE(Logged(line)) << output;
  }
}

}  // namespace
