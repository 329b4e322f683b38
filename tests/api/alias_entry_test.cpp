// Addresses of a domain that go to several, and what is made of them.
#include "lib-domain/api/alias_entry.h"

#include "lib-domain/api/domain_user.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/sync/follow_addresses.h"
#include "platform/include/postfix_map.h"
#include "tests/support/sync_fixture.h"

namespace {

using MDOMAIN::API::AliasEntry;
using MDOMAIN::API::DomainUser;
using Entry = ::Alias::Entry;
using Kind = ::Alias::MemberKind;
using Result = AliasEntry::Result;

class AliasEntryTest : public test::SyncTest {
 protected:
  // Domain 1 with everybody in it, and the maps.
  void SetUp() override {
    test::SyncTest::SetUp();
    MDOMAIN::RECORD::Domain domain;
    domain.SetDomainName("a.example");
    domain.SetDefaultAliasPattern("<a>");
    domain.SetIsAutomaticallyAddingUsers(true);
    int idx = 0;
    ASSERT_TRUE(MDOMAIN::API::Domain().Create(domain, idx));
    ASSERT_TRUE(MDOMAIN::API::Updater().Refresh());
    ASSERT_TRUE(MDOMAIN::UTILS::BuildPostfixMaps());
  }
  static std::string Goes(const std::string& address) {
    bool found = false;
    std::string value;
    std::string error;
    EXPECT_TRUE(korvmailserver::PostfixMap(MDOMAIN::PATHS::PostfixAddresses())
                    .Get(address, found, value, error))
        << error;
    return found ? value : "-";
  }
};

TEST_F(AliasEntryTest, GoesToItsMembers) {
  AliasEntry api;
  const Entry team = {"Team",
                      1,
                      {{Kind::User, "carol"},
                       {Kind::Group, "staff"},
                       {Kind::Address, "x@y.example"},
                       {Kind::User, "alice"}}};
  EXPECT_EQ(Goes("team@a.example"), "-");
  EXPECT_EQ(api.Create(team), Result::kDone);
  EXPECT_EQ(Goes("TEAM@a.example"), "carol@localhost, alice@localhost, bob@localhost, x@y.example");
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}}, {{"staff:2001", "alice"}});
  ASSERT_TRUE(MDOMAIN::API::Updater().Refresh());
  EXPECT_EQ(Goes("team@a.example"), "carol@localhost, alice@localhost, x@y.example");
  EXPECT_EQ(api.Set({"team", 1, {{Kind::Address, "x@y.example"}}}), Result::kDone);
  EXPECT_EQ(Goes("team@a.example"), "x@y.example");
  EXPECT_EQ(api.Delete(1, "TEAM"), Result::kDone);
  EXPECT_EQ(Goes("team@a.example"), "-");
}

TEST_F(AliasEntryTest, PostmasterIsSomebody) {
  EXPECT_EQ(Goes("postmaster@a.example"), "-");
  ASSERT_EQ(mailConfSet("postmaster", "carol", true, 0), 0);
  ASSERT_TRUE(MDOMAIN::API::Updater().Trigger());
  EXPECT_EQ(Goes("postmaster@a.example"), "carol@localhost");
  EXPECT_EQ(Goes("abuse@a.example"), "carol@localhost");
  std::vector<MDOMAIN::RECORD::DomainUser> users;
  std::vector<MDOMAIN::RECORD::DomainUser> conflicts;
  ASSERT_TRUE(MDOMAIN::DB::INTERNAL::AddDomainUser(1, 1002, users));
  users.at(0).SetRole("domain_admin");
  ASSERT_TRUE(DomainUser().Set(users, conflicts));
  EXPECT_EQ(Goes("Postmaster@a.example"), "bob@localhost");
  EXPECT_EQ(AliasEntry().Create({"postmaster", 1, {{Kind::User, "alice"}}}), Result::kDone);
  EXPECT_EQ(Goes("postmaster@a.example"), "alice@localhost");
  EXPECT_EQ(Goes("abuse@a.example"), "bob@localhost");
}

