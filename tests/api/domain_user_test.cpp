// The facade for members: addresses, maps, extra information, what a failing step leaves behind.
#include "lib-domain/api/domain_user.h"

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/group.h"
#include "lib-domain/api/user.h"
#include "tests/support/sync_fixture.h"

namespace {

using MDOMAIN::API::DomainGroup;
using MDOMAIN::API::DomainUser;
using test::StringList;
namespace DB = MDOMAIN::DB;
namespace RECORD = MDOMAIN::RECORD;

using Aliases = std::vector<RECORD::DomainUserAlias>;

class DomainUserApiTest : public test::SyncTest {
 protected:
  // Two domains, the second one primary, everyone mirrored.
  DomainUserApiTest() {
    EXPECT_TRUE(MDOMAIN::API::Updater().Refresh());
    CreateDomain("example.com", false);
    CreateDomain("example.org", false);
    EXPECT_TRUE(MDOMAIN::API::Domain().SetPrimary(2));
    EXPECT_TRUE(MDOMAIN::API::Domain().CreateAdditionalDomains(1, {"x.example", "y.example"}));
    TakeLog();
  }
  static bool Add(int domain_idx, const StringList& users, const StringList& groups,
                  Aliases aliases) {
    return DomainUser().AddMembers(domain_idx, users, groups, aliases);
  }
};

TEST_F(DomainUserApiTest, AddressesOfThePrimaryDomainComeFirst) {
  ASSERT_TRUE(Add(1, {"alice", "bob"}, {},
                  {{1, 1001, "a", false}, {1, 1001, "o'neil", false}, {1, 1002, "bob", false}}));
  ASSERT_TRUE(Add(2, {"alice"}, {}, {{2, 1001, "z", false}}));
  DomainUser api;
  StringList addresses;
  EXPECT_TRUE(api.GetMailAddresses(1001U, addresses));
  EXPECT_EQ(addresses, (StringList{"z@example.org", "a@example.com", "o'neil@example.com"}));
  addresses.clear();
  EXPECT_TRUE(api.GetMailAddresses(std::string("Alice"), addresses));
  EXPECT_EQ(addresses, (StringList{"z@example.org", "a@example.com", "o'neil@example.com"}));
  addresses.clear();
  EXPECT_TRUE(api.GetMailAddrIncludingAdditionalDomain("bob", addresses));
  EXPECT_EQ(addresses, (StringList{"bob@example.com", "bob@x.example", "bob@y.example"}));
  addresses.clear();
  EXPECT_TRUE(api.GetMailAddresses(std::string("no' or '1'='1"), addresses));
  EXPECT_TRUE(addresses.empty());

  std::map<std::string, StringList> map;
  EXPECT_TRUE(api.GetUser2AliasesMap(1, map));
  EXPECT_EQ(map, (std::map<std::string, StringList>{{"alice", {"a", "o'neil"}}, {"bob", {"bob"}}}));
  for (const bool additional : {false, true}) {
    map.clear();
    EXPECT_TRUE(api.GetAllUser2EmailsMap(additional, map));
    EXPECT_EQ(map["alice"].size(), additional ? 7U : 3U);
    EXPECT_EQ(map["bob"].size(), additional ? 3U : 1U);
  }
  std::string owner = "before";
  EXPECT_TRUE(api.GetAliasUser(1, "O'NEIL", owner));
  EXPECT_EQ(owner, "alice");
}

TEST_F(DomainUserApiTest, MapsOfNoDomainAreEmpty) {
  Run("DELETE FROM domain_table");
  std::map<std::string, StringList> map;
  StringList addresses;
  EXPECT_TRUE(DomainUser().GetAllUser2EmailsMap(true, map));
  EXPECT_TRUE(DomainUser().GetMailAddrIncludingAdditionalDomain("alice", addresses));
  EXPECT_TRUE(map.empty() && addresses.empty());
}

// uid, under group control, in a group of the domain, the groups' role
StringList ExtraInfo(int domain_idx) {
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs({domain_idx});
  std::vector<RECORD::DomainUser> users;
  EXPECT_TRUE(DomainUser().ListWithExtraInfo(filter, users));
  StringList lines;
  for (const RECORD::DomainUser& user : users) {
    lines.push_back(std::to_string(user.GetUID()) + (user.IsUnderGroupControl() ? " c" : " -") +
                    (user.IsBelongingGroupsInDomain() ? " g " : " - ") + user.GetRole() + "/" +
                    user.GetResultGroupRole());
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST_F(DomainUserApiTest, ExtraInformationTellsWhatGroupsGive) {
  ASSERT_TRUE(Add(1, {"bob", "carol"}, {"staff"},
                  {{1, 1001, "a", false}, {1, 1002, "b", false}, {1, 1003, "c", false}}));
  ASSERT_TRUE(DomainGroup().Set({{1, 2001, "domain_admin"}}));
  DomainUser api;
  std::vector<RECORD::DomainUser> set = {{1, 1002, "bob", {{"b", false}}, "normal"}};
  std::vector<RECORD::DomainUser> conflicts;
  ASSERT_TRUE(api.Set(set, conflicts));
  EXPECT_EQ(ExtraInfo(1), (StringList{"1001 c g domain_admin/domain_admin",
                                      "1002 - g normal/domain_admin", "1003 - - normal/"}));
  set[0].SetRole("group");
  ASSERT_TRUE(api.Set(set, conflicts));
  EXPECT_EQ(ExtraInfo(1)[1], "1002 c g domain_admin/domain_admin");
}

TEST_F(DomainUserApiTest, AddingStopsAtTheFirstFailure) {
  const test::FailingStep steps[] = {
      {test::kBatch, "domain_user_role_table",
       "Failed to create domain users from user, domain_id: [1]", "0 0"},
      {test::kBatch, "domain_group_role_table", "Faied to create domain groups, domain_id: [1]",
       "1 0"},
      {test::kBatch, "INTO  domain_user_alias_table",
       "Failed to CreateUsersAliases, domain_id: [1]", "1 1"},
      {test::kBatch, "DELETE FROM domain_user_role_table",
       "Failed to RemoveUnnecessaryAutoAddedUserRole", "1 1"},
      {"setFile", "", "Failed to Trigger", "0 1"},
  };
  ExpectStops(
      steps,
      [] {
        return Add(1, {"alice"}, {"staff"}, {{1, 1001, "a", false}});
      },
      [] {  // own roles, group roles
        std::string left = Rows(
            "SELECT (SELECT count(*) FROM domain_user_role_table) || ' ' || count(*) FROM "
            "domain_group_role_table")[0];
        Run("DELETE FROM domain_user_role_table; DELETE FROM domain_group_role_table;"
            "DELETE FROM domain_user_alias_table");
        return left;
      });
  EXPECT_FALSE(Add(1, {"alice"}, {"nobody knows"}, {}));
  TakeLog();
}

TEST_F(DomainUserApiTest, RemovedMembersAreTakenBackWithAnAddress) {
  ASSERT_TRUE(Add(1, {}, {"staff"}, {{1, 1001, "a", false}, {1, 1002, "b", false}}));
  ASSERT_TRUE(DomainUser().Delete(1, {1001}));
  DomainGroup groups;
  test::FailOn("DBHandler::exeCmds", "INTO  domain_user_alias_table");
  EXPECT_FALSE(groups.RestoreMemberStatus(1, 2001, {1001}));
  EXPECT_TRUE(Logged("Failed to AutoAddNewUsers, domain_id: [1]"));
  TakeLog();
  test::ClearFaults();
  ASSERT_TRUE(groups.RestoreMemberStatus(1, 2001, {1001}));
  EXPECT_EQ(Members(1), (StringList{"alice normal alice", "bob normal b"}));
}

TEST_F(DomainUserApiTest, PreviewAndMirrorAreRead) {
  std::vector<RECORD::DomainUser> preview;
  ASSERT_TRUE(DomainUser().Preview(1, {{"user", "carol"}, {"group", "staff"}}, preview));
  ASSERT_EQ(preview.size(), 3U);
  EXPECT_EQ(preview[2].GetAliasDuplicatedPairs()[0].first, "carol");
  std::vector<RECORD::User> users;
  EXPECT_TRUE(MDOMAIN::API::User().List(DB::UserDBFilter(), users));
  EXPECT_EQ(users.size(), 3U);
  std::vector<RECORD::Group> groups;
  EXPECT_TRUE(MDOMAIN::API::Group().List(DB::GroupDBFilter(), groups));
  std::vector<unsigned int> uids;
  EXPECT_TRUE(MDOMAIN::API::Group().ListGroupToUsers(groups.at(0).GetGID(), uids));
  EXPECT_EQ(uids, (std::vector<unsigned int>{1001, 1002}));
}

}  // namespace
