// The Windows-domain source beside a real domain controller; started by samba_accounts.sh, which
// changes the surroundings between the cases.
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>

#include "lib-domain/utils/default_alias_getter.h"
#include "platform/include/account.h"
#include "platform/include/mail_conf.h"
#include "tests/support/fixture.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

class SambaAccounts : public test::RootTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(mailConfSet("win_domain_short_name", "ADEX", true, 0), 0);
    ASSERT_EQ(mailConfSet("account_type", "win", true, 0), 0);
  }

  void SetTimeout(int seconds) {
    Write("/etc/mailserver-domain/host.ini",
          "[winbind]\ntimeout = " + std::to_string(seconds) + "\n");
  }

  struct Answer {
    long held = 0;
    std::vector<std::string> names;
  };

  static Answer Users() {
    Answer answer;
    answer.held = KLIBUserInfoEnum(
        AUTH_WIN, "ADEX", 0, 0xFFFFFFFFU,
        [](const char* name, unsigned int, void* names) {
          static_cast<std::vector<std::string>*>(names)->emplace_back(name);
          return 0;
        },
        &answer.names);
    return answer;
  }

  static std::vector<std::string> Members(const char* group) {
    KLIBCSzList list;
    if (KORVGroupListMember(group, &list) != 0) {
      return {"failed"};
    }
    return list.items;
  }

  static std::string LastStep() {
    std::vector<korvmailserver::AccountCheckStep> steps;
    korvmailserver::CheckAccountSource(steps);
    return steps.back().name + ": " + steps.back().detail;
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
  PKORVUser user = nullptr;
  PKORVGroup group = nullptr;
  EXPECT_LT(KORVUserGet("ADEX\\staff", &user), 0);
  EXPECT_LT(KORVGroupGet("ADEX\\alice", &group), 0);
  EXPECT_LT(KORVUserGet("OTHER\\alice", &user), 0);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER);
  ASSERT_EQ(KORVGroupGet("adex\\BIG GROUP", &group), 0);
  EXPECT_EQ(group->name, "ADEX\\big group");
  const unsigned int gid = group->gid;
  KORVGroupFree(group);
  EXPECT_LT(KORVUserGetByUID(gid, &user), 0) << "an id of a group";
  ASSERT_EQ(KORVUserGet("adex\\ÖL", &user), 0);
  EXPECT_EQ(user->name, "ADEX\\öl");
  EXPECT_LT(KORVGroupGetByGID(user->uid, &group), 0) << "an id of a user";
  KORVUserFree(user);
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
  struct Case {
    const char* pattern;
    const char* user;
    const char* alias;
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    EXPECT_EQ(Alias(c.pattern, c.user), c.alias) << c.pattern;
  }
}

TEST_F(SambaAccounts, AskedInVainAHungDaemonIsGivenUp) {
  SetTimeout(1);
  const pid_t daemon = std::stoi(getenv("WINBINDD_PID"));
  ASSERT_EQ(kill(daemon, SIGSTOP), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("winbindd: no answer within 1 seconds"));
  EXPECT_THAT(LastStep(), HasSubstr("connect: winbindd: no answer"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  ASSERT_EQ(kill(daemon, SIGCONT), 0);
  SetTimeout(30);
  EXPECT_GT(Users().held, 0);
}

TEST_F(SambaAccounts, Gone) {
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("winbindd does not answer; is it running?"));
  PKORVUser user = nullptr;
  EXPECT_LT(KORVUserGet("ADEX\\alice", &user), 0);
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

TEST_F(SambaAccounts, NoController) {
  const Answer users = Users();
  EXPECT_LT(users.held, 0) << "success, and no users, is no answer";
  EXPECT_TRUE(Logged("no domain controller of ADEX answers"));
  EXPECT_THAT(LastStep(), HasSubstr("bind: no domain controller"));
  PKORVUser user = nullptr;
  EXPECT_LT(KORVUserGet("ADEX\\nosuch", &user), 0);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_FAILED) << "a name that nobody knows may exist";
  EXPECT_TRUE(Logged("no domain controller of ADEX answers"));
}

}  // namespace
