// Patterns against the three account sources, all of them made of lists.
#include "lib-domain/utils/default_alias_getter.h"

#include <unistd.h>

#include <cstdarg>
#include <regex>

#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/base/text.h"
#include "platform/include/ldap_search.h"
#include "platform/include/process.h"
#include "tests/support/children.h"
#include "tests/support/fake_accounts.h"

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
using MDOMAIN::BASE::Join;
using test::Fake;

using Aliases = std::map<std::string, std::string>;

struct FakeDirectory {
  std::vector<KORVLDAPEntry> entries = {
      {{{"uid", "alice"}, {"mail", "a.archer@example.com"}, {"department", "Sales"}}},
      {{{"mail", "nameless@example.com"}}},
      {{{"uid", "bob"}, {"department", "IT"}}},
      {{{"uid", "carol"}, {"mail", "c"}, {"department", "HR"}}}};
  std::string net_output =
      "Got 2 replies\n\nsn: Smith\ngivenName: John\nsAMAccountName: jsmith\n\n"
      "sn: Cole\nsAMAccountName: carol\n\n";
  std::vector<std::vector<std::string>> asked;  // attributes or arguments of every search
  std::string broken;                           // the step that fails
  std::vector<std::string> trace;               // lines of the system log
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
    return Directory().broken == "end" ? -1 : 0;
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
  std::vector<std::string>& arguments = Directory().asked.emplace_back(1, path);
  for (size_t i = 1; argv[i] != nullptr; ++i) {
    arguments.emplace_back(argv[i]);
  }
  if (Directory().broken == "popen") {
    return nullptr;
  }
  FILE* stream = tmpfile();
  fputs(Directory().broken == "half" ? "Got 1 replies\n" : Directory().net_output.c_str(), stream);
  rewind(stream);
  return stream;
}
int KLIBCPclose(FILE* stream) {
  fclose(stream);
  return Directory().broken == "status" ? 255 : 0;
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

class DefaultAliasGetterTest : public test::AccountsTest {
 protected:
  DefaultAliasGetterTest() {
    Directory() = {};
    Fake().users = {{"alice", 1000, 100, "a.archer@example.com", ""}, {"bob", 1001, 100, "", ""}};
  }
  static bool Get(const std::string& pattern, const std::vector<std::string>& names,
                  Aliases& aliases) {
    return DefaultAliasGetter(pattern).GetAliasFromUserShortNames(names, aliases);
  }
};

TEST_F(DefaultAliasGetterTest, EverySourceGivesItsAttributes) {
  const std::string run = "/usr/bin/net ads search -P (objectCategory=user) sAMAccountName";
  const struct {
    std::string source;
    std::string pattern;
    std::string want;
    std::string asked;
  } cases[] = {
      {"local", "<3a>.<m>", "ali.a.archer bob carol jsmith nobody o'brien", ""},
      {"local", "<g>", "alice bob carol jsmith nobody o'brien", ""},
      {"ldap", "<m>.<department>", "a.archer.Sales bob c.HR jsmith nobody o'brien",
       "uid department mail"},
      {"win", "<1g>.<s>", "alice bob carol J.Smith nobody o'brien", run + " givenName sn"},
      // An option in a pattern is no attribute: it never reaches the command line.
      {"win", "<--option><a>", "alice bob carol jsmith nobody o'brien", run},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source + " " + c.pattern);
    UseSource(c.source);
    Directory().asked.clear();
    Aliases aliases = {{"a before", "kept"}};
    EXPECT_TRUE(Get(c.pattern, {"alice", "bob", "carol", "jsmith", "o'brien", "no body"}, aliases));
    std::vector<std::string> texts;
    for (const auto& entry : aliases) {
      texts.push_back(entry.second);
    }
    EXPECT_EQ(Join(texts, " "), "kept " + c.want);
    EXPECT_EQ(Directory().asked.size(), c.source == "local" ? 0U : 1U);
    EXPECT_EQ(Directory().asked.empty() ? "" : Join(Directory().asked[0], " "), c.asked);
    EXPECT_EQ(Logged("Cannot get user o'brien"), c.source == "local");
    TakeLog();
  }
}

