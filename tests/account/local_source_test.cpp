// The local source through the public account operations: which lines of the files count as
// accounts, what a damaged file does to an answer, and when a changed file is seen.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <tuple>

#include "platform/include/files.h"
#include "platform/include/host_settings.h"
#include "tests/support/account_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

int files_read = 0;
time_t seconds_later = 0;  // than it is

constexpr const char* kGroups = "users:x:100:\nstaff:x:1001:alice,bob\nempty:x:1002:\n";

std::string Person(const std::string& name, int uid, int gid = 100,
                   const std::string& comment = "") {
  return name + ":x:" + std::to_string(uid) + ":" + std::to_string(gid) + ":" + comment +
         ":/home/" + name + ":/usr/sbin/nologin\n";
}

std::string People(unsigned int count) {
  std::string people;
  for (unsigned int i = 0; i < count; i++) {
    people += Person("more" + std::to_string(i), static_cast<int>(2000000 + i));
  }
  return people;
}

using LocalSource = test::AccountTest;

TEST_F(LocalSource, TakesAccountsWithinTheRangesAndTheGroupUsers) {
  WriteAccounts(
      "root:x:0:0:root:/root:/bin/bash\n" + Person("low", 999) + Person("first", 1000) +
          Person("last", 60000) + Person("high", 60001) + "nobody:x:65534:65534:::\n",
      "root:x:0:\nlow:x:999:\nfirst:x:1000:\nusers:x:100:\nlast:x:60000:\nhigh:x:60001:\n");
  EXPECT_THAT(Users().names, ElementsAre("first", "last"));
  EXPECT_EQ(Users().held, 2);
  EXPECT_THAT(Groups(), ElementsAre("first", "users", "last"));
  EXPECT_EQ(User("root").uid, 0U) << "outside the range: no listing, but a look-up";

  Write("/etc/login.defs",
        "# UID_MIN 1\n UID_MIN\t0x2710 # hex\nUID_MAX 020000000\nUID_MIN_X 5\n"
        "GID_MIN many\nGID_MAX 100\n");
  EXPECT_THAT(Users().names, ElementsAre("last", "high", "nobody"));
  EXPECT_THAT(Groups(), ElementsAre("users")) << "a bad number keeps the default of 1000";
}

TEST_F(LocalSource, ReadsTheCommentFieldAndOddNames) {
  const std::string longest(255, 'n');
  WriteAccounts(Person("bob", 1001, 100, "Bob Büch,Room 1,,,bob.buech@example.com") +
                    Person("jörg", 1002, 100, "J\xF6rg,,,,j@example.com") +
                    Person("o'brien", 1003, 100, "mail@example.com") +
                    Person("win$", 1004, 100, "W,a b@example.com") + Person(longest, 1005),
                kGroups);
  EXPECT_EQ(User("bob").full_name, "Bob Büch");
  EXPECT_EQ(User("bob").mail, "bob.buech@example.com");
  EXPECT_EQ(User("jörg").full_name + User("jörg").mail, "") << "a comment that is not UTF-8";
  EXPECT_EQ(User("o'brien").mail, "") << "a name alone is no address";
  EXPECT_EQ(User("win$").mail, "");
  EXPECT_EQ(Users().held, 5);
  char buffer[256];
  EXPECT_EQ(KLIBUserRealNameGet(longest.c_str(), buffer, sizeof(buffer)), 0);
  EXPECT_EQ(buffer, longest);
  EXPECT_LT(KLIBUserRealNameGet(longest.c_str(), buffer, 255), 0);
}

