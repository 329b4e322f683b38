// What the tests of synchronisation and of the facade share: a small company's accounts, domains in
// the database, and more platform calls that fail on demand. Include it in one source of a program.
#ifndef TESTS_SUPPORT_SYNC_FIXTURE_H
#define TESTS_SUPPORT_SYNC_FIXTURE_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/updater.h"
#include "platform/include/mail_conf_change.h"
#include "tests/control/control_fixture.h"

int mailConfChange(const std::vector<std::pair<std::string, std::string>>& entries,
                   const std::vector<std::string>& removed_keys) {
  using Function = int (*)(const std::vector<std::pair<std::string, std::string>>&,
                           const std::vector<std::string>&);
  static const auto real = test::Real<Function>(
      "_Z14mailConfChangeRKSt6vectorISt4pairINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES"
      "6_ESaIS7_EERKS_IS6_SaIS6_EE");
  // Several at once only: a single value is mailConfSet's.
  return entries.size() > 1 && test::Fails("mailConfChange") ? -1 : real(entries, removed_keys);
}

bool KORV::POSTARA_SERVER::KORVMailNodeCluster::isClusterHealth(int level) {
  static const auto real =
      test::Real<bool (*)(int)>("_ZN4KORV14POSTARA_SERVER19KORVMailNodeCluster15isClusterHealthEi");
  return !test::Fails("isClusterHealth") && real(level);
}

bool KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::setFile(const std::string& key,
                                                             const std::string& path) {
  using Function = bool (*)(const std::string&, const std::string&);
  static const auto real = test::Real<Function>(
      "_ZN4KORV14POSTARA_SERVER24PostaraServerBACKENDWrap7setFileE" TEST_TEXT_SYMBOL "S9_");
  return !test::Fails("setFile", key) && real(key, path);
}

bool KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls(
    const std::string& tree, const std::function<bool(const std::string& key)>& is_wanted,
    std::vector<std::string>& keys) {
  using Function = bool (*)(const std::string&, const std::function<bool(const std::string&)>&,
                            std::vector<std::string>&);
  static const auto real =
      test::Real<Function>("_ZN4KORV14POSTARA_SERVER24PostaraServerBACKENDWrap2lsE" TEST_TEXT_SYMBOL
                           "RKSt8functionIFbS9_EERSt6vectorIS7_SaIS7_EE");
  return !test::Fails("ls", tree) && real(tree, is_wanted, keys);
}

bool KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::removeKey(const std::string& key) {
  static const auto real = test::Real<bool (*)(const std::string&)>(
      "_ZN4KORV14POSTARA_SERVER24PostaraServerBACKENDWrap9removeKeyE" TEST_TEXT_SYMBOL);
  return !test::Fails("removeKey", key) && real(key);
}

// As if the source had cut its answer short.
int KLIBGroupEnum(PKLIBCSzList* list, AUTH_TYPE type, const char* domain) {
  using Function = int (*)(PKLIBCSzList*, AUTH_TYPE, const char*);
  static const auto real = test::Real<Function>("_Z13KLIBGroupEnumPP11KLIBCSzList9AUTH_TYPEPKc");
  const int count = real(list, type, domain);
  return test::Fails("KLIBGroupEnum") ? KLIBCSzListPush(list, "announced") : count;
}

long KLIBUserInfoEnum(AUTH_TYPE type, const char* domain, unsigned int offset, unsigned int limit,
                      KLIBUserInfoCallback callback, void* context) {
  using Function =
      long (*)(AUTH_TYPE, const char*, unsigned int, unsigned int, KLIBUserInfoCallback, void*);
  static const auto real = test::Real<Function>("_Z16KLIBUserInfoEnum9AUTH_TYPEPKcjjPFiS1_jPvES2_");
  const long count = real(type, domain, offset, limit, callback, context);
  return test::Fails("KLIBUserInfoEnum") ? count + 1 : count;
}

namespace test {

class SyncTest : public ControlTest {
 protected:
  using Accounts = std::vector<std::pair<std::string, int>>;
  using Groups = std::vector<std::pair<std::string, std::string>>;  // "name:gid", "member,member"

  SyncTest() { SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}}); }

  void SetAccounts(const Accounts& users, const Groups& groups = {{"staff:2001", "alice,bob"}}) {
    std::string passwd;
    for (const auto& [name, uid] : users) {
      passwd += name + ":x:" + std::to_string(uid) + ":1500::/home:/bin/false\n";
    }
    std::string group;
    for (const auto& [head, members] : groups) {
      const size_t colon = head.find(':');
      group += head.substr(0, colon) + ":x:" + head.substr(colon + 1) + ":" + members + "\n";
    }
    WriteAccounts(passwd, group);
  }

  static int CreateDomain(const std::string& name, bool auto_adding,
                          const std::string& pattern = "<a>") {
    MDOMAIN::RECORD::Domain record(-1, name, "", pattern, auto_adding, false, false);
    int domain_idx = -1;
    EXPECT_TRUE(MDOMAIN::API::Domain().Create(record, domain_idx));
    return domain_idx;
  }

  // "name role alias" of every user of a domain who has a role, by name.
  static StringList Members(int domain_idx) {
    return Rows(
        "SELECT user_name || ' ' || role || ' ' || account_alias FROM domain_user_view "
        "WHERE role IS NOT NULL AND domain_idx = " +
        std::to_string(domain_idx) + " ORDER BY user_name");
  }
};

}  // namespace test

#endif  // TESTS_SUPPORT_SYNC_FIXTURE_H
