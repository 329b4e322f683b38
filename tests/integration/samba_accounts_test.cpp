// The Windows-domain source beside a real domain controller; started by samba_accounts.sh, which
// changes the surroundings between the cases.
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

#include "lib-domain/utils/default_alias_getter.h"
#include "tests/support/account_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

class SambaAccounts : public test::AccountTest {
 protected:
  void SetUp() override { UseWindowsDomain("ADEX"); }

  void SetTimeout(int seconds) {
    Write("/etc/mailserver-domain/host.ini",
          "[winbind]\ntimeout = " + std::to_string(seconds) + "\n");
  }

  static std::string Alias(const std::string& pattern, const std::string& name) {
    std::map<std::string, std::string> aliases;
    EXPECT_TRUE(
        MDOMAIN::UTILS::DefaultAliasGetter(pattern).GetAliasFromUserShortNames({name}, aliases));
    return aliases[name];
  }
};

TEST_F(SambaAccounts, AskedForNamesTellUsersFromGroups) {
  EXPECT_THAT(Users().names, IsSupersetOf({"ADEX\\jsmith", "ADEX\\öl", "ADEX\\administrator"}));
  EXPECT_EQ(User("ADEX\\staff").name, "");
  EXPECT_EQ(Group("ADEX\\alice").name, "");
  EXPECT_EQ(User("OTHER\\alice").name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER);
  const KORVGroup group = Group("adex\\BIG GROUP");
  EXPECT_EQ(group.name, "ADEX\\big group");
  EXPECT_EQ(User(group.gid).name, "") << "an id of a group";
  const KORVUser user = User("adex\\ÖL");
  EXPECT_EQ(user.name, "ADEX\\öl");
  EXPECT_EQ(Group(user.uid).name, "") << "an id of a user";
  EXPECT_TRUE(KORVUserIsInternal("ADEX\\krbtgt"));
  EXPECT_FALSE(KORVUserIsInternal("ADEX\\administrator"));
}

TEST_F(SambaAccounts, AskedForMembersFollowGroupsThroughCircles) {
  const korvmailserver::AccountSnapshot snapshot;
  for (const char* group : {"ADEX\\nested", "ADEX\\deep", "ADEX\\Big Group"}) {
    EXPECT_THAT(Members(group), UnorderedElementsAre("ADEX\\alice", "ADEX\\bob", "ADEX\\carol"));
  }
}

TEST_F(SambaAccounts, AskedForAttributesMakeAliases) {
  const char* const cases[][3] = {
      {"<1g>.<s>", "jsmith", "J.Smith"},
      {"<10g>", "jsmith", "John"},
      {"<0g>", "jsmith", "John"},
      {"<a>", "jsmith", "jsmith"},
      {"<i>", "jsmith", "J"},
      {"<d>", "jsmith", "JohnJ.Smith"},
      {"<g>.<s>", "öl", "Ölm.Äß"},
      {"<s>", "bob", "Büch"},
      {"<department>", "bob", "Sales"},
      {"<g>", "carol", "carol"},
      {"<m>", "alice", "alice"},
      {"<mail>", "jsmith", "john"},
      {"<--option>", "bob", "bob"},
  };
  for (const auto& [pattern, user, alias] : cases) {
    EXPECT_EQ(Alias(pattern, user), alias) << pattern;
  }
}

TEST_F(SambaAccounts, AskedInVainAHungDaemonIsGivenUp) {
  SetTimeout(1);
  const pid_t daemon = std::stoi(Given("WINBINDD_PID"));
  ASSERT_EQ(kill(daemon, SIGSTOP), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("winbindd: no answer within 1 seconds"));
  EXPECT_THAT(LastStep(), HasSubstr("connect: winbindd: no answer"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  ASSERT_EQ(kill(daemon, SIGCONT), 0);
  SetTimeout(30);
  EXPECT_GT(Users().held, 0);
}

TEST_F(SambaAccounts, Gone) {
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("winbindd does not answer; is it running?"));
  EXPECT_EQ(User("ADEX\\alice").name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_FAILED);
  EXPECT_TRUE(Logged("is it running?"));
  EXPECT_THAT(LastStep(), HasSubstr("connect: winbindd does not answer"));
}

TEST_F(SambaAccounts, Unresolvable) {
  const Answer users = Users();
  EXPECT_THAT(users.names, ElementsAre("ADEX\\alice"));
  EXPECT_GT(users.held, 1);
  EXPECT_TRUE(Logged("is listed and cannot be looked up"));
  EXPECT_THAT(LastStep(), HasSubstr("complete: users: "));
  EXPECT_THAT(Members("ADEX\\staff"), ElementsAre("ADEX\\alice")) << "bob has no id";
}

TEST_F(SambaAccounts, Warm) {
  EXPECT_THAT(Members("ADEX\\staff"), ElementsAre("ADEX\\alice"));
  TakeLog();
}

// Each user's primary group came as all of the user's groups, with success: a third of all
// memberships went.
TEST_F(SambaAccounts, WarmAlone) {
  const std::string reason = Given("WARM_REASON");
  EXPECT_THAT(LastStep(), HasSubstr("bind: " + reason));
  const korvmailserver::AccountSnapshot snapshot;
  const Answer users = Users();
  EXPECT_THAT(users.names, ElementsAre("ADEX\\alice"));
  EXPECT_GT(users.held, 2);
  EXPECT_TRUE(Logged("nobody is deleted until that is mended"));
  EXPECT_THAT(Members("ADEX\\staff"), ElementsAre("failed 256"));
  EXPECT_TRUE(Logged("members of the group \"ADEX\\staff\" cannot be told: "));
  EXPECT_EQ(User("ADEX\\nosuch").name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_FAILED) << "cannot be told, which is not absent";
  TakeLog();
}

TEST_F(SambaAccounts, NoController) {
  EXPECT_LT(Users().held, 0) << "success, and no users, is no answer";
  EXPECT_TRUE(Logged("no domain controller of ADEX answers"));
  EXPECT_THAT(LastStep(), HasSubstr("bind: no domain controller"));
  EXPECT_EQ(User("ADEX\\nosuch").name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_FAILED) << "a name that nobody knows may exist";
  EXPECT_TRUE(Logged("no domain controller of ADEX answers"));
}

}  // namespace