TEST_F(LocalSource, LeavesAGapForEveryLineThatIsNoAccount) {
  struct Case {
    const char* what;
    std::string line;
    const char* why;  // empty: nothing is missing
  };
  constexpr const char* kNoAccount = "line 3 is no account";
  const Case cases[] = {
      {"too few fields", "carol:x:1003:100::/home\n", kNoAccount},
      {"too many fields", "carol:x:1003:100:::::\n", kNoAccount},
      {"no name", ":x:1003:100:::\n", kNoAccount},
      {"uid no number", "carol:x:10a3:100:::\n", kNoAccount},
      {"negative uid", "carol:x:-5:100:::\n", kNoAccount},
      {"uid the unknown one", "carol:x:4294967295:100:::\n", kNoAccount},
      {"gid too large", "carol:x:1003:99999999999:::\n", kNoAccount},
      {"name not UTF-8", "car\xFFol:x:1003:100:::\n", kNoAccount},
      {"zero byte", std::string("car\0ol:x:1003:100:::\n", 20), "line 3 has a control character"},
      {"zero byte in a comment line", std::string("#\0bob\n", 6), "line 3 has a control character"},
      {"tab in an account", "carol:x:1003:100:C\t::\n", "line 3 has a control character"},
      {"cut line", "carol:x:1003", "line 3 has no line end"},
      {"no line end", "carol:x:1003:100:::/bin/fal", "line 3 has no line end"},
      {"over-long name", std::string(256, 'c') + ":x:1003:100:::\n", kNoAccount},
      {"name taken", "alice:x:1003:100:::\n", "stands there more than once"},
      {"empty line, comment, other databases", "\n  \n#carol:x\n+::::::\n-carol\n", ""},
      {"DOS line end", "carol:x:1003:100:::\r\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WriteAccounts(Person("alice", 1001) + Person("bob", 1002) + c.line, kGroups);
    const Answer users = Users();
    const auto log = TakeLog();
    EXPECT_EQ(users.held - static_cast<long>(users.names.size()), *c.why == '\0' ? 0 : 1);
    EXPECT_EQ(log.empty(), *c.why == '\0');
    EXPECT_THAT(log.empty() ? "" : log[0].text, HasSubstr(c.why));
    EXPECT_EQ(User("alice").uid, 1001U);
    TakeLog();
  }
}

TEST_F(LocalSource, SaysOnceWhatIsMissing) {
  WriteAccounts(Person("alice", 1001) + "broken\nbroken too\n", kGroups);
  const korvmailserver::AccountSnapshot snapshot;
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(Users().held, 3);
  }
  const auto log = TakeLog();
  ASSERT_EQ(log.size(), 1U);
  EXPECT_THAT(log[0].text, HasSubstr("local accounts: at least 2 entries are missing (" + root() +
                                     "/etc/passwd: line 2 is no account"));
}

TEST_F(LocalSource, HandsOutTheFirstOfAccountsThatShareAnId) {
  WriteAccounts(Person("alice", 1001) + Person("second", 1001) + Person("bob", 1002),
                "staff:x:1001:second,bob\nother:x:1001:\n");
  EXPECT_THAT(Users().names, ElementsAre("alice", "bob"));
  EXPECT_EQ(Users().held, 2) << "nobody is missing";
  EXPECT_EQ(User(1001).name, "alice");
  EXPECT_THAT(Groups(), ElementsAre("staff"));
  EXPECT_THAT(Members("staff"), ElementsAre("bob"));
  EXPECT_TRUE(Logged("1 entries have the id of an earlier one"));
}

TEST_F(LocalSource, ListsNamedAndPrimaryMembersEachOnce) {
  WriteAccounts(Person("alice", 1001) + Person("bob", 1002, 1001) + Person("carol", 1003, 1001) +
                    "root:x:0:1001:::\n",
                "users:x:100:alice,,root\nstaff:x:1001:ghost,bob,ghost\nempty:x:1002:\n");
  EXPECT_THAT(Members("staff"), ElementsAre("ghost", "bob", "carol"));
  EXPECT_THAT(Members("users"), ElementsAre("alice")) << "root is no account of this source";
  EXPECT_THAT(Members("empty"), IsEmpty());
  EXPECT_THAT(Members("nosuch"), ElementsAre("failed 6144"));
}

TEST_F(LocalSource, DoesNotTellMembersThatADamagedFileHides) {
  WriteAccounts(Person("alice", 1001) + "bob:x:1002x:100:::\n" + "dan:x:nothing:1003:::\n",
                std::string(kGroups) + "club:x:1003:alice\nbroken:x\n");
  EXPECT_THAT(Members("staff"), ElementsAre("failed 256")) << "bob is named and cannot be read";
  EXPECT_THAT(Members("club"), ElementsAre("failed 256")) << "it is dan's primary group";
  EXPECT_THAT(Members("empty"), IsEmpty());
  EXPECT_THAT(Groups(), ElementsAre("users", "staff", "empty", "club", "broken"));
  EXPECT_EQ(Group("broken").name, "") << "so the caller's answer is incomplete";
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_GROUP);
  EXPECT_TRUE(Logged("members of the group \"staff\" cannot be told"));
  EXPECT_TRUE(Logged("members of the group \"club\" cannot be told"));
  WriteAccounts(Person("alice", 1001), std::string(kGroups) + ":x:1003:\n");
  EXPECT_THAT(Groups(), ElementsAre("users", "staff", "empty",
                                    "(missing: " + root() + "/etc/group: line 4 is no group)"));
  EXPECT_EQ(Users().held, 2) << "nobody may be deleted while a group cannot be read";
}

