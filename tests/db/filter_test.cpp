// What the filters compose. The texts are the interface, so they are compared as texts; that the
// database takes them, and what it answers, is tested with the stores.
#include <functional>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/statement.h"
#include "tests/support/fixture.h"

namespace {

using MDOMAIN::DB::DomainDBFilter;
using MDOMAIN::DB::GroupDBFilter;
using MDOMAIN::DB::UserDBFilter;

class FilterTest : public test::RootTest {};

enum class Kind { kList, kUsers, kDistinct };

TEST_F(FilterTest, DomainViews) {
  using Set = std::function<void(DomainDBFilter&)>;
  const struct {
    const char* table;
    Set set;
    Kind kind;
    std::string want;
  } cases[] = {
      {"domain_view", [](auto&) {}, Kind::kList, "SELECT * FROM domain_view LIMIT 100 OFFSET 0;"},
      {"domain_view",
       [](auto& f) {
         f.SetQuery("o'k");
         f.SetQueryType("domain_name");
         f.SetLimit(-1);
       },
       Kind::kList,
       "SELECT * FROM domain_view WHERE (domain_name LIKE '%o''k%') LIMIT -1 OFFSET 0;"},
      {"domain_view",
       [](auto& f) {
         f.SetQuery("x");
         f.SetDomainIdxs({1});
       },
       Kind::kList,
       "SELECT * FROM domain_view WHERE domain_idx IN (1) AND (domain_name LIKE '%x%' OR "
       "domain_desc LIKE '%x%') LIMIT 100 OFFSET 0;"},
      {"domain_view",
       [](auto& f) {
         f.SetQuery("x");
         f.SetQueryType("; DROP TABLE domain_table");
       },
       Kind::kList, "SELECT * FROM domain_view WHERE ( LIKE '%x%') LIMIT 100 OFFSET 0;"},
      {"domain_group_view",
       [](auto& f) {
         f.SetQuery("x");
         f.SetOffset(7);
       },
       Kind::kList,
       "SELECT * FROM domain_group_view WHERE (group_name LIKE '%x%' OR group_desc LIKE '%x%') "
       "LIMIT 100 OFFSET 7;"},
      {"domain_user_view", [](auto&) {}, Kind::kList,
       "SELECT * FROM domain_user_view WHERE role IS NOT NULL  LIMIT 100 OFFSET 0;"},
      {"domain_user_view",
       [](auto& f) {
         f.SetDomainIdxs({2, 5});
         f.SetSelect("count(*)");
       },
       Kind::kList,
       "SELECT count(*) FROM domain_user_view WHERE domain_idx IN (2,5) AND role IS NOT NULL ;"},
      {"domain_user_view",
       [](auto& f) {
         f.SetDomainIdxs({-1});
         f.SetQuery("x");
         f.SetQueryType("account_alias");
       },
       Kind::kList,
       "SELECT * FROM domain_user_view WHERE domain_idx IN (-1) AND (account_alias LIKE '%x%') AND "
       "role IS NOT NULL  LIMIT 100 OFFSET 0;"},
      // Known and kept: no " AND " here, the database refuses it.
      {"domain_user_view", [](auto& f) { f.SetQuery("x"); }, Kind::kList,
       "SELECT * FROM domain_user_view WHERE (user_name LIKE '%x%' OR account_alias LIKE "
       "'%x%')role IS NOT NULL  LIMIT 100 OFFSET 0;"},
      {"domain_user_view",
       [](auto& f) {
         f.SetDomainIdxs({2});
         f.SetSortBy("user_name");
         f.SetSortDirection("ASC");
       },
       Kind::kUsers,
       "SELECT * FROM domain_user_view WHERE domain_idx IN (2) AND uid IN (7,4294967295) ORDER BY "
       "is_duplicated DESC, user_name ASC;"},
      {"domain_user_view", [](auto&) {}, Kind::kUsers,
       "SELECT * FROM domain_user_view WHERE  AND uid IN (7,4294967295) ORDER BY is_duplicated "
       "DESC;"},
      {"domain_user_view",
       [](auto& f) {
         f.SetDomainIdxs({2, 3});
         f.SetQuery("x");
         f.SetQueryType("user_name");
         f.SetSortBy("role");
         f.SetSortDirection("DESC");
         f.SetOffset(5);
         f.SetLimit(10);
       },
       Kind::kDistinct,
       "SELECT DISTINCT uid FROM domain_user_view WHERE role IS NOT NULL  AND domain_idx IN (2,3)  "
       "AND (user_name LIKE '%x%') ORDER BY is_duplicated DESC, role DESC LIMIT 10 OFFSET 5;"},
      {"domain_user_view", [](auto& f) { f.SetQuery("x"); }, Kind::kDistinct,
       "SELECT DISTINCT uid FROM domain_user_view WHERE role IS NOT NULL  AND (user_name LIKE "
       "'%x%' OR account_alias LIKE '%x%')  ORDER BY is_duplicated DESC LIMIT 100 OFFSET 0;"},
  };
  for (const auto& c : cases) {
    DomainDBFilter filter(c.table);
    c.set(filter);
    EXPECT_EQ(c.kind == Kind::kList    ? filter.ComposeQueryCmd()
              : c.kind == Kind::kUsers ? filter.ComposeDomainUserListQueryCmd({7, 4294967295U})
                                       : filter.ComposeDistinctUIDQueryCmd(),
              c.want);
  }
}

TEST_F(FilterTest, AccountTables) {
  using MDOMAIN::DB::INTERNAL::ComposeQueryCmd;
  using MDOMAIN::DB::INTERNAL::HasQueryInput;
  UserDBFilter users;
  EXPECT_FALSE(HasQueryInput(users));
  EXPECT_EQ(ComposeQueryCmd(users), "SELECT * FROM user_table LIMIT -1 OFFSET 0;");
  EXPECT_EQ(ComposeQueryCmd(UserDBFilter("count(*)")), "SELECT count(*) FROM user_table;");
  users.SetUIDs({1, 4294967295U});
  EXPECT_TRUE(HasQueryInput(users));
  users.SetUserNames({"alice", "o'brien", "q\"q"});
  EXPECT_EQ(ComposeQueryCmd(users),
            "SELECT * FROM user_table WHERE uid IN (1,4294967295) AND user_name COLLATE NOCASE IN "
            "(\"alice\",\"o''brien\",\"q\"\"q\") LIMIT -1 OFFSET 0;");
  GroupDBFilter groups;
  groups.SetQuery("it's");
  groups.SetGIDs({5});
  groups.SetLimit(3);
  groups.SetOffset(1);
  EXPECT_EQ(ComposeQueryCmd(groups),
            "SELECT * FROM group_table WHERE group_name LIKE '%it''s%' AND gid IN (5) LIMIT 3 "
            "OFFSET 1;");
}

TEST_F(FilterTest, StatementsAreWholeOrNone) {
  using namespace MDOMAIN::DB::INTERNAL;
  EXPECT_EQ(FormatStatement("%q%s", "'", std::string(kStatementSize - 3, 'x').c_str()).size(),
            kStatementSize - 1);
  EXPECT_EQ(FormatStatement("%q%s", "'", std::string(kStatementSize - 2, 'x').c_str()), "");
  // A search text is cut, and its quotes stay in pairs: half a pair would end the literal.
  for (const size_t ahead : {0U, 1U}) {
    const std::string escaped =
        EscapeQuery(std::string(ahead, 'x') + std::string(kStatementSize, '\''));
    EXPECT_LT(escaped.size(), kStatementSize);
    EXPECT_GT(escaped.size(), kStatementSize - 4);
    EXPECT_EQ((escaped.size() - ahead) % 2, 0U);
  }
  EXPECT_EQ(JoinIdsInPieces(std::vector<int>{}), std::vector<std::string>{""});
  const std::vector<unsigned int> ids(250000, 4294967295U);
  const auto pieces = JoinIdsInPieces(ids);
  EXPECT_EQ(pieces.size(), 3U);
  size_t total = pieces.size() - 1;  // the commas between pieces
  for (const std::string& piece : pieces) {
    EXPECT_LT(piece.size(), kStatementSize);
    total += piece.size();
  }
  EXPECT_EQ(total, ids.size() * 11 - 1);
}

}  // namespace
