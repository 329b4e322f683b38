// What every account source must do, run for each: ACCOUNT_KIND says which one is there. All hold
// the users alice, bob (UTF-8 in the full name) and carol and the groups staff (alice, bob), empty
// and a primary group; sources with nesting have "nested": staff and carol.
#include <gmock/gmock.h>

#include <cstdlib>

#include "platform/include/account.h"
#include "platform/include/mail_conf.h"
#include "tests/support/fixture.h"

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAreArray;

struct Kind {
  AUTH_TYPE type = AUTH_LOCAL;
  std::string primary_group = "people";
  std::vector<std::string> primary_members = {"bob", "carol"};
  bool nested = false;
  bool folds_case = true;
};

using Users = std::vector<std::pair<std::string, unsigned int>>;

int Collect(const char* name, unsigned int uid, void* users) {
  static_cast<Users*>(users)->emplace_back(name, uid);
  return 0;
}

class AccountConformance : public test::RootTest {
 protected:
  void SetUp() override {
    const char* kind = getenv("ACCOUNT_KIND");
    const std::string name = kind == nullptr ? "local" : kind;
    if (name == "local") {
      WriteAccounts(
          "alice:x:1001:1000:Alice Archer::\nbob:x:1002:1002:Bob Büch::\ncarol:x:1003:1002:::\n",
          "staff:x:1009:alice,bob\nempty:x:1004:\npeople:x:1002:\n");
      kind_.folds_case = false;
      return;
    }
    if (name == "win") {
      kind_ = {AUTH_WIN, "domain users", {"alice", "bob", "carol"}, true, true};
      Set("win_domain_short_name", "ADEX");
      Set("account_type", "win");
      return;
    }
    kind_.type = AUTH_LDAP;
    kind_.nested = name == "ldap-bis";
    WriteLdapSettings(kind_.nested);
    Set("acc_domain_name", name == "ldap-domain" ? "Example.com" : "");
    Set("account_type", "ldap");
  }

  void WriteLdapSettings(bool bis) {
    Write("/etc/mailserver-domain/reader", "readpw\n");
    Write("/etc/mailserver-domain/host.ini",
          std::string("[ldap]\nuri = ") + getenv("WHOLE_URI") +
              "\nbind_dn = cn=reader,dc=example,dc=com\npassword_file = reader\n"
              "user_base = ou=People,dc=example,dc=com\ngroup_base = " +
              (bis ? "ou=Bis,dc=example,dc=com\ngroup_filter = (objectClass=testUnixGroup)\n"
                     "schema = rfc2307bis\n"
                   : "ou=Groups,dc=example,dc=com\n"));
    ASSERT_EQ(chmod((root() + "/etc/mailserver-domain/reader").c_str(), 0600), 0);
  }

  static void Set(const char* key, const char* value) {
    ASSERT_EQ(mailConfSet(key, value, true, 0), 0);
  }

  static std::string Full(const std::string& name) { return GetFullNames({name}).front(); }

  static std::vector<std::string> Members(const std::string& group) {
    KLIBCSzList list;
    EXPECT_EQ(KORVGroupListMember(Full(group).c_str(), &list), 0) << group;
    return list.items;
  }

  Users AllUsers() {
    Users users;
    const long held = KLIBUserInfoEnum(kind_.type, Domain(), 0, 0xFFFFFFFFU, Collect, &users);
    EXPECT_EQ(held, static_cast<long>(users.size()));
    return users;
  }

  std::vector<std::string> AllGroups() {
    PKLIBCSzList list = KLIBCSzListAlloc(1024);
    EXPECT_GT(KLIBGroupEnum(&list, kind_.type, Domain()), 0);
    std::vector<std::string> names = list->items;
    KLIBCSzListFree(list);
    return names;
  }

  const char* Domain() const { return kind_.type == AUTH_WIN ? "ADEX" : nullptr; }

  void CheckUsers();
  void CheckGroups();
  void CheckMembers();

  Kind kind_;
};

