// Patterns against the three account sources, all of them made of lists.
#include "lib-domain/utils/default_alias_getter.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/account_source_internal.h"
#include "platform/include/ldap_search.h"
#include "platform/include/process.h"
#include "tests/support/fake_accounts.h"
#include "tests/support/fixture.h"

struct KORVLDAPHost {};
struct KORVLDAPSearchOption {};
struct KORVLDAPSearchRequest {};
struct KORVLDAPSearch {
  size_t next = 0;
};
struct KORVLDAPEntry {
  std::map<std::string, std::string> values;
};

namespace {

using namespace MDOMAIN::UTILS;
using test::Fake;

using Aliases = std::map<std::string, std::string>;

struct FakeDirectory {
  std::vector<KORVLDAPEntry> entries;
  std::vector<std::vector<std::string>> asked;  // attributes of every search
  std::string broken;                           // the step that fails
  int end = 0;                                  // what follows the last entry
  std::string net_output;
  int net_status = 0;
  std::vector<std::string> net_arguments;
  std::vector<std::string> trace;  // lines of the system log
};

FakeDirectory& Directory() {
  static FakeDirectory directory;
  return directory;
}

// Makes what a step gives, unless it is the one that fails.
template <typename T>
int Make(const char* step, T** made) {
  if (Directory().broken == step) {
    return -1;
  }
  *made = new T;
  return 0;
}

}  // namespace

int KORVLDAPHostInitByBindConfig(KORVLDAPHost** host) {
  return Make("host", host);
}
void KORVLDAPHostFree(KORVLDAPHost* host) {
  delete host;
}
KORVLDAPSearchOption* KORVLDAPSearchOptionAlloc() {
  KORVLDAPSearchOption* option = nullptr;
  Make("alloc", &option);
  return option;
}
int KORVLDAPSearchOptionGet(KORVLDAPSearchOption* /*option*/) {
  return Directory().broken == "option" ? -1 : 0;
}
void KORVLDAPSearchOptionFree(KORVLDAPSearchOption* option) {
  delete option;
}
int KORVLDAPSearchRequestInit(KORVLDAPSearchRequest** request,
                              const KORVLDAPSearchOption* /*option*/,
                              const KLIBCSzList* attributes) {
  Directory().asked.push_back(attributes->items);
  return Make("request", request);
}
void KORVLDAPSearchRequestFree(KORVLDAPSearchRequest* request) {
  delete request;
}
int KORVLDAPSearchInit(KORVLDAPSearch** search, KORVLDAPHost* /*host*/,
                       const KORVLDAPSearchRequest* /*request*/) {
  return Make("search", search);
}
int KORVLDAPSearchGetNext(KORVLDAPSearch* search, const KORVLDAPEntry** entry) {
  if (search->next == Directory().entries.size()) {
    return Directory().end;
  }
  *entry = &Directory().entries[search->next++];
  return 1;
}
int KORVLDAPResultGetFirst(const KORVLDAPEntry* entry, const char* attribute, std::string& value) {
  const auto found = entry->values.find(attribute);
  if (found == entry->values.end()) {
    return -1;
  }
  value = found->second;
  return 0;
}
void KORVLDAPSearchFree(KORVLDAPSearch* search) {
  delete search;
}

FILE* KLIBCPopenv(const char* path, const char* /*mode*/, const char* const argv[]) {
  Directory().net_arguments = {path};
  for (size_t i = 1; argv[i] != nullptr; ++i) {
    Directory().net_arguments.emplace_back(argv[i]);
  }
  if (Directory().broken == "popen") {
    return nullptr;
  }
  FILE* stream = tmpfile();
  fputs(Directory().net_output.c_str(), stream);
  rewind(stream);
  return stream;
}
int KLIBCPclose(FILE* stream) {
  fclose(stream);
  return Directory().net_status;
}
int KLIBCPopenSetDeadline(int /*seconds*/) {
  return 0;
}
std::string KLIBCPopenErrorText() {
  return "no logon servers";
}

extern "C" void syslog(int priority, const char* format, ...) {
  std::array<char, 512> line{};
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  Directory().trace.push_back(std::to_string(priority) + " " + line.data());
}