// A cut "bob:x:1002" cost bob the role that his primary group gave him, and then his address.
TEST_F(LocalSource, TakesNobodyOutOfAGroupForADamagedLine) {
  const std::string alice = Person("alice", 1001);
  const std::string groups = "staff:x:1001:alice,bob\nclub:x:1003:alice\n";
  const struct {
    const char* what;
    std::string passwd;
    std::string group;
    std::vector<std::string> hidden;  // groups whose members cannot be told
    const char* why;
  } cases[] = {
      {"cut", alice + "bob:x:1002", groups, {"staff", "club"}, "passwd: line 2 has no line end"},
      {"cut at an id",
       alice + "bob:x:1002:10\n",
       groups,
       {"staff", "club"},
       "passwd: line 2 is no"},
      {"two lines in one",
       alice + "x:x:1:1::/:bob:x:1002:1003:::\n",
       groups,
       {"staff", "club"},
       "passwd: line 2 is no"},
      {"no name", alice + ":x:1002:100:::\n", groups, {"staff", "club"}, "passwd: line 2 is no"},
      {"no line end", alice, groups + "last:x:1004:al", {"last"}, "group: line 3 has no line end"},
      {"zero byte",
       alice,
       groups + std::string("last:x:1004:alice,\0\n", 20),
       {"last"},
       "group: line 3 has a control"},
      {"no UTF-8",
       alice,
       groups + "last:x:1004:alice,b\xFF\n",
       {"last"},
       "group: line 3 names a member that cannot be read"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    WriteAccounts(c.passwd, c.group);
    EXPECT_GT(Users().held, 1) << "incomplete, so nobody is deleted";
    EXPECT_TRUE(Logged(c.why));
    for (const std::string group : {"staff", "club", "last"}) {
      const bool is_there = c.group.find(group) != std::string::npos;
      const bool is_hidden = std::count(c.hidden.begin(), c.hidden.end(), group) != 0;
      const std::vector<std::string> members = Members(group);
      EXPECT_EQ(members == std::vector<std::string>{"failed 256"}, is_there && is_hidden) << group;
      EXPECT_EQ(is_there && is_hidden, Logged("members of the group \"" + group +
                                              "\" cannot be told: " + root() + "/etc/" + c.why));
    }
    TakeLog();
  }
}

TEST_F(LocalSource, TellsAbsentFromFailed) {
  WriteAccounts("", "");
  EXPECT_EQ(Users().held, 0);
  EXPECT_EQ(User("alice").uid, KORV_UNKNOWN_ID);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_NO_SUCH_USER);

  std::filesystem::remove(root() + "/etc/group");
  EXPECT_LT(Users().held, 0);
  EXPECT_TRUE(Logged("cannot read " + root() + "/etc/group"));
  EXPECT_EQ(User("alice").uid, KORV_UNKNOWN_ID);
  EXPECT_EQ(KLIBCErrGet(), KLIB_ERR_FAILED);
  EXPECT_TRUE(Logged("cannot read"));
}

TEST_F(LocalSource, UsesTheMachinesOwnFilesBelowARootWithoutAny) {
  EXPECT_EQ(User("root").uid, 0U);
  EXPECT_EQ(Group("root").gid, 0U);
}

TEST_F(LocalSource, KnowsInternalAccounts) {
  WriteAccounts(Person("alice", 1001) + Person("robot", 1002) + Person("nobody", 1003) +
                    Person("high", 60001),
                kGroups);
  const std::pair<const char*, bool> before[] = {
      {"alice", false}, {"robot", false}, {"nobody", true}, {"high", true}, {"ghost", false}};
  for (const auto& [name, internal] : before) {
    EXPECT_EQ(KORVUserIsInternal(name), internal) << name;
  }
  const std::string path = korvmailserver::HostSettingsPath();
  Write(path.substr(root().size()), "[local]\ninternal = robot\n");
  EXPECT_TRUE(KORVUserIsInternal("robot"));
  EXPECT_FALSE(KORVUserIsInternal("nobody"));
}

