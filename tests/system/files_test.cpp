#include "platform/include/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "platform/include/root_path.h"
#include "platform/include/string_list.h"
#include "tests/support/children.h"
#include "tests/support/fixture.h"

namespace {

namespace fs = std::filesystem;
using korvmailserver::ReadFile;
using korvmailserver::ReplaceFile;

class FilesTest : public test::RootTest {
 protected:
  std::string Path(const std::string& name) const { return root() + "/" + name; }
  struct stat Info(const std::string& name) const {
    struct stat info {};
    EXPECT_EQ(lstat(Path(name).c_str(), &info), 0) << name;
    return info;
  }
};

TEST_F(FilesTest, ReplacingIsWholeAndLeavesNothingBeside) {
  std::string bytes(100000, '\0');
  bytes += "\xff end";
  EXPECT_EQ(ReplaceFile(Path("a"), "old", 0600), 0);
  const mode_t mask = umask(077);
  EXPECT_EQ(ReplaceFile(Path("a"), bytes, 0644), 0);
  umask(mask);
  std::string read = "x";
  EXPECT_EQ(ReadFile(Path("a"), read), 0);
  EXPECT_TRUE(read == bytes);
  EXPECT_EQ(Info("a").st_mode & 07777, 0644U);

  fs::create_directory(Path("d"));
  EXPECT_LT(ReplaceFile(Path("d"), "bytes", 0644), 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_LT(ReplaceFile(Path("none/a"), "bytes", 0644), 0);
  EXPECT_EQ(errno, ENOENT);
  std::vector<std::string> names = {"forgotten"};
  EXPECT_EQ(postara::sdk::EnumDirectory(root(), names), 0);
  EXPECT_EQ(names, (std::vector<std::string>{"a", "d"}));
}

// On a full disk the old file must stay; a file size limit fails the same way.
TEST_F(FilesTest, AFailedReplacementKeepsTheOldFile) {
  Write("/a", "old");
  EXPECT_TRUE(test::InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return ReplaceFile(Path("a"), std::string(5000, 'x'), 0644) < 0 && errno == EFBIG;
  }));
  EXPECT_EQ(Read("/a"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(root()), fs::directory_iterator()), 1);
}

// An export to /dev/stdout once put a file in that link's place.
TEST_F(FilesTest, OnlyARegularFileIsReplaced) {
  Write("/target", "old");
  fs::create_symlink(Path("target"), Path("link"));
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  const std::pair<const char*, int> cases[] = {{"link", ELOOP}, {"pipe", ENOTSUP}};
  for (const auto& [name, error] : cases) {
    EXPECT_LT(ReplaceFile(Path(name), "new", 0644), 0) << name;
    EXPECT_EQ(errno, error) << name;
  }
  EXPECT_EQ(Read("/target"), "old");
  EXPECT_TRUE(fs::is_symlink(Path("link")));
}

TEST_F(FilesTest, LeftoversOfKilledProcessesAreSweptAndNothingElse) {
  fs::create_directory(Path(".mdomain-new-folder"));
  Write("/.mdomain-new-killed", "half");
  Write("/.other", "x");
  fs::create_symlink(Path(".other"), Path(".mdomain-new-link"));
  for (const char* name : {"killed-journal", "running", "running-journal"}) {
    Write(std::string("/.mdomain-new-") + name, "half");
  }
  const int maker = open(Path(".mdomain-new-running").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(maker, LOCK_EX), 0);
  korvmailserver::RemoveLeftovers(root());
  EXPECT_FALSE(fs::exists(Path(".mdomain-new-folder")));
  EXPECT_FALSE(fs::exists(Path(".mdomain-new-killed")));
  EXPECT_TRUE(fs::exists(Path(".other")));
  EXPECT_FALSE(fs::exists(Path(".mdomain-new-killed-journal")));
  EXPECT_TRUE(fs::exists(Path(".mdomain-new-running")));
  EXPECT_TRUE(fs::exists(Path(".mdomain-new-running-journal")));
  close(maker);
}