namespace {

class DefaultAliasGetterTest : public test::RootTest {
 protected:
  DefaultAliasGetterTest() {
    Fake() = {};
    Directory() = {};
    UseSource("local");
  }
  void UseSource(const std::string& type) {
    Fake().configuration = {
        {"account_type", type}, {"win_domain_short_name", "DOM"}, {"acc_domain_name", "dc"}};
    INTERNAL::ResetAccountConfigurationForTest();
  }
  static bool Get(const std::string& pattern, const std::vector<std::string>& names,
                  Aliases& aliases) {
    return DefaultAliasGetter(pattern).GetAliasFromUserShortNames(names, aliases);
  }
};

TEST_F(DefaultAliasGetterTest, LocalAccountsHaveNameAndMail) {
  Fake().users = {{"alice", 1000, 100, "a.archer@example.com", ""}, {"bob", 1001, 100, "", ""}};
  Aliases aliases = {{"before", "kept"}};
  EXPECT_TRUE(Get("<3a>.<m>", {"alice", "bob", "o'brien", "no body"}, aliases));
  EXPECT_EQ(aliases, (Aliases{{"before", "kept"},
                              {"alice", "ali.a.archer"},
                              {"bob", "bob"},
                              {"o'brien", "o'brien"},
                              {"no body", "nobody"}}));
  EXPECT_TRUE(Logged("Cannot get user o'brien"));
  EXPECT_TRUE(Logged("Cannot get user no body"));
  EXPECT_TRUE(Get("<g>", {"alice"}, aliases));
  EXPECT_EQ(aliases["alice"], "alice");
}

TEST_F(DefaultAliasGetterTest, NameAloneAsksNobodyAndRaisesNothing) {
  Aliases aliases;
  EXPECT_TRUE(Get("<a>", {"alice"}, aliases));
  EXPECT_TRUE(Get("<m>", {}, aliases));
  EXPECT_EQ(aliases, (Aliases{{"alice", "alice"}}));
  EXPECT_TRUE(Directory().trace.empty());
}

TEST_F(DefaultAliasGetterTest, LdapGivesAnyAttributeOfTheWantedAccounts) {
  UseSource("ldap");
  Directory().entries = {
      {{{"uid", "alice"}, {"mail", "a.archer@example.com"}, {"department", "Sales"}}},
      {{{"mail", "nameless@example.com"}}},
      {{{"uid", "bob"}, {"department", "IT"}}},
      {{{"uid", "carol"}, {"mail", "c"}, {"department", "HR"}}}};
  Aliases aliases;
  EXPECT_TRUE(Get("<m>.<department>", {"alice", "bob", "unknown"}, aliases));
  EXPECT_EQ(aliases,
            (Aliases{{"alice", "a.archer.Sales"}, {"bob", "bob"}, {"unknown", "unknown"}}));
  EXPECT_EQ(Directory().asked,
            (std::vector<std::vector<std::string>>{{"uid", "department", "mail"}}));
}

TEST_F(DefaultAliasGetterTest, BrokenDirectoryGivesNobodyAnAlias) {
  UseSource("ldap");
  Directory().entries = {{{{"uid", "alice"}, {"mail", "a@example.com"}}}};
  const struct {
    const char* step;
    const char* line;
  } cases[] = {{"host", "Failed to get LDAP browser config. "},
               {"alloc", "Failed to alloc LDAP search option. "},
               {"option", "Failed to get LDAP search option. "},
               {"request", "Failed to KORVLDAPSearchRequestInit. "},
               {"search", "Failed to query ldap. "},
               {"end", "Failed to query ldap. "}};
  for (const auto& test_case : cases) {
    Directory().broken = test_case.step;
    Directory().end = Directory().broken == "end" ? -1 : 0;
    Aliases aliases;
    EXPECT_FALSE(Get("<m>", {"alice"}, aliases)) << test_case.step;
    EXPECT_TRUE(aliases.empty());
    EXPECT_TRUE(Logged(test_case.line)) << test_case.step;
    EXPECT_TRUE(Logged("Failed to _GetUserAttrsValueMap"));
  }
}

TEST_F(DefaultAliasGetterTest, OneSearchAnswersAllPatternsOfAScope) {
  UseSource("ldap");
  Directory().entries = {{{{"uid", "alice"}, {"mail", "m@example.com"}, {"department", "Sales"}}}};
  Aliases aliases;
  {
    const AttributeScope scope({"<m>", "<department>", "<a>"});
    Directory().broken = "search";
    EXPECT_FALSE(Get("<m>", {"alice"}, aliases));
    TakeLog();
    Directory().broken.clear();
    Directory().asked.clear();
    EXPECT_TRUE(Get("<m>", {"alice"}, aliases));
    EXPECT_EQ(aliases["alice"], "m");
    EXPECT_TRUE(Get("<department>", {"alice", "bob"}, aliases));
    EXPECT_EQ(aliases["alice"], "Sales");
    EXPECT_EQ(Directory().asked.size(), 1U);
    EXPECT_TRUE(Get("<title>", {"alice"}, aliases));
    EXPECT_EQ(Directory().asked.size(), 2U);
  }
  EXPECT_TRUE(Get("<m>", {"alice"}, aliases));
  EXPECT_EQ(Directory().asked.size(), 3U);
}

TEST_F(DefaultAliasGetterTest, WindowsDomainIsAskedThroughNet) {
  UseSource("win");
  Directory().net_output =
      "Got 2 replies\n\nsn: Smith\ngivenName: John\nsAMAccountName: jsmith\n\n"
      "sn: Cole\nsAMAccountName: carol\n\n";
  Aliases aliases;
  EXPECT_TRUE(Get("<1g>.<s>", {"jsmith", "carol", "absent"}, aliases));
  EXPECT_EQ(aliases, (Aliases{{"jsmith", "J.Smith"}, {"carol", "carol"}, {"absent", "absent"}}));
  EXPECT_EQ(
      Directory().net_arguments,
      (std::vector<std::string>{"/usr/bin/net", "ads", "search", "-P", "(objectCategory=user)",
                                "sAMAccountName", "givenName", "sn"}));
  // An option in a pattern is no attribute: it never reaches the command line.
  EXPECT_TRUE(Get("<--option><a>", {"jsmith"}, aliases));
  EXPECT_EQ(aliases["jsmith"], "jsmith");
  EXPECT_EQ(Directory().net_arguments.size(), 6U);
}

TEST_F(DefaultAliasGetterTest, HalfANetAnswerIsNone) {
  UseSource("win");
  Directory().net_output = "Got 1 replies\n\nsn: Smith\nsAMAccountName: jsmith\n\n";
  Directory().net_status = 255;
  Aliases aliases;
  EXPECT_FALSE(Get("<s>", {"jsmith"}, aliases));
  EXPECT_TRUE(Logged("net ended with status [255]: no logon servers"));
  Directory().net_status = 0;
  Directory().net_output = "Got 1 replies\n";
  EXPECT_FALSE(Get("<s>", {"jsmith"}, aliases));
  EXPECT_TRUE(Logged("error net response"));
  Directory().broken = "popen";
  EXPECT_FALSE(Get("<s>", {"jsmith"}, aliases));
  EXPECT_TRUE(Logged("Failed to KLIBCPopenv"));
  EXPECT_TRUE(aliases.empty());
  TakeLog();
}

TEST_F(DefaultAliasGetterTest, HostilePatternsFailTheAliasesNotTheProcess) {
  Aliases aliases;
  EXPECT_FALSE(Get("<99999999999a>", {"alice"}, aliases));
  EXPECT_TRUE(Logged("A length in the default alias pattern [<99999999999a>] is out of range"));
  EXPECT_TRUE(Logged("Failed to _ComposeUserAliasMap"));
  EXPECT_FALSE(Get("<a><(>", {}, aliases) && Get("<a><(>", {"alice"}, aliases));
  TakeLog();
}

// In a child: the ids of a process that has given up root, but could be it again.
int RunAs(uid_t saved_uid) {
  const pid_t child = fork();
  if (child == 0) {
    int result = 1;
    if (setresgid(1234, 1234, saved_uid == 0 ? 0 : 1234) == 0 &&
        setresuid(1234, 1234, saved_uid) == 0) {
      uid_t uid_within = 9999;
      gid_t gid_within = 9999;
      Fake().on_user_get = [&] {
        uid_within = geteuid();
        gid_within = getegid();
      };
      Aliases aliases;
      const bool done = DefaultAliasGetter("<m>").GetAliasFromUserShortNames({"alice"}, aliases);
      const unsigned want = saved_uid == 0 ? 0 : 1234;
      const std::string line = saved_uid == 0 ? "38 lib-domain/utils/default_alias_getter:"
                                              : "35 lib-domain/utils/default_alias_getter:";
      const std::string text =
          saved_uid == 0 ? " ENTERCriticalSection" : " ERROR: ENTERCriticalSection";
      const auto& trace = Directory().trace;
      const bool traced = trace.size() == 2 && trace[0].rfind(line, 0) == 0 &&
                          trace[0].find(text) != std::string::npos &&
                          trace[1].rfind("38 ", 0) == 0 &&
                          trace[1].find(" LEAVECriticalSection") != std::string::npos;
      const bool right =
          uid_within == want && gid_within == want && geteuid() == 1234 && getegid() == 1234;
      result = done && traced && right ? 0 : 2;
    }
    _exit(result);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

TEST_F(DefaultAliasGetterTest, LookUpsRunAsRootWherePossibleAndOnlyThey) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Fake().users = {{"alice", 1000, 100, "a@example.com", ""}};
  EXPECT_EQ(RunAs(0), 0);
  EXPECT_EQ(RunAs(1234), 0);
}

}  // namespace