TEST_F(LocalSource, EnumeratesAWindow) {
  WriteAccounts(Person("a", 1001) + Person("b", 1002) + Person("c", 1003), kGroups);
  EXPECT_THAT(Users(1, 1).names, ElementsAre("b"));
  EXPECT_THAT(Users(3, 9).names, IsEmpty());
  EXPECT_EQ(Users(1, 1).held, 3);
  int calls = 0;
  const auto stop = [](const char*, unsigned int, void* count) {
    return ++*static_cast<int*>(count);
  };
  EXPECT_EQ(KLIBUserInfoEnum(AUTH_LOCAL, nullptr, 0, 9, stop, &calls), 3);
  EXPECT_EQ(calls, 1);
}

TEST_F(LocalSource, SeesAChangeButParsesAnUnchangedFileOnce) {
  WriteAccounts(Person("alice", 1001), kGroups);
  EXPECT_THAT(Users().names, ElementsAre("alice"));
  WriteAccounts(Person("clive", 1001), kGroups);  // same size, same inode, at once
  EXPECT_THAT(Users().names, ElementsAre("clive"));

  for (const char* file : {"/etc/passwd", "/etc/group", "/etc/login.defs"}) {
    std::filesystem::remove(root() + file);
  }
  WriteAccounts(Person("alice", 1001), kGroups);
  while (files_read = 0, Users(), files_read > 0) {
    // A file just written is read again until it has come to rest.
  }
  for (int i = 0; i < 1000; i++) {
    User("alice");
  }
  EXPECT_EQ(files_read, 0);
}

TEST_F(LocalSource, AnswersFromOnePointInTimeWithinASnapshot) {
  WriteAccounts(Person("alice", 1001), kGroups);
  {
    korvmailserver::AccountSnapshot outer;
    EXPECT_EQ(Users().held, 1);
    {
      korvmailserver::AccountSnapshot inner;
      WriteAccounts(Person("alice", 1001) + Person("bob", 1002), "");
    }
    EXPECT_EQ(Users().held, 1);
    EXPECT_EQ(User("bob").uid, KORV_UNKNOWN_ID);
    EXPECT_THAT(Groups(), ElementsAre("users", "staff", "empty"));
  }
  EXPECT_EQ(Users().held, 2);

  std::filesystem::remove(root() + "/etc/group");
  korvmailserver::AccountSnapshot failing;
  EXPECT_LT(Users().held, 0);
  WriteAccounts(Person("alice", 1001), kGroups);
  EXPECT_LT(Users().held, 0) << "the first answer counts, also when it is a failure";
  EXPECT_TRUE(Logged("cannot read"));
  EXPECT_THAT(TakeLog(), IsEmpty()) << "said once";
}

// Files of whole lines with a fault here and there, and everything that can be asked of them.
class RandomFiles {
 public:
  explicit RandomFiles(unsigned int seed, unsigned int more = 0) : random_(seed) {
    passwd = People(more);
    const unsigned int count = OneIn(40) ? 3000 : 12;
    const unsigned int faults = OneIn(2) ? 0 : count;
    const std::string usual_end = OneIn(8) ? "\r\n" : "\n";
    for (unsigned int i = 0; i < count; i++) {
      const std::string number = std::to_string(i);
      const auto pick = [&](const std::vector<std::string>& odd, const std::string& usual) {
        return faults != 0 && random_() % (8UL * faults) < 2 ? odd[random_() % odd.size()] : usual;
      };
      names_.push_back(pick(kNames, (OneIn(5) ? "Jörg" : "user") + number));
      groups_.push_back(pick(kNames, "group" + number));
      passwd += names_.back() + ":x:" + pick(kIds, std::to_string(i * 65536 % 70000 + i)) + ":" +
                pick(kIds, "5" + std::to_string(i % 7)) + pick(kComments, ":c") +
                "::" + pick(kEnds, usual_end);
      group += groups_.back() + ":x:" + pick(kIds, "5" + number) + ":" + Name() +
               pick(kMembers, "," + Name()) + pick(kEnds, usual_end);
    }
  }
  bool OneIn(unsigned int count) { return random_() % count == 0; }
  const std::string& Name() { return names_[random_() % names_.size()]; }
  const std::string& GroupName() { return groups_[random_() % groups_.size()]; }

