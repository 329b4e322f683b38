// The LDAP source where servers limit, refuse, hang or die; started by ldap_accounts.sh. A part of
// an answer must never look like the whole.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <ldap.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <optional>

#include "platform/include/ldap_search.h"
#include "tests/support/account_fixture.h"

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

int searches = 0;
std::function<void()> before_search;
int code_of_second_page = LDAP_SUCCESS;

// Stops a process, and waits until it has stopped.
void Stop(pid_t process) {
  ASSERT_EQ(kill(process, SIGSTOP), 0);
  std::string state;
  while (state != "T") {
    std::ifstream(("/proc/" + std::to_string(process) + "/stat")) >> state >> state >> state;
  }
}

class LdapAccounts : public test::AccountTest {
 protected:
  void SetUp() override {
    searches = 0;
    before_search = nullptr;
    code_of_second_page = LDAP_SUCCESS;
    UseDirectory();
  }

  // An inspection asks for it. Full names end with it then.
  static void SetAccountDomain() { Set("acc_domain_name", "example.com"); }

  // Only `count` users come, the answer says that there are more, and one line says why.
  void ExpectPart(size_t count, const std::string& why) {
    const Answer users = Users();
    EXPECT_EQ(users.names.size(), count) << why;
    EXPECT_GT(users.held, static_cast<long>(count)) << why;
    EXPECT_TRUE(Logged(why)) << why;
    EXPECT_THAT(TakeLog(), IsEmpty());
  }

  // The enumeration fails and the log says `why` in one line; so does the inspection, at `step`.
  void ExpectRefused(const std::string& step, const std::string& why) {
    EXPECT_LT(Users().held, 0) << why;
    EXPECT_TRUE(Logged(why)) << why;
    EXPECT_THAT(LastStep(), AllOf(HasSubstr(step + ": "), HasSubstr(why)));
    EXPECT_THAT(TakeLog(), IsEmpty()) << why;
  }

  const std::string whole_uri_ = Given("WHOLE_URI");
  const std::string limited_uri_ = Given("LIMITED_URI");
  const std::string whole_ldaps_ = Given("WHOLE_LDAPS");
  const pid_t limited_pid_ = std::stoi(Given("SLAPD_LIMITED_PID"));
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
}

TEST_F(LdapAccounts, AreIncompleteWhenTheServerLimitsTheAnswer) {
  SetAccountDomain();
  for (const char* page_size : {"200", "500", "1000"}) {
    Configure({{"uri", limited_uri_}, {"page_size", page_size}});
    ExpectPart(500, "Size limit exceeded");
  }
  EXPECT_THAT(LastStep(), AllOf(HasSubstr("complete: users: "), HasSubstr("size.prtotal")));
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256")) << "a part would cost memberships";
  EXPECT_TRUE(Logged("members of the group \"staff\" cannot be told"));
  EXPECT_EQ(User("carol").uid, 10003U) << "one look-up is below every limit";
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
    ExpectPart(200, text);
  }
  code_of_second_page = LDAP_SUCCESS;
  Configure({{"user_base", "ou=Elsewhere,dc=example,dc=com"}});
  ExpectPart(1, "refers to another one");
}

TEST_F(LdapAccounts, RefuseWithOneClearLine) {
  EXPECT_EQ(LastStep(), "settings: account_type is ldap, and acc_domain_name is not set");
  SetAccountDomain();
  const char* const cases[][4] = {
      {"bind_dn", "cn=nobody,dc=example,dc=com", "bind", "Invalid credentials (49)"},
      {"password_file", "wrong", "bind", "cannot bind as cn=reader,dc=example,dc=com"},
      {"bind_dn", "", "users", "Insufficient access (50)"},
      {"password_file", "", "settings", "bind_dn needs password_file"},
      {"uri", "ldap://127.0.0.1:1", "connect",
       "cannot connect to ldap://127.0.0.1:1: Can't contact LDAP server (-1)"},
      {"user_base", "ou=Nothing,dc=example,dc=com", "users", "is the base right"},
      {"user_filter", "((uid=*)", "users", "Bad search filter"},
      {"user_base", "", "settings", "uri needs user_base"},
      {"uri", "", "connect", "uri is missing in [ldap]"},
      {"page_size", "0", "settings", "page_size"},
  };
  for (const auto& [key, value, step, why] : cases) {
    Configure({{key, value}});
    ExpectRefused(step, why);
  }
  Configure({{"group_base", "ou=Nothing,dc=example,dc=com"}});
  EXPECT_EQ(Users().held, 1200) << "users do not need groups";
  EXPECT_THAT(LastStep(), HasSubstr("groups: "));
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256"));
  EXPECT_TRUE(Logged("No such object (32)"));
}

