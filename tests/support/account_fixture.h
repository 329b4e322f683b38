// The account operations as tests call them: one source in force, its answers as plain values.
#ifndef TESTS_SUPPORT_ACCOUNT_FIXTURE_H
#define TESTS_SUPPORT_ACCOUNT_FIXTURE_H

#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/include/account.h"
#include "platform/include/mail_conf.h"
#include "tests/support/fixture.h"

namespace test {

class AccountTest : public RootTest {
 protected:
  using Uids = std::map<std::string, unsigned int>;
  struct Answer {
    long held = 0;
    std::vector<std::string> names;
    Uids uids;
  };

  // What the script that starts the servers tells of them.
  static std::string Given(const char* variable) {
    const char* value = getenv(variable);
    EXPECT_NE(value, nullptr) << variable << ": this test is started by a script";
    return value == nullptr ? "" : value;
  }

  static void Set(const char* key, const std::string& value) {
    ASSERT_EQ(mailConfSet(key, value, true, 0), 0);
  }

  void UseWindowsDomain(const char* domain) {
    type_ = AUTH_WIN;
    domain_ = domain;
    Set("win_domain_short_name", domain);
    Set("account_type", "win");
  }

  void UseDirectory() {
    type_ = AUTH_LDAP;
    for (const char* password : {"readpw", "wrong"}) {
      const std::string path = std::string("/etc/mailserver-domain/") + password;
      Write(path, std::string(password) + "\n");
      ASSERT_EQ(chmod((root() + path).c_str(), 0600), 0);
    }
    Configure({});
    Set("account_type", "ldap");
  }

  // host.ini with `changes` to a [ldap] section that works.
  void Configure(const std::map<std::string, std::string>& changes) {
    std::map<std::string, std::string> keys = {{"uri", Given("WHOLE_URI")},
                                               {"bind_dn", "cn=reader,dc=example,dc=com"},
                                               {"password_file", "readpw"},
                                               {"user_base", "ou=People,dc=example,dc=com"},
                                               {"group_base", "ou=Groups,dc=example,dc=com"},
                                               {"timeout", "5"}};
    for (const auto& [key, value] : changes) {
      keys[key] = value;
    }
    std::string text = "[ldap]\n";
    for (const auto& [key, value] : keys) {
      text += value.empty() ? "" : key + " = " + value + "\n";
    }
    Write("/etc/mailserver-domain/host.ini", text);
  }

  Answer Users(unsigned int offset = 0, unsigned int limit = 0xFFFFFFFFU) const {
    Answer answer;
    const auto take = [](const char* name, unsigned int uid, void* to) {
      static_cast<Answer*>(to)->names.emplace_back(name);
      static_cast<Answer*>(to)->uids[name] = uid;
      return 0;
    };
    answer.held = KLIBUserInfoEnum(type_, domain_, offset, limit, take, &answer);
    return answer;
  }

  std::vector<std::string> Groups() const {
    PKLIBCSzList list = KLIBCSzListAlloc(1);
    const int count = KLIBGroupEnum(&list, type_, domain_);
    EXPECT_EQ(count, KLIBCSzListCount(list));
    std::vector<std::string> names = list->items;
    KLIBCSzListFree(list);
    return names;
  }

  // The members, or "failed" and the error number.
  static std::vector<std::string> Members(const std::string& group) {
    KLIBCSzList list;
    if (KORVGroupListMember(group.c_str(), &list) != 0) {
      return {"failed " + std::to_string(KLIBCErrGet())};
    }
    return list.items;
  }

  // The account of a name or an id; one without name and id when there is none.
  static KORVUser User(const std::string& name) { return Found(KORVUserGet, name.c_str()); }
  static KORVUser User(unsigned int uid) { return Found(KORVUserGetByUID, uid); }
  static KORVGroup Group(const std::string& name) { return Found(KORVGroupGet, name.c_str()); }
  static KORVGroup Group(unsigned int gid) { return Found(KORVGroupGetByGID, gid); }

  static std::string LastStep() {
    std::vector<korvmailserver::AccountCheckStep> steps;
    const bool ok = korvmailserver::CheckAccountSource(steps);
    EXPECT_EQ(steps.back().ok, ok);
    return steps.back().name + ": " + steps.back().detail;
  }

  AUTH_TYPE type_ = AUTH_LOCAL;
  const char* domain_ = nullptr;

 private:
  static void Free(PKORVUser user) { KORVUserFree(user); }
  static void Free(PKORVGroup group) { KORVGroupFree(group); }

  template <class Record, class Key>
  static Record Found(int (*get)(Key, Record**), Key key) {
    Record* found = nullptr;
    if (get(key, &found) != 0) {
      return {};
    }
    const Record record = *found;
    Free(found);
    return record;
  }
};

}  // namespace test

#endif  // TESTS_SUPPORT_ACCOUNT_FIXTURE_H