  std::string passwd, group;

 private:
  using Texts = std::vector<std::string>;
  inline static const Texts kNames = {"",
                                      "USER1",
                                      "user1",
                                      "user2",
                                      "#x",
                                      "-",
                                      "jörg1",
                                      "a b",
                                      "u\xFF",
                                      "u\t",
                                      {"u\0", 2},
                                      std::string(255, 'n'),
                                      std::string(256, 'n'),
                                      "users"};
  inline static const Texts kIds = {"",    "51",         "1001",       "-5",          "+5",
                                    "007", "4294967294", "4294967295", "99999999999", "1 "};
  inline static const Texts kComments = {
      ":c\t", ":", "::", ":\xFF", ":ö,,,o@x.y", ":" + std::string(140000, 'c')};
  inline static const Texts kMembers = {",\xFF", ",ghost", ",,", "," + std::string(256, 'm'),
                                        ":",     ""};
  inline static const Texts kEnds = {"", "\r\n", "\n\n", "\n \t\n", "\n#x:\n+\n"};
  std::mt19937 random_;
  std::vector<std::string> names_, groups_;
};

std::vector<std::string> Shown(const KORVUser& user) {
  return {user.name, std::to_string(user.uid), std::to_string(user.gid), user.mail, user.full_name};
}

int AppendUser(const char* name, unsigned int uid, void* users) {
  KORVUser& user = static_cast<std::vector<KORVUser>*>(users)->emplace_back();
  user.name = name;
  user.uid = uid;
  return 0;
}

// The members of a group as whoever enumerates_ finds them, letter case aside.
std::vector<std::string> MembersAmong(const std::vector<KORVUser>& users,
                                      const std::vector<std::string>& members) {
  std::map<std::string, std::string> by_folded_name;
  for (const KORVUser& user : users) {
    by_folded_name.emplace(FoldAccountName(user.name), user.name + std::to_string(user.uid));
  }
  std::vector<std::string> found;
  found.reserve(members.size());
  for (const std::string& member : members) {
    found.push_back(by_folded_name[FoldAccountName(member)]);
  }
  return found;
}

TEST_F(LocalSource, TellsTheUsersOfMembersWithoutAnEnumeration) {
  WriteAccounts(Person("Anna", 1001) + Person("anna", 1002) + Person("ben", 999) +
                    Person("Ben", 1003) + Person("zo\xc3\xab", 1004) + Person("ZO\xc3\x8b", 1005),
                "staff:x:1001:anna,BEN,Zo\xc3\xab,ghost\n");
  const auto told = [] {
    std::vector<KORVUser> users;
    EXPECT_TRUE(korvmailserver::ListMemberUsers(AUTH_LOCAL, {"staff"}, users));
    EXPECT_FALSE(korvmailserver::ListMemberUsers(AUTH_LOCAL, {"staff", "none"}, users));
    return MembersAmong(users, Members("staff"));
  };
  const auto first = ElementsAre("Anna1001", "Ben1003",
                                 "zo\xc3\xab"
                                 "1004",
                                 "");
  {
    const korvmailserver::FewAccounts few;
    files_read = 0;
    EXPECT_THAT(told(), first);
    EXPECT_EQ(files_read, 0);
  }
  const korvmailserver::AccountSnapshot tables;
  EXPECT_THAT(told(), first);
}

class RandomQuestions : public LocalSource {
 protected:
  using Texts = std::vector<std::string>;
  // What is asked about single accounts. The last one enumerates_ where it has to, or is told to.
  std::vector<std::function<Texts()>> QuestionsAbout(RandomFiles& files);

  bool enumerates_ = false;
};