TEST_F(FilesTest, AFolderThatOthersCanChangeIsNotSafe) {
  struct Case {
    const char* name;
    uid_t owner;
    mode_t mode;
    bool safe;
  };
  const Case cases[] = {{"ours", geteuid(), 0755, true},         {"group", geteuid(), 0775, true},
                        {"everybody's", geteuid(), 0777, false}, {"sticky", geteuid(), 01777, true},
                        {"service account's", 80, 0755, true},   {"somebody's", 4711, 0755, false}};
  WriteAccounts("Postara-Server:x:80:81::/:\n", "");
  for (const Case& one : cases) {
    if (one.owner != geteuid() && geteuid() != 0) {
      continue;
    }
    fs::create_directory(Path("folder"));
    ASSERT_EQ(chown(Path("folder").c_str(), one.owner, static_cast<gid_t>(-1)), 0);
    chmod(Path("folder").c_str(), one.mode);
    std::string why;
    EXPECT_EQ(korvmailserver::IsSafeFolder(Path("folder"), why), one.safe) << one.name;
    EXPECT_EQ(korvmailserver::MakeServiceFolder(Path("folder"), 0755) ==
                  korvmailserver::FolderResult::kDone,
              one.safe);
    EXPECT_TRUE(one.safe || Logged("[" + Path("folder") + "] is not used: " + why));
    fs::remove(Path("folder"));
  }
}

