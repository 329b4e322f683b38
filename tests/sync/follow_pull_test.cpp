// What follows a pull: flags for those whose addresses differ, the administrator's programs; and
// what is kept aside before one.
#include "lib-domain/sync/follow_pull.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <filesystem>

#include "lib-domain/sync/kept_files.h"
#include "lib-domain/sync/pulled_addresses.h"
#include "platform/include/postfix_map.h"
#include "platform/include/process.h"
#include "tests/support/sync_fixture.h"

// Files that another program holds are not worth ten seconds of waiting here.
extern "C" int sqlite3_busy_timeout(sqlite3* /*db*/, int /*milliseconds*/) {
  return SQLITE_OK;
}

// A minute is two seconds here.
namespace korvmailserver {
ProgramEnd RunProgram(const ProgramCall& call) {
  using Real = ProgramEnd (*)(const ProgramCall&);
  static const Real real = reinterpret_cast<Real>(
      dlsym(RTLD_NEXT, "_ZN14korvmailserver10RunProgramERKNS_11ProgramCallE"));
  ProgramCall shorter = call;
  shorter.seconds /= 30;
  return real(shorter);
}
}  // namespace korvmailserver

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
namespace PATHS = MDOMAIN::PATHS;
using korvmailserver::PullReport;
using korvmailserver::PullResult;
using MDOMAIN::UTILS::BeforePull;
using MDOMAIN::UTILS::FollowPull;
using MDOMAIN::UTILS::PullStart;

constexpr const char* kModel = "/var/packages/Postara-Server/etc/local_DOMAIN.db";
constexpr const char* kHooks = "/etc/mailserver-domain/hooks/after-pull.d/";

class PullTest : public SyncTest {
 protected:
  PullTest() {
    CreateDomain("one.example", true);
    CreateDomain("two.example", false);
    EXPECT_TRUE(MDOMAIN::API::Updater().Refresh());
    MDOMAIN::API::Domain().CreateAdditionalDomains(1, {"more.example"});
    std::filesystem::remove_all(PATHS::ChangedUserDir());
    mailConfSet("smtp_changed_uids", "", true, 0);
  }

  // As a pull replaces the model by one in which `sql` was run.
  static void Replace(const std::string& sql) {
    const std::string beside = DbPath() + ".new";
    std::filesystem::copy(DbPath(), beside);
    SqliteFile(beside).Run(sql);
    std::filesystem::rename(beside, DbPath());
  }
  static PullReport Replaced() {
    return {7, false, {{"mailserver_domain_db", kModel, PullResult::kReplaced}}, {}};
  }
  bool Follow(const PullStart& start, const PullReport& report) {
    failures_.clear();
    return FollowPull(start, report, failures_);
  }
  // The uids that were flagged since the last call.
  static std::string Flagged() {
    StringList names;
    postara::sdk::EnumDirectory(PATHS::ChangedUserDir(), names);
    std::filesystem::remove_all(PATHS::ChangedUserDir());
    return Text(names);
  }
  void AddHook(const std::string& name, const std::string& script, mode_t mode = 0755) {
    Write(kHooks + name, "#!/bin/sh\n" + script + "\n");
    EXPECT_EQ(chmod((root() + kHooks + name).c_str(), mode), 0);
  }
  // A hook that appends what it is given to a file, which Told reads and removes.
  void AddListener() { AddHook("50listen", "cat >> \"$MDOMAIN_ROOT/told\""); }
  std::string Told() {
    std::string told = Read("/told");
    std::filesystem::remove(root() + "/told");
    return told;
  }
  static bool IsKept() { return std::filesystem::exists(PATHS::ModelBeforePull()); }

  StringList failures_;
};