TEST_F(DefaultAliasGetterTest, NameAloneAsksNobodyAndRaisesNothing) {
  Aliases aliases;
  EXPECT_TRUE(Get("<a>", {"alice"}, aliases));
  EXPECT_TRUE(Get("<m>", {}, aliases));
  EXPECT_EQ(aliases, (Aliases{{"alice", "alice"}}));
  EXPECT_TRUE(Directory().trace.empty());
}

TEST_F(DefaultAliasGetterTest, BrokenDirectoryGivesNobodyAnAlias) {
  const struct {
    const char* source;
    const char* step;
    const char* line;
  } cases[] = {{"ldap", "host", "Failed to get LDAP browser config. "},
               {"ldap", "alloc", "Failed to alloc LDAP search option. "},
               {"ldap", "option", "Failed to get LDAP search option. "},
               {"ldap", "request", "Failed to KORVLDAPSearchRequestInit. "},
               {"ldap", "search", "Failed to query ldap. "},
               {"ldap", "end", "Failed to query ldap. "},
               {"win", "popen", "Failed to KLIBCPopenv"},
               {"win", "status", "net ended with status [255]: no logon servers"},
               {"win", "half", "error net response"}};
  for (const auto& c : cases) {
    UseSource(c.source);
    Directory().broken = c.step;
    Aliases aliases;
    EXPECT_FALSE(Get("<m>", {"alice"}, aliases)) << c.step;
    EXPECT_TRUE(aliases.empty());
    EXPECT_TRUE(Logged(c.line)) << c.step;
    EXPECT_TRUE(Logged("Failed to _GetUserAttrsValueMap"));
  }
}

TEST_F(DefaultAliasGetterTest, OneSearchAnswersAllPatternsOfAScope) {
  UseSource("ldap");
  Aliases aliases;
  {
    const AttributeScope scope({"<m>", "<department>", "<a>"});
    Directory().broken = "search";
    EXPECT_FALSE(Get("<m>", {"alice"}, aliases));
    TakeLog();
    Directory().broken.clear();
    Directory().asked.clear();
    EXPECT_TRUE(Get("<m>", {"alice"}, aliases));
    EXPECT_EQ(aliases["alice"], "a.archer");
    EXPECT_TRUE(Get("<department>", {"alice", "bob"}, aliases));
    EXPECT_EQ(aliases["alice"], "Sales");
    EXPECT_EQ(Directory().asked.size(), 1U);
    EXPECT_TRUE(Get("<title>", {"alice"}, aliases));
    EXPECT_EQ(Directory().asked.size(), 2U);
  }
  EXPECT_TRUE(Get("<m>", {"alice"}, aliases));
  EXPECT_EQ(Directory().asked.size(), 3U);
}

const std::string kSource = " lib-domain/utils/default_alias_getter:\\d+ ";

// In a child: the ids of a process that has given up root, but could be it again when that is its
// saved id. Whether the look-up ran as `want`, the ids came back, and the system log tells both.
bool RunsAs(unsigned saved_id, unsigned want, const std::string& entered) {
  return test::InChild([&] {
    std::vector<unsigned> within;
    Fake().on_user_get = [&] { within = {geteuid(), getegid()}; };
    const bool is_set =
        setresgid(1234, 1234, saved_id) == 0 && setresuid(1234, 1234, saved_id) == 0;
    Aliases aliases;
    const bool done = DefaultAliasGetter("<m>").GetAliasFromUserShortNames({"alice"}, aliases);
    const auto& trace = Directory().trace;
    const bool traced =
        trace.size() == 2 && std::regex_match(trace[0], std::regex(entered)) &&
        std::regex_match(trace[1], std::regex("38" + kSource + "LEAVECriticalSection"));
    const bool restored = geteuid() == 1234 && getegid() == 1234;
    return is_set && done && traced && restored && within == std::vector{want, want};
  });
}

TEST_F(DefaultAliasGetterTest, LookUpsRunAsRootWherePossibleAndOnlyThey) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  EXPECT_TRUE(RunsAs(0, 0, "38" + kSource + "ENTERCriticalSection"));
  EXPECT_TRUE(RunsAs(1234, 1234, "35" + kSource + "ERROR: ENTERCriticalSection"));
}

}  // namespace
