// What every account source must do, run for each: ACCOUNT_KIND says which one is there. All hold
// the users alice, bob (UTF-8 in the full name) and carol and the groups staff (alice, bob), empty
// and a primary group; sources with nesting have "nested": staff and carol.
#include <gmock/gmock.h>

#include <cstdlib>

#include "tests/support/account_fixture.h"

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAreArray;

class AccountConformance : public test::AccountTest {
 protected:
  void SetUp() override {
    const char* kind = getenv("ACCOUNT_KIND");
    const std::string name = kind == nullptr ? "local" : kind;
    if (name == "local") {
      WriteAccounts(
          "alice:x:1001:1000:Alice Archer::\nbob:x:1002:1002:Bob Büch::\ncarol:x:1003:1002:::\n",
          "staff:x:1009:alice,bob\nempty:x:1004:\npeople:x:1002:\n");
      folds_case_ = false;
    } else if (name == "win") {
      UseWindowsDomain("ADEX");
      primary_group_ = "domain users";
      primary_members_ = {"alice", "bob", "carol"};
      nested_ = true;
    } else {
      UseDirectory();
      Set("acc_domain_name", name == "ldap-domain" ? "Example.com" : "");
      nested_ = name == "ldap-bis";
    }
    if (name == "ldap-bis") {
      Configure({{"group_base", "ou=Bis,dc=example,dc=com"},
                 {"group_filter", "(objectClass=testUnixGroup)"},
                 {"schema", "rfc2307bis"}});
    }
  }

  static std::string Full(const std::string& name) { return GetFullNames({name}).front(); }

  void CheckUsers() const;
  void CheckGroups() const;
  void CheckMembers() const;

  std::string primary_group_ = "people";
  std::vector<std::string> primary_members_ = {"bob", "carol"};
  bool nested_ = false;
  bool folds_case_ = true;
};

void AccountConformance::CheckUsers() const {
  const Answer users = Users();
  EXPECT_EQ(users.held, static_cast<long>(users.names.size()));
  for (const std::string name : {"alice", "bob", "carol"}) {
    const KORVUser user = User(Full(name));
    EXPECT_EQ(user.name, Full(name));
    EXPECT_THAT(users.uids, Contains(std::make_pair(user.name, user.uid)));
    uid_t uid = 0;
    gid_t gid = 0;
    EXPECT_EQ(KORVUserGetUGID(user.name.c_str(), &uid, &gid), 0);
    EXPECT_EQ(uid, user.uid);
    EXPECT_EQ(gid, user.gid);
    const KORVUser same = User(uid);
    EXPECT_EQ(same.name, Full(name));
    EXPECT_TRUE(name != "bob" || type_ == AUTH_WIN ||
                same.full_name.find("Büch") != std::string::npos);
    EXPECT_FALSE(KORVUserIsInternal(Full(name).c_str()));
  }
  char buffer[492];
  EXPECT_EQ(KLIBUserRealNameGet(Full("ALICE").c_str(), buffer, sizeof(buffer)) == 0, folds_case_);
  EXPECT_TRUE(!folds_case_ || Full("alice") == buffer);
  for (const std::string name : {"nosuch", "al*ce", ")(uid=*", ""}) {
    EXPECT_EQ(User(Full(name)).name, "") << name;
    EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER) << name;
  }
  EXPECT_EQ(User(4000000000U).name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER);
}

void AccountConformance::CheckGroups() const {
  EXPECT_THAT(Groups(), IsSupersetOf({Full("staff"), Full("empty"), Full(primary_group_)}));
  const KORVGroup staff = Group(Full("staff"));
  EXPECT_EQ(staff.name, Full("staff"));
  EXPECT_EQ(Group(staff.gid).name, Full("staff"));
  std::string description = "untouched";
  EXPECT_EQ(KORVGroupDescGet(staff.name.c_str(), description), 0);
  EXPECT_EQ(description, "");
  EXPECT_LT(KORVGroupDescGet(Full("nosuch").c_str(), description), 0);
  EXPECT_EQ(Group(Full("nosuch")).name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_GROUP);
  EXPECT_EQ(Group(4000000000U).name, "");
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_GROUP);
  EXPECT_THAT(Members(Full("nosuch")), ::testing::ElementsAre("failed 6144"));
}

void AccountConformance::CheckMembers() const {
  EXPECT_THAT(Members(Full("staff")), UnorderedElementsAreArray(GetFullNames({"alice", "bob"})));
  EXPECT_THAT(Members(Full("empty")), IsEmpty());
  EXPECT_THAT(Members(Full(primary_group_)), IsSupersetOf(GetFullNames(primary_members_)));
  if (nested_) {
    EXPECT_THAT(Members(Full("nested")),
                UnorderedElementsAreArray(GetFullNames({"alice", "bob", "carol"})));
  }
}

TEST_F(AccountConformance, AnswersFromTheSourceAndFromASnapshotAlike) {
  CheckUsers();
  CheckGroups();
  CheckMembers();
  const korvmailserver::AccountSnapshot snapshot;
  CheckUsers();
  CheckGroups();
  CheckMembers();
}

TEST_F(AccountConformance, IsInspectedStepByStep) {
  std::vector<korvmailserver::AccountCheckStep> steps;
  Set("acc_domain_name", "example.com");
  EXPECT_TRUE(korvmailserver::CheckAccountSource(steps)) << steps.back().detail;
  std::vector<std::string> names;
  names.reserve(steps.size());
  for (const auto& step : steps) {
    names.push_back(step.name);
  }
  EXPECT_THAT(names,
              ::testing::ElementsAre("settings", "connect", "bind", "users", "groups", "complete"));
}

}  // namespace
