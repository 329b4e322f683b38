// The collision rules one by one. What they make of a whole batch is tested with the operations on
// domain users.
#include "lib-domain/control/alias_conflict.h"

#include "lib-domain/control/alias_index.h"
#include "tests/support/fixture.h"

namespace {

using MDOMAIN::RECORD::DomainUser;
using MDOMAIN::RECORD::DomainUserAlias;
using namespace MDOMAIN::CONTROL::INTERNAL;
using Aliases = std::vector<DomainUserAlias>;
using Users = std::vector<DomainUser>;
using Pairs = std::vector<std::pair<std::string, bool>>;

// "1:1000:info!" is alias info of uid 1000 in domain 1, flagged.
std::string Text(const Aliases& aliases) {
  std::string text;
  for (const DomainUserAlias& alias : aliases) {
    text += (text.empty() ? "" : " ") + std::to_string(alias.GetDomainIdx()) + ":" +
            std::to_string(alias.GetUID()) + ":" + alias.GetAccountAlias() +
            (alias.IsDuplicated() ? "!" : "");
  }
  return text;
}

std::string Text(const Users& users) {
  std::string text;
  for (const DomainUser& user : users) {
    text += (text.empty() ? "" : " ") + Text(user.ExtractDomainUserAliases());
  }
  return text;
}

// Own aliases go, those of others are flagged; candidates are not compared with each other.
TEST(AliasConflict, CandidatesAgainstStoredAliases) {
  const Aliases stored = {
      {1, 1001, "Info", false}, {1, 1002, "o'brien", true}, {2, 1003, "x", false}};
  Aliases candidates = {{1, 1000, "iNFO", false},    {1, 1001, "info", false},
                        {1, 1000, "O'Brien", false}, {1, 1000, "x", false},
                        {2, 1000, "info", false},    {1, 1001, "a", false},
                        {1, 1001, "INFO", false},    {1, 1002, "A", true},
                        {1, 1000, "inf", false},     {1, 1000, "info2", false}};
  _CheckAndSetDomainUsersAliasesDuplicated(stored, candidates);
  EXPECT_EQ(Text(candidates),
            "1:1000:iNFO! 1:1000:O'Brien! 1:1000:x 2:1000:info 1:1001:a 1:1002:A! 1:1000:inf "
            "1:1000:info2");

  bool same_user_has_it = true;
  _CheckAndSetDomainUserAliasDuplicated({}, candidates[0], same_user_has_it);
  EXPECT_TRUE(same_user_has_it && candidates[0].IsDuplicated());  // neither is ever cleared
}

TEST(AliasConflict, RepeatsOfNeighboursCollapse) {
  Aliases adjacent = {
      {1, 1, "a", false}, {1, 1, "A", true}, {1, 1, "b", false}, {1, 1, "a", false}};
  _CheckAndEraseDupAlias(adjacent);
  EXPECT_EQ(Text(adjacent), "1:1:a 1:1:b 1:1:a");

  // Two people next to each other who want the same alias both keep it.
  Aliases several = {{1, 1, "a", false}, {1, 2, "a", false}, {2, 1, "a", false},
                     {1, 1, "A", false}, {1, 2, "b", false}, {1, 2, "a", false}};
  EraseRepeatsOfEachUser(several);
  EXPECT_EQ(Text(several), "1:1:a 1:2:a 2:1:a 1:2:b 1:2:a");
}

TEST(AliasConflict, PairsAndAccountNamesOfOtherUsers) {
  const Users others = {{1, 1000, "me", Pairs{{"own", false}}, "normal"},
                        {1, 1001, "DOM\\Bob", Pairs{{"b1", false}, {"b2", true}}, "normal"},
                        {1, 1002, "bob@dom", Pairs{}, "normal"},
                        {2, 1003, "eve", Pairs{{"e1", false}}, "normal"}};
  DomainUser target(1, 1000, "me", Pairs{{"OWN", false}, {"B2", false}, {"e1", false}, {"z", true}},
                    "normal");
  bool any = true;
  EXPECT_TRUE(_CheckAndSetAliasDuplicatedPairs(others, true, target, any));
  EXPECT_TRUE(any);
  EXPECT_EQ(Text({target}), "1:1000:OWN 1:1000:B2! 1:1000:e1 1:1000:z!");
  EXPECT_TRUE(_CheckAndSetAliasDuplicatedPairs(others, false, target, any));
  EXPECT_EQ(Text({target}), "1:1000:OWN! 1:1000:B2! 1:1000:e1 1:1000:z!");

  // A flag that was set before is no collision found now.
  target.SetAliasDuplicatedPairs({{"z", true}});
  EXPECT_TRUE(_CheckAndSetAliasDuplicatedPairs(others, true, target, any));
  EXPECT_FALSE(any);

  target.SetAliasDuplicatedPairs({{"BOB", false}, {"eve", false}, {"me", false}, {"bob", false}});
  EXPECT_TRUE(_CheckAndSetConflictingAccountNames(others, true, target));
  EXPECT_EQ(target.GetConflictingAccountNames(),
            (std::vector<std::string>{"DOM\\Bob", "bob@dom", "DOM\\Bob", "bob@dom"}));
  target.SetAliasDuplicatedPairs({{"me", false}});
  EXPECT_FALSE(_CheckAndSetConflictingAccountNames(others, true, target));
  EXPECT_TRUE(target.GetConflictingAccountNames().empty());
}

TEST(AliasConflict, OrdersTolerateUsersWithoutAliases) {
  const DomainUser none(1, 1, "n", Pairs{}, "normal");
  const DomainUser upper(1, 2, "u", Pairs{{"B", true}, {"a", false}}, "normal");
  const DomainUser lower(1, 3, "l", Pairs{{"a", false}, {"B", true}}, "normal");
  EXPECT_TRUE(_CompareDomainUserByAccountAlias(upper, lower));  // bytes: "B" before "a"
  EXPECT_FALSE(_CompareDomainUserByAccountAlias(lower, upper));
  EXPECT_TRUE(_CompareDomainUserByAccountAlias(none, lower));
  EXPECT_FALSE(_CompareDomainUserByAccountAlias(none, none));
  EXPECT_TRUE(_CompareDomainUserByIsDuplicated(upper, lower));
  EXPECT_FALSE(_CompareDomainUserByIsDuplicated(lower, none));
}

TEST(AliasConflict, OneOfEqualAliasesStaysClean) {
  const auto user = [](int domain, unsigned int uid, const std::string& role, const Pairs& pairs) {
    return DomainUser(domain, uid, "u" + std::to_string(uid), pairs, role);
  };
  const struct {
    const char* what;
    Users users;
    std::string want;
  } cases[] = {
      {"the smaller uid of two new ones",
       {user(1, 1, "normal", {{"a", false}}), user(1, 2, "normal", {{"A", false}})},
       "1:1:a 1:2:A!"},
      {"who has it, though listed last",
       {user(1, 1, "normal", {{"a", true}}), user(1, 2, "normal", {{"a", false}})},
       "1:1:a! 1:2:a"},
      {"an administrator before who has it",
       {user(1, 1, "normal", {{"a", false}}), user(1, 2, "domain_admin", {{"a", true}})},
       "1:1:a! 1:2:a"},
      {"who has it, though without a role for the moment",
       {user(1, 2, "", {{"a", false}}), user(1, 1, "normal", {{"a", true}})},
       "1:2:a 1:1:a!"},
      {"the last one left", {user(1, 2, "normal", {{"a", true}, {"b", true}})}, "1:2:a 1:2:b"},
      {"one user's own repeat",
       {user(1, 2, "normal", {{"a", false}, {"A", false}})},
       "1:2:a 1:2:A!"},
      {"each domain for itself",
       {user(1, 1, "normal", {{"a", true}}), user(2, 2, "normal", {{"a", true}}),
        user(2, 11, "normal", {{"a", false}})},
       "1:1:a 2:2:a! 2:11:a"},
  };
  for (const auto& c : cases) {
    Users users = c.users;
    const std::vector<bool> changed = RecomputeFlags(users);
    EXPECT_EQ(Text(users), c.want) << c.what;
    for (size_t i = 0; i < users.size(); ++i) {
      EXPECT_EQ(changed[i], Text({users[i]}) != Text({c.users[i]})) << c.what << " " << i;
    }
  }
}

}  // namespace
