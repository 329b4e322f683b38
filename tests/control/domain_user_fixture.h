// Four people, two groups and two domains, and what is stored of them.
#ifndef TESTS_CONTROL_DOMAIN_USER_FIXTURE_H
#define TESTS_CONTROL_DOMAIN_USER_FIXTURE_H

#include <string>
#include <utility>
#include <vector>

#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/domain_user.h"
#include "tests/control/control_fixture.h"

namespace test {

namespace PATHS = MDOMAIN::PATHS;

using MDOMAIN::CONTROL::DomainGroup;
using MDOMAIN::CONTROL::DomainUser;
namespace RECORD = MDOMAIN::RECORD;
using Aliases = std::vector<RECORD::DomainUserAlias>;
using Users = std::vector<RECORD::DomainUser>;
using Pairs = std::vector<std::pair<std::string, bool>>;

constexpr unsigned int kAlice = 1001;
constexpr unsigned int kBob = 1002;
constexpr unsigned int kCarol = 1003;
constexpr unsigned int kDave = 1004;

class DomainUserControl : public ControlTest {
 protected:
  explicit DomainUserControl(
      const std::string& groups = "staff:x:2001:Bob,carol\nheads:x:2002:carol\n") {
    WriteAccounts(
        "alice:x:1001:100:A:/:/bin/sh\nBob:x:1002:100:B:/:/bin/sh\ncarol:x:1003:100:C:/:/bin/sh\n"
        "dave:x:1004:100:D:/:/bin/sh\nnobody:x:65534:100:N:/:/bin/sh\n",
        groups + "users:x:100:\n");
    Write("/etc/mailserver-domain/host.ini", "");
    for (const char* name : {"one.example", "two.example"}) {
      RECORD::Domain domain(-1, name, "", "<a>", true, false, false);
      int domain_idx = -1;
      EXPECT_TRUE(MDOMAIN::CONTROL::Domain().Create(domain, domain_idx));
    }
    Run("INSERT INTO user_table VALUES(1001,'alice'),(1002,'Bob'),(1003,'carol'),(1004,'dave'),"
        "(65534,'nobody')");
  }

  // Role and aliases for users of domain 1.
  void Add(const StringList& names, Aliases aliases) {
    ASSERT_TRUE(DomainUser().CreateFromUser(1, names));
    ASSERT_TRUE(DomainUser().CreateUsersAliases(aliases));
  }
  void GiveRole(unsigned int uid, const std::string& role) {
    Run("REPLACE INTO domain_user_role_table VALUES(1," + std::to_string(uid) + ",'" + role +
        "',0)");
  }

  // "1 alice a!" is alias a of alice in domain 1, flagged.
  static StringList Stored() {
    return Rows(
        "SELECT domain_idx||' '||user_name||' '||account_alias||iif(is_duplicated,'!','') FROM "
        "domain_user_alias_table NATURAL JOIN user_table ORDER BY domain_idx, uid, account_alias");
  }
  static StringList Roles() {
    return Rows(
        "SELECT domain_idx, user_name, role, is_auto_added FROM domain_user_role_table "
        "NATURAL JOIN user_table ORDER BY domain_idx, uid");
  }
  static StringList Removed() {
    return Rows("SELECT * FROM domain_group_removed_user_table ORDER BY domain_idx, gid, uid");
  }
  // The members of the one alias of the alias table.
  static StringList AliasMembers() {
    Alias alias(PATHS::AliasDb());
    alias.load();
    StringList names;
    for (const Alias::Member& member : alias.list().front().members) {
      names.push_back(member.name);
    }
    return names;
  }
  static void SetAlias(const std::vector<Alias::Member>& members) {
    Alias alias(PATHS::AliasDb());
    alias.load();
    alias.set({"all", 1, members});
  }
  static RECORD::DomainUser User(unsigned int uid, const Pairs& pairs,
                                 const std::string& role = "normal") {
    return RECORD::DomainUser(1, uid, "name", pairs, role);
  }
};

}  // namespace test

#endif  // TESTS_CONTROL_DOMAIN_USER_FIXTURE_H