TEST_F(LdapAccounts, VerifyTheServersCertificate) {
  SetAccountDomain();
  const std::string ca = Given("TEST_CA");
  const std::string other_name = Given("OTHER_NAME");
  Configure({{"uri", whole_ldaps_}, {"ca_file", ca}});
  EXPECT_EQ(User("alice").uid, 10001U);
  Configure({{"start_tls", "yes"}, {"ca_file", ca}});
  EXPECT_EQ(User("alice").uid, 10001U);
  setenv("LDAPTLS_REQCERT", "never", 1);
  for (const std::string& uri : {whole_ldaps_, other_name, whole_uri_}) {
    Configure({{"uri", uri},
               {"ca_file", uri == other_name ? ca : ""},
               {"start_tls", uri == whole_uri_ ? "yes" : "no"}});
    ExpectRefused("connect", "cannot connect to " + uri);
  }
  unsetenv("LDAPTLS_REQCERT");
  Write("/etc/mailserver-domain/noca.pem", "no certificate");
  Configure({{"uri", whole_ldaps_}, {"ca_file", "noca.pem"}});
  ExpectRefused("connect", "ca_file");
}

TEST_F(LdapAccounts, HaveNamesInUtf8AndInTwoCases) {
  Configure({{"user_base", "ou=Odd,dc=example,dc=com"}});
  EXPECT_THAT(Users().names, UnorderedElementsAre("jörg", "Anna", "anna", "anna2"));
  const Uids uids = {
      {"jörg", 10101},
      {"JÖRG", 10101},
      {"Anna", 10102},  // two people whom letter case tells apart
      {"anna", 10104},
      {"ANNA2", 10103},
      {"second", KORV_UNKNOWN_ID},  // the first value is the name
  };
  std::optional<korvmailserver::AccountSnapshot> snapshot;
  for (const bool in_snapshot : {false, true}) {
    in_snapshot ? static_cast<void>(snapshot.emplace()) : snapshot.reset();
    for (const auto& [name, uid] : uids) {
      EXPECT_EQ(User(name).uid, uid) << name;
    }
  }
}

TEST_F(LdapAccounts, LeaveAGapForAnEntryWithoutANumber) {
  Configure({{"user_base", "ou=Inner,dc=example,dc=com"},
             {"group_base", "ou=Inner,dc=example,dc=com"},
             {"user_id_attr", "employeeNumber"}});
  ExpectPart(1, "has no number as employeeNumber");
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
    EXPECT_EQ(User("carol").uid, 10003U);
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
  EXPECT_EQ(found["alice"], "Sales alice.archer@example.com ") << "the photo is no UTF-8";
  EXPECT_EQ(found["u0042"], "m0042@example.com ");
  EXPECT_EQ(found.count("carol"), 0U);
  KORVLDAPSearchFree(search);
  KORVLDAPHostFree(host);
}

TEST_F(LdapAccounts, ConnectAgainWhenTheServerHasClosedAnIdleSession) {
  Configure({{"uri", limited_uri_}});
  usleep(100000);
  EXPECT_EQ(User("alice").uid, 10001U);
  EXPECT_EQ(User("alice").uid, 10001U);
  EXPECT_EQ(searches, 2);
  sleep(3);
  EXPECT_EQ(User("alice").uid, 10001U);
  EXPECT_EQ(searches, 4) << "the closed session's search failed";
}

TEST_F(LdapAccounts, GiveUpAServerThatHangs) {
  Configure({{"uri", limited_uri_}, {"timeout", "1"}});
  usleep(100000);  // settings that have just been written are read again
  EXPECT_EQ(User("alice").uid, 10001U);
  Stop(limited_pid_);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(Users().held, 0) << "in an open session";
  EXPECT_TRUE(Logged("no answer within 1 seconds"));
  EXPECT_LT(Users().held, 0) << "in a new one";
  EXPECT_TRUE(Logged("cannot bind"));
  Configure({{"uri", limited_uri_}, {"timeout", "1"}, {"start_tls", "yes"}});
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("cannot connect"));
  Configure({{"uri", Given("LIMITED_LDAPS")}, {"timeout", "1"}});
  EXPECT_LT(Users().held, 0) << "before the TLS handshake";
  EXPECT_TRUE(Logged("cannot connect"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  ASSERT_EQ(kill(limited_pid_, SIGCONT), 0);
  Configure({{"uri", limited_uri_}, {"timeout", "5"}});
  EXPECT_EQ(User("alice").uid, 10001U);
}

// Each page came within its own time limit, and a refresh took minutes.
TEST_F(LdapAccounts, AreIncompleteWhenThePagesTogetherTakeTooLong) {
  Configure({{"page_size", "10"}, {"timeout", "1"}});
  before_search = [] { usleep(600000); };
  const Answer users = Users();
  EXPECT_GT(users.held, static_cast<long>(users.names.size()));
  EXPECT_LT(users.names.size(), 100U);
  EXPECT_TRUE(Logged("seconds (timeout in [ldap] of the host settings)"));
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256"));
  EXPECT_TRUE(Logged("the groups are not asked for after the users: "));
  TakeLog();
}

// The last one: it ends the limited server.
TEST_F(LdapAccounts, AreIncompleteWhenTheServerDiesBetweenTwoPages) {
  SetAccountDomain();
  Configure({{"uri", limited_uri_}, {"page_size", "100"}});
  before_search = [&] {
    if (searches == 3) {
      kill(limited_pid_, SIGKILL);
      usleep(100000);  // it is a child of the script: there is no waiting for it
    }
  };
  ExpectPart(200, "Can't contact LDAP server (-1)");
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
