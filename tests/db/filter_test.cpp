// What the filters compose. The texts are the interface, so they are compared as texts; that the
// database takes them, and what it answers, is tested with the stores.
#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/statement.h"
#include "tests/support/fixture.h"

namespace {

using MDOMAIN::DB::DomainDBFilter;
using MDOMAIN::DB::GroupDBFilter;
using MDOMAIN::DB::UserDBFilter;

using Uids = std::vector<unsigned int>;

class FilterTest : public test::RootTest {};

DomainDBFilter Make(const char* table, const std::vector<int>& domain_idxs,
                    const std::string& query = "", const std::string& query_type = "",
                    const std::string& sort_by = "") {
  DomainDBFilter filter(table);
  filter.SetDomainIdxs(domain_idxs);
  filter.SetQuery(query);
  filter.SetQueryType(query_type);
  filter.SetSortBy(sort_by);
  filter.SetSortDirection("ASC");
  return filter;
}

TEST_F(FilterTest, DomainViews) {
  const std::string users = "SELECT * FROM domain_user_view WHERE ";
  const std::string distinct = "SELECT DISTINCT uid FROM domain_user_view WHERE role IS NOT NULL ";
  DomainDBFilter filter;
  EXPECT_EQ(filter.ComposeQueryCmd(), "SELECT * FROM domain_view LIMIT 100 OFFSET 0;");
  filter.SetLimit(-1);
  filter.SetOffset(7);
  EXPECT_EQ(filter.ComposeQueryCmd(), "SELECT * FROM domain_view LIMIT -1 OFFSET 7;");
  filter.SetSelect("count(*)");
  filter.SetTableName("domain_user_view");
  EXPECT_EQ(filter.ComposeQueryCmd(),
            "SELECT count(*) FROM domain_user_view WHERE role IS NOT NULL ;");
  const std::pair<DomainDBFilter, std::string> lists[] = {
      {Make("domain_view", {}, "o'k", "domain_name"),
       "SELECT * FROM domain_view WHERE (domain_name LIKE '%o''k%')"},
      {Make("domain_view", {2, 5}, "x"),
       "SELECT * FROM domain_view WHERE domain_idx IN (2,5) AND (domain_name LIKE '%x%' OR "
       "domain_desc LIKE '%x%')"},
      {Make("domain_view", {}, "x", "; DROP TABLE domain_table"),
       "SELECT * FROM domain_view WHERE ( LIKE '%x%')"},
      {Make("domain_group_view", {}, "x"),
       "SELECT * FROM domain_group_view WHERE (group_name LIKE '%x%' OR group_desc LIKE '%x%')"},
      {Make("domain_user_view", {-1}, "x", "account_alias"),
       users + "domain_idx IN (-1) AND (account_alias LIKE '%x%') AND role IS NOT NULL "},
      // Known and kept: no " AND " here, the database refuses it.
      {Make("domain_user_view", {}, "x"),
       users + "(user_name LIKE '%x%' OR account_alias LIKE '%x%')role IS NOT NULL "},
  };
  for (auto [list, want] : lists) {
    EXPECT_EQ(list.ComposeQueryCmd(), want + " LIMIT 100 OFFSET 0;");
  }
  const Uids uids = {7, 4294967295U};
  EXPECT_EQ(Make("domain_user_view", {2}, "", "", "user_name").ComposeDomainUserListQueryCmd(uids),
            users +
                "domain_idx IN (2) AND uid IN (7,4294967295) ORDER BY is_duplicated DESC, "
                "user_name ASC;");
  EXPECT_EQ(Make("domain_user_view", {}).ComposeDomainUserListQueryCmd(uids),
            users + " AND uid IN (7,4294967295) ORDER BY is_duplicated DESC;");
  EXPECT_EQ(Make("domain_user_view", {2, 3}, "x", "user_name", "role").ComposeDistinctUIDQueryCmd(),
            distinct +
                " AND domain_idx IN (2,3)  AND (user_name LIKE '%x%') ORDER BY is_duplicated "
                "DESC, role ASC LIMIT 100 OFFSET 0;");
  EXPECT_EQ(Make("domain_user_view", {}, "x").ComposeDistinctUIDQueryCmd(),
            distinct +
                " AND (user_name LIKE '%x%' OR account_alias LIKE '%x%')  ORDER BY "
                "is_duplicated DESC LIMIT 100 OFFSET 0;");
}

TEST_F(FilterTest, AccountTables) {
  using MDOMAIN::DB::INTERNAL::ComposeQueryCmd;
  using MDOMAIN::DB::INTERNAL::HasQueryInput;
  UserDBFilter users;
  EXPECT_FALSE(HasQueryInput(users));
  EXPECT_EQ(ComposeQueryCmd(users), "SELECT * FROM user_table LIMIT -1 OFFSET 0;");
  EXPECT_EQ(ComposeQueryCmd(UserDBFilter("count(*)")), "SELECT count(*) FROM user_table;");
  users.SetUIDs({1});
  EXPECT_TRUE(HasQueryInput(users));
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