void AccountConformance::CheckUsers() {
  const Users users = AllUsers();
  for (const std::string name : {"alice", "bob", "carol"}) {
    PKORVUser user = nullptr;
    ASSERT_EQ(KORVUserGet(Full(name).c_str(), &user), 0) << name;
    EXPECT_EQ(user->name, Full(name));
    EXPECT_THAT(users, Contains(std::make_pair(user->name, user->uid)));
    const unsigned int uid = user->uid;
    uid_t again = 0;
    gid_t gid = 0;
    EXPECT_EQ(KORVUserGetUGID(user->name.c_str(), &again, &gid), 0);
    EXPECT_EQ(again, uid);
    EXPECT_EQ(gid, user->gid);
    KORVUserFree(user);
    ASSERT_EQ(KORVUserGetByUID(uid, &user), 0);
    EXPECT_EQ(user->name, Full(name));
    EXPECT_TRUE(name != "bob" || kind_.type == AUTH_WIN ||
                user->full_name.find("Büch") != std::string::npos);
    KORVUserFree(user);
    EXPECT_FALSE(KORVUserIsInternal(Full(name).c_str()));
  }
  char buffer[492];
  EXPECT_EQ(KLIBUserRealNameGet(Full("ALICE").c_str(), buffer, sizeof(buffer)) == 0,
            kind_.folds_case);
  EXPECT_TRUE(!kind_.folds_case || Full("alice") == buffer);
  PKORVUser user = nullptr;
  for (const std::string name : {"nosuch", "al*ce", ")(uid=*", ""}) {
    EXPECT_LT(KORVUserGet(Full(name).c_str(), &user), 0) << name;
    EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER) << name;
  }
  EXPECT_LT(KORVUserGetByUID(4000000000U, &user), 0);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER);
}

void AccountConformance::CheckGroups() {
  EXPECT_THAT(AllGroups(), IsSupersetOf({Full("staff"), Full("empty"), Full(kind_.primary_group)}));
  PKORVGroup group = nullptr;
  ASSERT_EQ(KORVGroupGet(Full("staff").c_str(), &group), 0);
  const unsigned int gid = group->gid;
  EXPECT_EQ(group->name, Full("staff"));
  KORVGroupFree(group);
  ASSERT_EQ(KORVGroupGetByGID(gid, &group), 0);
  EXPECT_EQ(group->name, Full("staff"));
  KORVGroupFree(group);
  std::string description = "untouched";
  EXPECT_EQ(KORVGroupDescGet(Full("staff").c_str(), description), 0);
  EXPECT_EQ(description, "");
  EXPECT_LT(KORVGroupDescGet(Full("nosuch").c_str(), description), 0);
  EXPECT_LT(KORVGroupGet(Full("nosuch").c_str(), &group), 0);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_GROUP);
  KLIBCSzList list;
  EXPECT_LT(KORVGroupListMember(Full("nosuch").c_str(), &list), 0);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_GROUP);
}

void AccountConformance::CheckMembers() {
  const std::vector<std::string> alice_bob = GetFullNames({"alice", "bob"});
  EXPECT_THAT(Members("staff"), UnorderedElementsAreArray(alice_bob));
  EXPECT_THAT(Members("empty"), IsEmpty());
  EXPECT_THAT(Members(kind_.primary_group), IsSupersetOf(GetFullNames(kind_.primary_members)));
  if (kind_.nested) {
    EXPECT_THAT(Members("nested"),
                UnorderedElementsAreArray(GetFullNames({"alice", "bob", "carol"})));
  }
}

TEST_F(AccountConformance, AnswersFromTheSourceAndFromASnapshotAlike) {
  CheckUsers();
  CheckGroups();
  CheckMembers();
  korvmailserver::AccountSnapshot snapshot;
  CheckUsers();
  CheckGroups();
  CheckMembers();
}

TEST_F(AccountConformance, IsInspectedStepByStep) {
  std::vector<korvmailserver::AccountCheckStep> steps;
  Set("acc_domain_name", "example.com");
  EXPECT_TRUE(korvmailserver::CheckAccountSource(steps)) << steps.back().detail;
  std::vector<std::string> names;
  for (const auto& step : steps) {
    names.push_back(step.name);
  }
  EXPECT_THAT(names,
              ::testing::ElementsAre("settings", "connect", "bind", "users", "groups", "complete"));
}

}  // namespace
