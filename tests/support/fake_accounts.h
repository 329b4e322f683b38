// An account system made of two lists, in place of the platform's: included by the one source of a
// test program. What a test does not set does not exist.
#ifndef TESTS_SUPPORT_FAKE_ACCOUNTS_H
#define TESTS_SUPPORT_FAKE_ACCOUNTS_H

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lib-domain/accounts/account_source.h"
#include "platform/include/account.h"
#include "platform/include/mail_conf.h"
#include "platform/include/string_list.h"
#include "tests/support/fixture.h"

namespace test {

struct FakeAccounts {
  std::map<std::string, std::string> configuration;
  std::set<std::string> unreadable_keys;
  std::vector<KORVUser> users;
  long user_count = -2;                       // -2: as many as there are
  std::vector<std::string> announced_groups;  // empty: the names of `groups`
  std::vector<KORVGroup> groups;
  std::map<std::string, std::vector<std::string>> members;
  std::map<std::string, std::string> real_names;  // empty: every user and group as it is
  int error = 0;                                  // of KLIBCErrGet
  std::string asked_domain;                       // what the last enumeration was given
  std::function<void()> on_user_get;              // runs inside KORVUserGet
};

inline FakeAccounts& Fake() {
  static FakeAccounts fake;
  return fake;
}

// Begins with an empty account system and local accounts in force.
class AccountsTest : public RootTest {
 protected:
  AccountsTest() {
    Fake() = {};
    UseSource("local");
  }
  static void UseSource(const std::string& type) {
    Fake().configuration = {
        {"account_type", type}, {"win_domain_short_name", "DOM"}, {"acc_domain_name", "dc"}};
    MDOMAIN::UTILS::INTERNAL::ResetAccountConfigurationForTest();
  }
};

}  // namespace test

int mailConfGet(const std::string& key, std::string& value) {
  if (test::Fake().unreadable_keys.count(key) != 0) {
    return -1;
  }
  value = test::Fake().configuration[key];
  return 0;
}

int KLIBCErrGet() {
  return test::Fake().error;
}

long KLIBUserInfoEnum(AUTH_TYPE /*type*/, const char* domain, unsigned int /*offset*/,
                      unsigned int /*limit*/, KLIBUserInfoCallback callback, void* context) {
  test::Fake().asked_domain = domain == nullptr ? "(null)" : domain;
  for (const KORVUser& user : test::Fake().users) {
    if (callback(user.name.c_str(), user.uid, context) != 0) {
      break;
    }
  }
  const long count = test::Fake().user_count;
  return count == -2 ? static_cast<long>(test::Fake().users.size()) : count;
}

int KORVUserGetUGID(const char* /*name*/, uid_t* /*uid*/, gid_t* /*gid*/) {
  return -1;
}

int KLIBGroupEnum(PKLIBCSzList* list, AUTH_TYPE /*type*/, const char* domain) {
  test::Fake().asked_domain = domain == nullptr ? "(null)" : domain;
  for (const std::string& name : test::Fake().announced_groups) {
    KLIBCSzListPush(list, name.c_str());
  }
  if (test::Fake().announced_groups.empty()) {
    for (const KORVGroup& group : test::Fake().groups) {
      KLIBCSzListPush(list, group.name.c_str());
    }
  }
  return KLIBCSzListCount(*list);
}

int KORVUserGet(const char* name, PKORVUser* user) {
  if (test::Fake().on_user_get) {
    test::Fake().on_user_get();
  }
  for (const KORVUser& known : test::Fake().users) {
    if (known.name == name) {
      *user = new KORVUser(known);
      return 0;
    }
  }
  return -1;
}
void KORVUserFree(PKORVUser user) {
  delete user;
}

int KORVGroupGet(const char* name, PKORVGroup* group) {
  for (const KORVGroup& known : test::Fake().groups) {
    if (known.name == name) {
      *group = new KORVGroup(known);
      return 0;
    }
  }
  return -1;
}
void KORVGroupFree(PKORVGroup group) {
  delete group;
}

int KORVGroupDescGet(const char* name, std::string& description) {
  if (std::strcmp(name, "undescribed") == 0) {
    return -1;
  }
  description = std::string("about ") + name;
  return 0;
}

int KORVGroupListMember(const char* name, PKLIBCSzList list) {
  const auto members = test::Fake().members.find(name);
  if (members == test::Fake().members.end()) {
    return -1;
  }
  for (const std::string& member : members->second) {
    KLIBCSzListPush(&list, member.c_str());
  }
  return 0;
}

bool korvmailserver::ListMemberUsers(AUTH_TYPE /*type*/, const std::vector<std::string>& /*groups*/,
                                     std::vector<KORVUser>& /*users*/) {
  return false;  // only KLIBUserInfoEnum tells
}

bool korvmailserver::ForEachPlainGroup(const std::vector<std::string>& /*groups*/,
                                       const PlainGroupVisitor& /*use*/) {
  return false;  // only KORVGroupListMember tells
}

namespace test {

inline int FakeRealName(const char* name, char* buffer, size_t size) {
  const auto& names = Fake().real_names;
  const auto found = names.find(name);
  if (!names.empty() && found == names.end()) {
    return -1;
  }
  std::snprintf(buffer, size, "%s", names.empty() ? name : found->second.c_str());
  return 0;
}

}  // namespace test

int KLIBUserRealNameGet(const char* name, char* buffer, size_t size) {
  return test::FakeRealName(name, buffer, size);
}
int KLIBGroupRealNameGet(const char* name, char* buffer, size_t size) {
  return test::FakeRealName(name, buffer, size);
}

int KORVLDAPCatName(char* buffer, size_t size, const char* domain, const char* name) {
  const int written = std::snprintf(buffer, size, "%s@%s", name, domain);
  return written >= 0 && static_cast<size_t>(written) < size ? 0 : -1;
}

std::string TrimDomainName(const std::string& name) {
  const size_t backslash = name.find('\\');
  return backslash != std::string::npos ? name.substr(backslash + 1)
                                        : name.substr(0, name.find('@'));
}

#endif  // TESTS_SUPPORT_FAKE_ACCOUNTS_H