TEST_F(PullTest, FlagsThoseWhoseAddressesDiffer) {
  const std::pair<const char*, const char*> cases[] = {
      {"UPDATE domain_user_alias_table SET account_alias='al' WHERE uid=1001", "1001"},
      {"UPDATE domain_user_alias_table SET is_duplicated=1 WHERE uid=1002", "1002"},
      {"DELETE FROM domain_user_alias_table WHERE uid=1003", "1003"},
      {"INSERT INTO domain_user_alias_table VALUES(2,1003,'c',0)", ""},  // no role: no address
      {"INSERT INTO domain_user_role_table VALUES(2,1003,'normal',0)", "1003"},
      {"DELETE FROM group_to_user_table WHERE uid=1001", "1001"},  // the role came from the group
      {"UPDATE domain_table SET domain_name='x.example' WHERE domain_idx=2", "1003"},
      {"DELETE FROM domain_to_additional_domain_table", "1002"},
      {"UPDATE domain_table SET domain_desc='only said otherwise'", ""},
  };
  for (const auto& [sql, want] : cases) {
    SCOPED_TRACE(sql);
    PullStart start;
    EXPECT_TRUE(BeforePull(start));
    Replace(sql);
    EXPECT_TRUE(Follow(start, Replaced()));
    EXPECT_EQ(Flagged(), want);
    EXPECT_FALSE(IsKept());
  }
  PullStart start;
  EXPECT_TRUE(BeforePull(start));
  mailConfSet("smtp_changed_uids", "1003, 42", true, 0);
  EXPECT_TRUE(Follow(start, {8, false, {}, {"smtp_changed_uids"}}));
  EXPECT_EQ(Flagged(), "1003, 42");
}

// Where they are, and without a word in the model, which the next pull compares with.
TEST_F(PullTest, MakesTheMapsForPostfixFromTheNewModel) {
  const korvmailserver::PostfixMap map(PATHS::PostfixAddresses());
  const auto follow = [&] {
    PullStart start;
    EXPECT_TRUE(BeforePull(start));
    Replace("UPDATE domain_user_alias_table SET account_alias='al' WHERE uid=1002");
    const std::string pulled = Read(kModel);
    EXPECT_TRUE(Follow(start, Replaced()));
    EXPECT_EQ(Read(kModel), pulled);
  };
  follow();
  EXPECT_FALSE(std::filesystem::exists(map.File()));
  EXPECT_TRUE(MDOMAIN::UTILS::MakePulledPostfixMaps());
  Replace("UPDATE domain_user_alias_table SET account_alias='before' WHERE uid=1002");
  follow();
  bool is_found = false;
  std::string value;
  std::string error;
  EXPECT_TRUE(map.Get("al@one.example", is_found, value, error)) << error;
  EXPECT_TRUE(is_found);
}

TEST_F(PullTest, EverybodyIsFlaggedWhereThereIsNothingToCompareWith) {
  AddListener();
  const std::string aside = root() + "/aside.db";
  std::filesystem::rename(DbPath(), aside);
  PullStart start;
  EXPECT_TRUE(BeforePull(start));
  std::filesystem::rename(aside, DbPath());
  EXPECT_TRUE(Follow(start, Replaced()));
  EXPECT_EQ(Flagged(), "1001, 1002, 1003");
  EXPECT_EQ(Told(), "{\"files\":[{\"key\":\"mailserver_domain_db\",\"path\":\"" + root() + kModel +
                        "\"}],\"keys\":[],\"uids\":[1001,1002,1003],\"version\":7}\n");

  std::filesystem::rename(DbPath(), aside);
  Write(kModel, "no database");
  EXPECT_TRUE(BeforePull(start));
  std::filesystem::rename(aside, DbPath());
  EXPECT_TRUE(Follow(start, Replaced()));
  EXPECT_TRUE(Logged("file is not a database"));
  EXPECT_EQ(Flagged(), "1001, 1002, 1003");
}

TEST_F(PullTest, APullThatWasNotFollowedIsFollowedByTheNext) {
  AddListener();
  PullStart start;
  EXPECT_TRUE(BeforePull(start));
  EXPECT_FALSE(start.is_unfinished);
  Replace("UPDATE domain_user_alias_table SET account_alias='al' WHERE uid=1001");
  // Killed here.
  EXPECT_TRUE(BeforePull(start));
  EXPECT_TRUE(start.is_unfinished);
  Replace("UPDATE domain_user_alias_table SET account_alias='bo' WHERE uid=1002");
  FailOn("KLIBCFileTouch", "1002");
  EXPECT_FALSE(Follow(start, Replaced()));
  EXPECT_TRUE(Logged("Failed to KLIBCFileTouch"));
  EXPECT_EQ(Flagged(), "1001");
  EXPECT_EQ(failures_.size(), 1U);
  EXPECT_EQ(Told(), "{\"files\":null,\"keys\":null,\"uids\":null,\"version\":7}\n");

  ClearFaults();
  EXPECT_TRUE(BeforePull(start));
  EXPECT_TRUE(Follow(start, {7, false, {}, {}}));
  EXPECT_EQ(Flagged(), "1001, 1002");
  Told();

  EXPECT_TRUE(BeforePull(start));
  EXPECT_TRUE(Follow(start, {7, false, {{"alias_db", "/x", PullResult::kUnchanged}}, {}}));
  EXPECT_FALSE(std::filesystem::exists(root() + "/told"));
  EXPECT_FALSE(IsKept());
}