std::vector<std::function<RandomQuestions::Texts()>> RandomQuestions::QuestionsAbout(
    RandomFiles& files) {
  const std::string name = files.OneIn(3) ? "User1" : files.Name();
  const std::string group = files.OneIn(3) ? "users" : files.GroupName();
  return {[=] { return Shown(User(name)); },
          [=] { return Shown(User(User(name).uid)); },
          [] { return Shown(User(51U)); },
          [=] { return Texts{std::to_string(KORVUserIsInternal(name.c_str()))}; },
          [=] {
            return Texts{Group(group).name, Group(Group(group).gid).name, Group(51U).name};
          },
          [=] { return Members(group); },
          [=] {
            const korvmailserver::FewAccounts few;
            korvmailserver::FewAccounts::Expect({name, "User1", "ghost"});
            std::vector<KORVUser> users;
            if (enumerates_ || !korvmailserver::ListMemberUsers(AUTH_LOCAL, {group}, users)) {
              KLIBUserInfoEnum(AUTH_LOCAL, nullptr, 0, UINT32_MAX, AppendUser, &users);
            }
            return MembersAmong(users, Members(group));
          }};
}

TEST_F(RandomQuestions, AnswersSingleQuestionsAsItsTablesDo) {
  // The answer, the error number of a failure, and all that was said.
  const auto ask = [&](const RandomFiles& files, const std::function<Texts()>& question) {
    WriteAccounts(files.passwd, files.group);  // so that all is said anew
    files_read = 0;
    const Texts answer = question();
    std::set<std::string> said;
    for (const test::LogLine& line : TakeLog()) {
      said.insert(line.text);
    }
    return std::make_tuple(answer, KLIBCErrGet(), said);
  };
  int scanned = 0;
  for (unsigned int seed = 0; seed < 150; seed++) {
    SCOPED_TRACE(seed);
    RandomFiles files(seed);
    for (const auto& question : QuestionsAbout(files)) {
      const auto scan = ask(files, question);
      scanned += files_read == 0 ? 1 : 0;
      {
        const korvmailserver::FewAccounts few;
        EXPECT_EQ(scan, ask(files, question));
      }
      const korvmailserver::AccountSnapshot tables;
      enumerates_ = true;
      EXPECT_EQ(scan, ask(files, question));
      enumerates_ = false;
    }
  }
  EXPECT_GT(scanned, 300) << "too few to compare";
  EXPECT_LT(scanned, 800) << "too few faults";
}

// Files that came to rest a while ago, and the index that a process leaves of them.
class IndexedSource : public RandomQuestions {
 protected:
  IndexedSource() : index_(root() + "/var/run/postara_server/accounts") {
    std::filesystem::create_directories(std::filesystem::path(index_).parent_path());
    seconds_later = 10;
  }
  ~IndexedSource() override { seconds_later = 0; }

  // As another process has one.
  void TakeNewSource() {
    const std::string path = korvmailserver::HostSettingsPath();
    Write(path.substr(root().size()), "#" + std::to_string(sources_++) + "\n");
  }

  const std::string index_;

 private:
  int sources_ = 0;
};

TEST_F(IndexedSource, AnswersAsItsTablesDo) {
  int indexed = 0;
  for (unsigned int seed = 0; seed < 50; seed++) {
    SCOPED_TRACE(seed);
    RandomFiles files(seed, 1000);
    WriteAccounts(files.passwd, files.group);
    std::filesystem::remove(index_);
    TakeNewSource();
    User("ghost");
    if (!std::filesystem::exists(index_)) {  // not in order
      continue;
    }
    indexed++;
    TakeNewSource();
    for (const auto& question : QuestionsAbout(files)) {
      const auto found = question();
      const int error = KLIBCErrGet();
      const korvmailserver::AccountSnapshot tables;
      enumerates_ = true;
      EXPECT_EQ(found, question());
      enumerates_ = false;
      EXPECT_EQ(error, KLIBCErrGet());
    }
  }
  EXPECT_GT(indexed, 15) << "too few to compare";
  TakeLog();
}

TEST_F(IndexedSource, BelievesNoIndexThatOthersCouldHaveWritten) {
  const std::string passwd = People(1000);
  const std::string folder = std::filesystem::path(index_).parent_path();
  const auto is_known = [&] {
    TakeNewSource();
    return User("more7").name == "more7";
  };
  const auto forge = [&] {  // one that knows nobody
    const size_t size = std::filesystem::file_size(index_);
    std::fstream file(index_, std::ios::in | std::ios::out);
    file.seekp(1024);
    file << std::string(size - 1024, '\0');
  };
  WriteAccounts(passwd, kGroups);
  EXPECT_TRUE(is_known());
  forge();
  EXPECT_FALSE(is_known()) << "it is not used at all";
  const std::string both[] = {index_, folder};
  for (const std::string& path : both) {
    ASSERT_EQ(chmod(path.c_str(), 0777), 0);
    EXPECT_TRUE(is_known()) << path;
    ASSERT_EQ(chmod(path.c_str(), 0755), 0);
    forge();
  }
  WriteAccounts(passwd, kGroups);
  EXPECT_TRUE(is_known()) << "it is of other files";
  std::filesystem::resize_file(index_, 5000);
  EXPECT_TRUE(is_known()) << "it is not whole";

  std::filesystem::remove(index_);
  seconds_later = 1;
  WriteAccounts(passwd, kGroups);
  EXPECT_TRUE(is_known());
  EXPECT_FALSE(std::filesystem::exists(index_)) << "files that are still written to";
}