TEST_F(AliasEntryTest, KeepsItsAddressFromALaterAccount) {
  ASSERT_EQ(AliasEntry().Create({"dave", 1, {{Kind::User, "bob"}}}), Result::kDone);
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}},
              {{"staff:2001", "alice"}});
  ASSERT_TRUE(MDOMAIN::API::Updater().Refresh());
  const auto flagged = [] {
    std::vector<std::string> aliases;
    EXPECT_TRUE(DomainUser().ListDuplicatedEmail(1, aliases));
    return aliases;
  };
  EXPECT_EQ(flagged(), std::vector<std::string>{"dave"});
  EXPECT_EQ(Goes("dave@a.example"), "bob@localhost");
  EXPECT_EQ(AliasEntry().Set({"dave", 1, {{Kind::User, "alice"}}}), Result::kDone);

  // Who has the alias keeps it in other changes, and nobody else gets it.
  std::vector<MDOMAIN::RECORD::DomainUser> users;
  std::vector<MDOMAIN::RECORD::DomainUser> conflicts;
  ASSERT_TRUE(MDOMAIN::DB::INTERNAL::AddDomainUser(1, 1004, users));
  users.at(0).SetRole("domain_admin");
  EXPECT_TRUE(DomainUser().Set(users, conflicts));
  users.clear();
  ASSERT_TRUE(MDOMAIN::DB::INTERNAL::AddDomainUser(1, 1003, users));
  users.at(0).SetAliasDuplicatedPairs({{"carol", false}, {"DAVE", false}});
  EXPECT_FALSE(DomainUser().Set(users, conflicts));
  EXPECT_TRUE(Logged("The alias has several members: [DAVE], domain_id: [1]"));
  EXPECT_TRUE(Logged("Failed to set domain users"));
  EXPECT_EQ(flagged(), std::vector<std::string>{"dave"});

  EXPECT_EQ(AliasEntry().Delete(1, "dave"), Result::kDone);
  EXPECT_EQ(flagged(), std::vector<std::string>{});
  EXPECT_EQ(Goes("dave@a.example"), "dave@localhost");
}

TEST_F(AliasEntryTest, RefusesAndChangesNothing) {
  ASSERT_EQ(AliasEntry().Create({"t\u00EBam", 1, {{Kind::User, "bob"}}}), Result::kDone);
  const ::Alias::Member good = {Kind::User, "bob"};
  const struct {
    const char* what;
    Entry entry;
    bool creates;
    Result result;
    std::string problem;
  } cases[] = {
      {"there already", {"T\u00CBAM", 1, {good}}, true, Result::kExists, ""},
      {"not there", {"other", 1, {good}}, false, Result::kMissing, ""},
      {"no such domain", {"other", 7, {good}}, true, Result::kMissing, "domain 7"},
      {"no local part", {"a b", 1, {good}}, true, Result::kInvalid, "a b"},
      {"no members", {"other", 1, {}}, true, Result::kInvalid, ""},
      {"an alias", {"Alice", 1, {good}}, true, Result::kTaken, "alice"},
      {"no such user",
       {"other", 1, {good, {Kind::User, "nobody"}}},
       true,
       Result::kInvalid,
       "nobody"},
      {"no such group", {"other", 1, {{Kind::Group, "bob"}}}, true, Result::kInvalid, "bob"},
      {"no address", {"other", 1, {{Kind::Address, "bob@"}}}, true, Result::kInvalid, "bob@"},
      {"nobody's address",
       {"other", 1, {good, {Kind::Address, "ghost+x@A.example"}}},
       true,
       Result::kNobody,
       "ghost+x@A.example"},
      {"a loop",
       {"t\u00EBam",
        1,
        {{Kind::Address, "bob+x@a.example"}, {Kind::Address, "T\u00CBam+y@a.example"}}},
       false,
       Result::kLoop,
       "T\u00CBam+y@a.example"},
  };
  for (const auto& now : cases) {
    AliasEntry api;
    EXPECT_EQ(now.creates ? api.Create(now.entry) : api.Set(now.entry), now.result) << now.what;
    EXPECT_EQ(api.Problem(), now.problem) << now.what;
  }
  std::vector<Entry> entries;
  EXPECT_TRUE(AliasEntry().List(1, entries));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].members.size(), 1U);
}

}  // namespace
