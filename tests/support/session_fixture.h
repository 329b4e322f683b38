// Two domains and a session, in a process that has used the described classes before.
#ifndef TESTS_SUPPORT_SESSION_FIXTURE_H
#define TESTS_SUPPORT_SESSION_FIXTURE_H
#include <string>

#include "lib-domain/api/bcc.h"
#include "lib-domain/session/mdomain.hpp"
#include "tests/support/sync_fixture.h"

namespace test {

using mdomain::Copy;
using mdomain::Error;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using mdomain::User;

constexpr unsigned int kAlice = 1001;
constexpr unsigned int kBob = 1002;
constexpr unsigned int kCarol = 1003;
constexpr unsigned int kStaff = 2001;

// Domains 1 (a.example, everybody) and 2 (b.example, alice its administrator, and bob). The process
// has used the described classes, and has every database open, before its first session.
class SessionTest : public SyncTest {
 protected:
  SessionTest() {
    MDOMAIN::RECORD::Domain first("a.example");
    int idx = 0;
    EXPECT_TRUE(MDOMAIN::API::Domain().Create(first, idx));
    EXPECT_EQ(BCC::getInstance(1)->setBCC(1, {{"x", BCC_SENDER, "y"}}), 0);
    EXPECT_EQ(BCC::getInstance(1)->deleteAllBCC(1), 0);
    session_ = Session({1, "tester"});
  }

  void SetUp() override {
    SyncTest::SetUp();
    ASSERT_TRUE(session_.CreateDomain({"b.example", "", "<a>", false}));
    ASSERT_TRUE(session_.Refresh());
    ASSERT_TRUE(session_.AddMembers(2, {{kAlice, kBob}, {}}));
    ASSERT_TRUE(session_.SetUser(2, kAlice, {Role::kDomainAdmin, {}, {}, {}}));
  }

  // Everything that a change could have changed.
  static StringList Model() {
    return Rows(
        "SELECT domain_name || ' ' || domain_desc FROM domain_table"
        " UNION ALL SELECT domain_idx || ' ' || uid || ' ' || account_alias || is_duplicated"
        " FROM domain_user_alias_table"
        " UNION ALL SELECT domain_idx || ' ' || uid || ' ' || role FROM domain_user_role_table"
        " UNION ALL SELECT domain_idx || ' ' || gid || ' ' || role FROM domain_group_role_table"
        " ORDER BY 1");
  }

  template <typename T>
  static Reason ReasonOf(const mdomain::Result<T>& result) {
    EXPECT_FALSE(result);
    EXPECT_NE(result.GetError().text, "");
    return result.GetError().reason;
  }

  Session session_;
};

}  // namespace test

#endif  // TESTS_SUPPORT_SESSION_FIXTURE_H