// What stands where somebody stood may be half of what is being written.
TEST_F(IndexedSource, BelievesNoLineOfAFileThatWasWrittenInPlace) {
  WriteAccounts(People(1000), kGroups);
  User("ghost");
  TakeNewSource();
  const korvmailserver::FewAccounts few;
  EXPECT_EQ(User("more7").uid, 2000007U);
  std::fstream(root() + "/etc/passwd", std::ios::in | std::ios::out) << Person("more7", 3000000);
  EXPECT_NE(User("more7").uid, 2000007U) << "the first line of this name is another one";
  TakeLog();
}

TEST_F(LocalSource, InspectsItselfUntilTheFirstStepThatFails) {
  WriteAccounts(Person("alice", 1001), kGroups);
  EXPECT_EQ(LastStep(), "complete: yes");
  WriteAccounts(Person("alice", 1001) + "x\n", kGroups);
  EXPECT_EQ(LastStep(), "complete: users: " + root() + "/etc/passwd: line 2 is no account");
  WriteAccounts("", kGroups);
  EXPECT_THAT(LastStep(), HasSubstr("users: "));
  std::filesystem::remove(root() + "/etc/group");
  EXPECT_THAT(LastStep(), HasSubstr("connect: cannot read"));
}

TEST(AccountNames, ShortAndFull) {
  const std::pair<std::string, std::string> cases[] = {
      {"DOM\\alice", "alice"}, {"alice@dom", "alice"}, {"alice", "alice"}, {"", ""},
      {"DOM\\", "DOM\\"},      {"@dom", "@dom"},       {"a@b@dom", "a@b"}, {"jörg@dom", "jörg"},
  };
  for (const auto& [full, shortened] : cases) {
    EXPECT_EQ(TrimDomainName(full), shortened);
  }
  char buffer[10];
  EXPECT_EQ(KORVLDAPCatName(buffer, sizeof(buffer), "dom.x", "bob"), 0);
  EXPECT_STREQ(buffer, "bob@dom.x");
  EXPECT_LT(KORVLDAPCatName(buffer, sizeof(buffer), "dom.xy", "bob"), 0);
  EXPECT_EQ(KORVLDAPCatName(buffer, sizeof(buffer), "", "bob"), 0);
  EXPECT_STREQ(buffer, "bob");
}

// A source kept from before gave the old domain's names, under which nobody was found.
TEST_F(LocalSource, GivesWayToASourceOfTheConfiguredTypeAndDomain) {
  const char* const configured[][4] = {
      {"ldap", "acc_domain_name", "one.example", "alice@one.example"},
      {"ldap", "acc_domain_name", "two.example", "alice@two.example"},
      {"win", "win_domain_short_name", "ONE", "ONE\\alice"},
      {"win", "win_domain_short_name", "TWO", "TWO\\alice"},
      {"local", "acc_domain_name", "two.example", "alice"}};
  for (const auto& [type, key, domain, full_name] : configured) {
    Set("account_type", type);
    Set(key, domain);
    EXPECT_THAT(GetFullNames({"alice"}), ElementsAre(full_name));
  }
}

}  // namespace

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  now->tv_sec += clock == CLOCK_REALTIME ? seconds_later : 0;
  return result;
}

namespace korvmailserver {

// Counts the readings of passwd, and reads.
int ReadFile(const std::string& path, std::string& bytes) {
  files_read += path.find("/etc/passwd") == std::string::npos ? 0 : 1;
  std::ifstream in(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(in), {});
  return in.is_open() ? 0 : -1;
}

}  // namespace korvmailserver