TEST_F(PullTest, HooksRunInOrderAndNoneStopsAnother) {
  AddHook("20second", "echo second $MDOMAIN_VERSION $PATH; echo oh >&2; exit 3");
  AddHook("10first", "echo first $HOME; wc -l");
  AddHook("25slow", "echo slow; sleep 60");
  AddHook("30open", "echo open", 0775);
  AddHook("40late", "exit 0", 0644);
  for (const char* name : {"50.bak", "50x.dpkg-old", "50~", ".50", "50 x"}) {
    AddHook(name, "echo never");
  }
  std::filesystem::create_directory(root() + kHooks + "60folder");
  std::filesystem::create_symlink("10first", root() + kHooks + "70link");
  const PullReport report = {9, false, {}, {"bcc_db"}};
  TakeLog();
  EXPECT_FALSE(Follow({}, report));
  StringList lines;
  for (const LogLine& line : log_) {
    const size_t at = line.text.find("hook ");
    lines.push_back(at == std::string::npos ? "" : line.text.substr(at));
  }
  const std::string folder = root() + kHooks;
  const StringList want = {
      "hook [" + folder + "10first]: first",
      "hook [" + folder + "10first]: 1",
      "hook [" + folder +
          "20second]: second 9 /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
      "hook [" + folder + "20second]: oh",
      "hook " + folder + "20second ended with status 3",
      "hook [" + folder + "25slow]: slow",
      "hook " + folder + "25slow did not end within 60 seconds and was killed",
      "hook " + folder + "30open is not run: others may write to it",
      "hook [" + folder + "70link]: first",
      "hook [" + folder + "70link]: 1"};
  EXPECT_EQ(lines, want);
  EXPECT_EQ(failures_, (StringList{"the " + want[4], "the " + want[6], "the " + want[7]}));

  ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  EXPECT_FALSE(Follow({}, report));
  EXPECT_TRUE(Logged("others may write to the folder"));
}

TEST_F(PullTest, WhatIsKeptAsideIsCompleteOrNotThere) {
  const std::string etc = "/var/packages/Postara-Server/etc/";
  Write(etc + "disclaimer_content/domain-1", "text");
  Write(etc + "alias.db", "no database");
  Write(etc + "mailserver.db.broken", "");
  Write(etc + ".kept-killed/keystore.db", "");
  const auto kept = [&] {
    StringList names;
    StringList found;
    postara::sdk::EnumDirectory(PATHS::EtcDir(), names);
    for (const std::string& name : names) {
      if (name.find("kept-") != std::string::npos) {
        found.push_back(name);
      }
    }
    return found;
  };
  SqliteFile writer(DbPath());
  writer.Run("BEGIN IMMEDIATE; DELETE FROM domain_table");
  std::string folder;
  ASSERT_TRUE(MDOMAIN::UTILS::KeepFilesAside(folder));
  StringList names;
  postara::sdk::EnumDirectory(folder, names);
  EXPECT_EQ(Text(names),
            "alias.db, disclaimer_content, keystore.db, local_DOMAIN.db, mailserver.db");
  struct stat info {};
  EXPECT_EQ(stat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700U);
  EXPECT_EQ(SqliteFile(folder + "/local_DOMAIN.db").Rows("SELECT count(*) FROM domain_table"),
            StringList{"2"});
  const std::string below = folder.substr(root().size());
  EXPECT_EQ(Read(below + "/alias.db") + Read(below + "/disclaimer_content/domain-1"),
            "no databasetext");

  std::string second;
  ASSERT_TRUE(MDOMAIN::UTILS::KeepFilesAside(second));
  EXPECT_NE(second, folder);
  EXPECT_EQ(kept().size(), 2U);  // and not the one of a killed run
  writer.Run("COMMIT; BEGIN EXCLUSIVE");
  EXPECT_FALSE(MDOMAIN::UTILS::KeepFilesAside(second));
  EXPECT_TRUE(Logged("aside: " + DbPath() + ": database is locked"));
  EXPECT_EQ(kept().size(), 2U);
}

}  // namespace