TEST_F(FilesTest, FailuresLeaveTheResultUntouched) {
  std::string bytes = "kept";
  EXPECT_LT(ReadFile(Path("none"), bytes), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_LT(ReadFile(root(), bytes), 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(bytes, "kept");
  std::vector<std::string> names = {"kept"};
  EXPECT_LT(postara::sdk::EnumDirectory(Path("none"), names), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(names.size(), 1U);
  EXPECT_LT(postara::sdk::Unlink(Path("none")), 0);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(FilesTest, MakesFoldersWithTheirModeWhateverTheUmask) {
  const mode_t mask = umask(077);
  EXPECT_EQ(KLIBCFileTouch(Path("flag").c_str()), 0);
  EXPECT_EQ(Info("flag").st_mode & 07777, 0644U) << "another account reads it";
  EXPECT_EQ(KORVFSMkdirP(Path("a//b/c/").c_str(), geteuid(), getegid(), 0755), 0);
  umask(mask);
  EXPECT_EQ(Info("a").st_mode & 07777, 0755U);
  EXPECT_EQ(Info("a/b/c").st_mode & 07777, 0755U);
  EXPECT_EQ(KORVFSMkdirP(Path("a/b").c_str(), geteuid(), getegid(), 0700), 0);
  EXPECT_EQ(Info("a/b").st_mode & 07777, 0755U) << "an existing folder is left as it is";

  Write("/file", "x");
  for (const char* name : {"file", "file/below"}) {
    EXPECT_LT(KORVFSMkdirP(Path(name).c_str(), geteuid(), getegid(), 0755), 0);
    EXPECT_EQ(errno, ENOTDIR);
  }
  EXPECT_LT(KORVFSMkdirP("", 0, 0, 0755), 0);
}

TEST_F(FilesTest, TouchingCreatesOrRefreshesButFollowsNoLink) {
  EXPECT_EQ(KLIBCFileTouch(Path("flag").c_str()), 0);
  const timespec old[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, Path("flag").c_str(), old, 0), 0);
  EXPECT_EQ(KLIBCFileTouch(Path("flag").c_str()), 0);
  EXPECT_GT(Info("flag").st_mtime, 1000);
  fs::create_symlink(Path("elsewhere"), Path("link"));
  EXPECT_LT(KLIBCFileTouch(Path("link").c_str()), 0);
  EXPECT_FALSE(KLIBCFileExist(Path("elsewhere").c_str()));
  EXPECT_FALSE(KLIBCFileExist(Path("link").c_str())) << "it leads nowhere";
  ASSERT_EQ(utimensat(AT_FDCWD, Path("flag").c_str(), old, 0), 0);
  for (const mode_t strict : {0U, 077U}) {
    const mode_t mask = umask(strict);
    EXPECT_EQ(korvmailserver::TouchAll(Path(""), {"new", "newer", "link", "flag", "newest"}),
              std::vector<std::string>{"link"});
    umask(mask);
    EXPECT_GT(Info("flag").st_mtime, 1000);
    for (const char* name : {"new", "newer", "newest"}) {
      EXPECT_EQ(Info(name).st_mode & 0644U, 0644U) << name << ", with umask " << strict;
      fs::remove(Path(name));
    }
  }
  fs::create_directory(Path("folder"));
  fs::create_directory_symlink(Path("folder"), Path("way"));
  EXPECT_EQ(korvmailserver::TouchAll(Path("way"), {"flag"}).size(), 1U);
  EXPECT_LT(KLIBCFileTouch(Path("way/flag").c_str()), 0);
  EXPECT_TRUE(fs::is_empty(Path("folder")));
  EXPECT_TRUE(KLIBCFileExist(root().c_str()));
  EXPECT_LT(KLIBCFileTouch(Path("none/flag").c_str()), 0);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(FilesTest, TheRootsServiceAccountOwnsTheFile) {
  Write("/db", "x");
  uid_t uid = 1;
  gid_t gid = 1;
  EXPECT_EQ(mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid), 0)
      << "without one below a root: the caller";
  EXPECT_EQ(uid, geteuid());
  EXPECT_EQ(gid, getegid());
  WriteAccounts("damaged line\nother:x:70:71:Postara-Server:Postara-Server:\n" +
                    std::string(65500, '#') + "\nxPostara-Server:x:1:1::/:\n" +
                    "Postara-Server:broken\n Postara-Server:x:80:81::/:\n",
                "");
  EXPECT_EQ(mailFileOwnerModeSet(Path("db").c_str(), korvmailserver::kServiceAccount, 0640), 0);
  const struct stat info = Info("db");
  EXPECT_EQ(info.st_mode & 07777, 0640U);
  EXPECT_EQ(info.st_uid, geteuid() == 0 ? 80U : geteuid());
  EXPECT_EQ(info.st_gid, geteuid() == 0 ? 81U : getegid());
}

TEST_F(FilesTest, WithoutARootAMissingAccountIsAnError) {
  Write("/db", "x");
  const std::string path = Path("db");
  unsetenv("MDOMAIN_ROOT");
  uid_t uid = 1;
  gid_t gid = 2;
  EXPECT_LT(mailUGidGet("no-such-account", &uid, &gid), 0);
  EXPECT_EQ(uid + gid, 3U);
  EXPECT_LT(mailFileOwnerModeSet(path.c_str(), "no-such-account", 0600), 0);
  EXPECT_TRUE(Logged("[" + path + "]: there is no account [no-such-account]"));
  EXPECT_EQ(mailUGidGet("root", &uid, &gid), 0);
  EXPECT_EQ(uid, 0U);
}

TEST_F(FilesTest, SettingAnOwnerRefusesLinksAndMissingFiles) {
  Write("/target", "x");
  chmod(Path("target").c_str(), 0600);
  fs::create_symlink(Path("target"), Path("link"));
  EXPECT_LT(mailFileOwnerModeSet(Path("link").c_str(), korvmailserver::kServiceAccount, 0666), 0);
  EXPECT_TRUE(Logged("Too many levels of symbolic links"));
  EXPECT_EQ(Info("target").st_mode & 07777, 0600U);
  EXPECT_LT(mailFileOwnerModeSet(Path("none").c_str(), korvmailserver::kServiceAccount, 0666), 0);
  EXPECT_TRUE(Logged("No such file or directory"));
}

// Closing any ordinary descriptor of a file drops the process's locks on it, and SQLite's with
// them.
TEST_F(FilesTest, SettingAnOwnerKeepsTheLocksOfThisProcess) {
  const std::string path = Path("db");
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(fd, F_SETLK, &lock), 0);
  EXPECT_EQ(mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount, 0644), 0);
  EXPECT_TRUE(test::InChild([&] { return fcntl(fd, F_SETLK, &lock) != 0; }))
      << "another process got the lock";
  close(fd);
}

TEST_F(FilesTest, TheRootPrefixHasNoTrailingSlash) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"/srv/trial", "/srv/trial/etc"},
      {"/srv/trial//", "/srv/trial/etc"},
      {"/", "/etc"},
      {"///", "/etc"},
      {"", "/etc"}};
  for (const auto& [root, path] : cases) {
    setenv("MDOMAIN_ROOT", root, 1);
    EXPECT_EQ(korvmailserver::UnderRoot("/etc"), path) << root;
  }
}

TEST(StringList, TakesAnyCapacityAndRefusesNothingToPush) {
  for (const int capacity : {-1, 0, 1024, 2147483647}) {
    PKLIBCSzList list = KLIBCSzListAlloc(capacity);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(KLIBCSzListPush(&list, "ü"), 1);
    EXPECT_EQ(KLIBCSzListPush(&list, ""), 2);
    EXPECT_LT(KLIBCSzListPush(&list, nullptr), 0);
    EXPECT_STREQ(KLIBCSzListGet(list, 0), "ü");
    EXPECT_EQ(KLIBCSzListGet(list, 2), nullptr);
    EXPECT_EQ(KLIBCSzListGet(list, -1), nullptr);
    KLIBCSzListFree(list);
  }
  PKLIBCSzList none = nullptr;
  EXPECT_LT(KLIBCSzListPush(&none, "a"), 0);
  EXPECT_EQ(KLIBCSzListCount(none), 0);
  KLIBCSzListFree(none);
}

}  // namespace
