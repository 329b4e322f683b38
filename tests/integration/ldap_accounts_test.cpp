// The LDAP source where servers limit, refuse, hang or die; started by ldap_accounts.sh. A part of
// an answer must never look like the whole.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <ldap.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>

#include "platform/include/account.h"
#include "platform/include/ldap_search.h"
#include "platform/include/mail_conf.h"
#include "tests/support/fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

int searches = 0;
std::function<void()> before_search;
int code_of_second_page = LDAP_SUCCESS;

std::string Env(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

// Stops a process, and waits until it has stopped.
void Stop(pid_t process) {
  ASSERT_EQ(kill(process, SIGSTOP), 0);
  std::string state;
  while (state != "T") {
    std::ifstream(("/proc/" + std::to_string(process) + "/stat")) >> state >> state >> state;
  }
}

class LdapAccounts : public test::RootTest {
 protected:
  void SetUp() override {
    searches = 0;
    before_search = nullptr;
    code_of_second_page = LDAP_SUCCESS;
    Write("/etc/mailserver-domain/reader", "readpw\n");
    Configure({});
    ASSERT_EQ(mailConfSet("account_type", "ldap", true, 0), 0);
  }

  // host.ini with `changes` to a [ldap] section that works.
  void Configure(std::map<std::string, std::string> changes) {
    std::map<std::string, std::string> keys = {{"uri", Env("WHOLE_URI")},
                                               {"bind_dn", "cn=reader,dc=example,dc=com"},
                                               {"password_file", "reader"},
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
    chmod((root() + "/etc/mailserver-domain/reader").c_str(), 0600);
  }

  // An inspection asks for it. Full names end with it then.
  static void SetAccountDomain() {
    EXPECT_EQ(mailConfSet("acc_domain_name", "example.com", true, 0), 0);
  }

  struct Answer {
    long held = 0;
    std::vector<std::string> names;
  };

  static Answer Users() {
    Answer answer;
    answer.held = KLIBUserInfoEnum(
        AUTH_LDAP, nullptr, 0, 0xFFFFFFFFU,
        [](const char* name, unsigned int, void* names) {
          static_cast<std::vector<std::string>*>(names)->emplace_back(name);
          return 0;
        },
        &answer.names);
    return answer;
  }

  static unsigned int Uid(const char* name) {
    uid_t uid = KORV_UNKNOWN_ID;
    KORVUserGetUGID(name, &uid, nullptr);
    return uid;
  }

  static std::vector<std::string> Members(const char* group) {
    KLIBCSzList list;
    if (KORVGroupListMember(group, &list) != 0) {
      return {"failed " + std::to_string(KLIBCErrGet())};
    }
    return list.items;
  }

  static std::string LastStep() {
    std::vector<korvmailserver::AccountCheckStep> steps;
    korvmailserver::CheckAccountSource(steps);
    return steps.back().name + ": " + steps.back().detail;
  }

  // The enumeration fails, and the log says `why`.
  void ExpectRefused(const char* step, const std::string& why) {
    EXPECT_LT(Users().held, 0) << why;
    EXPECT_TRUE(Logged(why)) << why;
    EXPECT_THAT(LastStep(), testing::AllOf(HasSubstr(std::string(step) + ": "), HasSubstr(why)));
    EXPECT_THAT(step != std::string("settings") ? TakeLog() : std::vector<test::LogLine>(),
                IsEmpty());
  }
};

TEST_F(LdapAccounts, ComeWholeOverPages) {
  SetAccountDomain();
  for (const char* page_size : {"7", "200", "1000"}) {
    Configure({{"page_size", page_size}});
    const Answer users = Users();
    EXPECT_EQ(users.held, 1200);
    EXPECT_EQ(users.names.size(), 1200U);
  }
  EXPECT_EQ(LastStep(), "complete: yes");
  Configure({{"uri", Env("LIMITED_URI")}, {"user_filter", "(uid=u00*)"}});
  EXPECT_EQ(Users().held, 99) << "below the limit";
}

TEST_F(LdapAccounts, AreIncompleteWhenTheServerLimitsTheAnswer) {
  SetAccountDomain();
  for (const char* page_size : {"200", "500", "1000"}) {
    Configure({{"uri", Env("LIMITED_URI")}, {"page_size", page_size}});
    const Answer users = Users();
    EXPECT_EQ(users.names.size(), 500U);
    EXPECT_GT(users.held, 500);
    EXPECT_TRUE(Logged("Size limit exceeded"));
    EXPECT_THAT(TakeLog(), IsEmpty()) << "one line says why";
  }
  EXPECT_THAT(LastStep(),
              testing::AllOf(HasSubstr("complete: users: "), HasSubstr("size.prtotal")));
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256")) << "a part would cost memberships";
  EXPECT_TRUE(Logged("members of the group \"staff\" cannot be told"));
  EXPECT_EQ(Uid("carol"), 10003U) << "one look-up is below every limit";
}

TEST_F(LdapAccounts, AreIncompleteWhateverEndsTheAnswerEarly) {
  const std::pair<int, const char*> codes[] = {
      {LDAP_TIMELIMIT_EXCEEDED, "time limit"},
      {LDAP_ADMINLIMIT_EXCEEDED, "size.pr"},
      {LDAP_REFERRAL, "referrals are not followed"},
      {LDAP_UNWILLING_TO_PERFORM, "Server is unwilling to perform (53)"},  // a refused page cookie
      {LDAP_BUSY, "Server is busy (51)"},
      {LDAP_OTHER, "(80)"}};
  for (const auto& [code, text] : codes) {
    Configure({{"page_size", "100"}});
    searches = 0;
    code_of_second_page = code;
    const Answer users = Users();
    EXPECT_EQ(users.names.size(), 200U) << text;
    EXPECT_GT(users.held, 200) << text;
    EXPECT_TRUE(Logged(text)) << text;
  }
  code_of_second_page = LDAP_SUCCESS;
  Configure({{"user_base", "ou=Elsewhere,dc=example,dc=com"}});
  const Answer users = Users();
  EXPECT_THAT(users.names, ElementsAre("here"));
  EXPECT_GT(users.held, 1) << "a branch that another server holds";
  EXPECT_TRUE(Logged("refers to another one"));
}

TEST_F(LdapAccounts, RefuseWithOneClearLine) {
  std::vector<korvmailserver::AccountCheckStep> steps;
  EXPECT_FALSE(korvmailserver::CheckAccountSource(steps));
  EXPECT_EQ(steps.back().detail, "account_type is ldap, and acc_domain_name is not set");
  SetAccountDomain();
  Configure({{"bind_dn", "cn=nobody,dc=example,dc=com"}});
  ExpectRefused("bind", "Invalid credentials (49)");
  Write("/etc/mailserver-domain/reader", "wrong\n");
  Configure({});
  ExpectRefused("bind", "cannot bind as cn=reader,dc=example,dc=com");
  Write("/etc/mailserver-domain/reader", "readpw\n");
  Configure({{"bind_dn", ""}});
  EXPECT_LT(Users().held, 0) << "strangers see nothing";
  EXPECT_TRUE(Logged("Insufficient access (50)"));
  Configure({{"password_file", ""}});
  ExpectRefused("settings", "bind_dn needs password_file");
  Configure({{"uri", "ldap://127.0.0.1:1"}});
  ExpectRefused("connect", "cannot connect to ldap://127.0.0.1:1: Can't contact LDAP server (-1)");
  Configure({{"user_base", "ou=Nothing,dc=example,dc=com"}});
  ExpectRefused("users", "is the base right");
  Configure({{"user_filter", "((uid=*)"}});
  ExpectRefused("users", "Bad search filter");
  Configure({{"user_base", ""}});
  ExpectRefused("settings", "uri needs user_base");
  Configure({{"uri", ""}});
  ExpectRefused("connect", "uri is missing in [ldap]");
  Configure({{"page_size", "0"}});
  ExpectRefused("settings", "page_size");
  Configure({{"group_base", "ou=Nothing,dc=example,dc=com"}});
  EXPECT_EQ(Users().held, 1200) << "users do not need groups";
  EXPECT_THAT(LastStep(), HasSubstr("groups: "));
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256"));
  EXPECT_TRUE(Logged("No such object (32)"));
}

TEST_F(LdapAccounts, VerifyTheServersCertificate) {
  SetAccountDomain();
  Configure({{"uri", Env("WHOLE_LDAPS")}, {"ca_file", Env("TEST_CA")}});
  EXPECT_EQ(Uid("alice"), 10001U);
  Configure({{"start_tls", "yes"}, {"ca_file", Env("TEST_CA")}});
  EXPECT_EQ(Uid("alice"), 10001U);
  setenv("LDAPTLS_REQCERT", "never", 1);
  for (const std::string& uri : {Env("WHOLE_LDAPS"), Env("OTHER_NAME"), Env("WHOLE_URI")}) {
    const std::string ca = uri == Env("OTHER_NAME") ? Env("TEST_CA") : "";
    Configure(
        {{"uri", uri}, {"ca_file", ca}, {"start_tls", uri == Env("WHOLE_URI") ? "yes" : "no"}});
    ExpectRefused("connect", "cannot connect to " + uri);
  }
  unsetenv("LDAPTLS_REQCERT");
  Write("/etc/mailserver-domain/noca.pem", "no certificate");
  Configure({{"uri", Env("WHOLE_LDAPS")}, {"ca_file", "noca.pem"}});
  ExpectRefused("connect", "ca_file");
}

TEST_F(LdapAccounts, HaveNamesInUtf8AndInTwoCases) {
  Configure({{"user_base", "ou=Odd,dc=example,dc=com"}});
  EXPECT_THAT(Users().names, UnorderedElementsAre("jörg", "Anna", "anna", "anna2"));
  for (int pass = 0; pass < 2; pass++) {
    EXPECT_EQ(Uid("jörg"), 10101U);
    EXPECT_EQ(Uid("JÖRG"), 10101U);
    EXPECT_EQ(Uid("Anna"), 10102U) << "two people whom letter case tells apart";
    EXPECT_EQ(Uid("anna"), 10104U);
    EXPECT_EQ(Uid("ANNA2"), 10103U);
    EXPECT_EQ(Uid("second"), KORV_UNKNOWN_ID) << "the first value is the name";
    static korvmailserver::AccountSnapshot* snapshot = nullptr;
    pass == 0 ? static_cast<void>(snapshot = new korvmailserver::AccountSnapshot())
              : delete snapshot;
  }
}

TEST_F(LdapAccounts, LeaveAGapForAnEntryWithoutANumber) {
  Configure({{"user_base", "ou=Inner,dc=example,dc=com"},
             {"group_base", "ou=Inner,dc=example,dc=com"},
             {"user_id_attr", "employeeNumber"}});
  const Answer users = Users();
  EXPECT_THAT(users.names, ElementsAre("x"));
  EXPECT_EQ(users.held, 3);
  EXPECT_TRUE(Logged("has no number as employeeNumber"));
  EXPECT_THAT(Members("writers"), ElementsAre("x"));
  EXPECT_THAT(Members("readers"), ElementsAre("failed 256")) << "y is named and has no number";
  EXPECT_TRUE(Logged("members of the group \"readers\" cannot be told"));
}

TEST_F(LdapAccounts, AreReadOnceInASnapshot) {
  korvmailserver::AccountSnapshot snapshot;
  for (int i = 0; i < 10; i++) {
    EXPECT_EQ(Users().held, 1200);
    EXPECT_THAT(Members("staff"), UnorderedElementsAre("alice", "bob"));
    EXPECT_EQ(Members("all").size(), 1198U);
    EXPECT_EQ(Uid("carol"), 10003U);
  }
  EXPECT_EQ(searches, 3 + 1) << "three pages of users, one of groups";
}

TEST_F(LdapAccounts, AreSearchedForAttributes) {
  KORVLDAPHost* host = nullptr;
  ASSERT_EQ(KORVLDAPHostInitByBindConfig(&host), 0);
  KORVLDAPSearchOption* option = KORVLDAPSearchOptionAlloc();
  ASSERT_EQ(KORVLDAPSearchOptionGet(option), 0);
  KLIBCSzList names;
  names.items = {"uid", "Department", "mail", "jpegPhoto", "--option", "sn)(uid=*", ""};
  KORVLDAPSearchRequest* request = nullptr;
  ASSERT_EQ(KORVLDAPSearchRequestInit(&request, option, &names), 0);
  KORVLDAPSearchOptionFree(option);
  KORVLDAPSearch* search = nullptr;
  ASSERT_EQ(KORVLDAPSearchInit(&search, host, request), 0);
  KORVLDAPSearchRequestFree(request);
  const KORVLDAPEntry* entry = nullptr;
  std::map<std::string, std::string> found;
  int state = 0;
  while ((state = KORVLDAPSearchGetNext(search, &entry)) > 0) {
    std::string name;
    ASSERT_EQ(KORVLDAPResultGetFirst(entry, "uid", name), 0);
    for (const char* attribute : {"department", "mail", "jpegPhoto", "--option", "sn"}) {
      std::string value;
      if (KORVLDAPResultGetFirst(entry, attribute, value) == 0) {
        found[name] += value + " ";
      }
    }
  }
  EXPECT_EQ(state, 0);
  EXPECT_EQ(found["alice"], "Sales alice@example.com ") << "the photo is no UTF-8";
  EXPECT_EQ(found["u0042"], "u0042@example.com ");
  EXPECT_EQ(found.count("carol"), 0U);
  KORVLDAPSearchFree(search);
  KORVLDAPHostFree(host);
}

TEST_F(LdapAccounts, ConnectAgainWhenTheServerHasClosedAnIdleSession) {
  Configure({{"uri", Env("LIMITED_URI")}});
  usleep(100000);
  EXPECT_EQ(Uid("alice"), 10001U);
  EXPECT_EQ(Uid("alice"), 10001U);
  EXPECT_EQ(searches, 2);
  sleep(3);
  EXPECT_EQ(Uid("alice"), 10001U);
  EXPECT_EQ(searches, 4) << "the closed session's search failed";
}

TEST_F(LdapAccounts, GiveUpAServerThatHangs) {
  Configure({{"uri", Env("LIMITED_URI")}, {"timeout", "1"}});
  usleep(100000);  // settings that have just been written are read again
  EXPECT_EQ(Uid("alice"), 10001U);
  const pid_t server = std::stoi(Env("SLAPD_LIMITED_PID"));
  Stop(server);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(Users().held, 0) << "in an open session";
  EXPECT_TRUE(Logged("no answer within 1 seconds"));
  EXPECT_LT(Users().held, 0) << "in a new one";
  EXPECT_TRUE(Logged("cannot bind"));
  Configure({{"uri", Env("LIMITED_URI")}, {"timeout", "1"}, {"start_tls", "yes"}});
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("cannot connect"));
  Configure({{"uri", Env("LIMITED_LDAPS")}, {"timeout", "1"}});
  EXPECT_LT(Users().held, 0) << "before the TLS handshake";
  EXPECT_TRUE(Logged("cannot connect"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
  ASSERT_EQ(kill(server, SIGCONT), 0);
  Configure({{"uri", Env("LIMITED_URI")}, {"timeout", "5"}});
  EXPECT_EQ(Uid("alice"), 10001U);
}

// The last one: it ends the limited server.
TEST_F(LdapAccounts, AreIncompleteWhenTheServerDiesBetweenTwoPages) {
  SetAccountDomain();
  Configure({{"uri", Env("LIMITED_URI")}, {"page_size", "100"}});
  const pid_t server = std::stoi(Env("SLAPD_LIMITED_PID"));
  before_search = [&] {
    if (searches == 3) {
      kill(server, SIGKILL);
      usleep(100000);  // it is a child of the script: there is no waiting for it
    }
  };
  const Answer users = Users();
  EXPECT_EQ(users.names.size(), 200U);
  EXPECT_GT(users.held, 200);
  EXPECT_TRUE(Logged("Can't contact LDAP server (-1)"));
  ExpectRefused("connect", "cannot connect");
}

}  // namespace

// Counts the searches that go out, and lets a test act before one.
int ldap_search_ext(LDAP* ld, const char* base, int scope, const char* filter, char** attributes,
                    int types_only, LDAPControl** controls, LDAPControl** client, timeval* timeout,
                    int size_limit, int* id) {
  searches++;
  if (before_search) {
    before_search();
  }
  static const auto real =
      reinterpret_cast<decltype(&ldap_search_ext)>(dlsym(RTLD_NEXT, "ldap_search_ext"));
  return real(ld, base, scope, filter, attributes, types_only, controls, client, timeout,
              size_limit, id);
}

// Gives the second page the code that the test wants.
int ldap_parse_result(LDAP* ld, LDAPMessage* result, int* code, char** matched, char** message,
                      char*** referrals, LDAPControl*** controls, int free_it) {
  static const auto real =
      reinterpret_cast<decltype(&ldap_parse_result)>(dlsym(RTLD_NEXT, "ldap_parse_result"));
  const int parsed = real(ld, result, code, matched, message, referrals, controls, free_it);
  if (searches == 2 && code_of_second_page != LDAP_SUCCESS) {
    *code = code_of_second_page;
  }
  return parsed;
}
