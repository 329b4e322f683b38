// The roads on which a refresh need not look at everything, beside the one on which it does.
#include <gmock/gmock.h>
#include <unistd.h>

#include "lib-domain/utils/updater.h"
#include "tests/support/random_model.h"
#include "tests/support/sync_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
using MDOMAIN::UTILS::RefreshSummary;
using MDOMAIN::UTILS::Updater;

constexpr int kModels = 60;
constexpr useconds_t kUntilFilesSettle = 80000;
// A removal of nobody from nothing, which no statement finds and no image takes.
constexpr const char* kOddRow =
    "INSERT INTO domain_group_removed_user_table VALUES(NULL, NULL, NULL)";
constexpr const char* kNoteFile = "/var/run/postara_server/refreshed";

class RefreshRoads : public SyncTest, protected ModelMaker {
 protected:
  // Everything that a refresh may write, row by row as it is stored.
  static StringList Content() {
    StringList all;
    for (const char* table :
         {"user_table", "group_table", "group_to_user_table", "domain_user_role_table",
          "domain_user_alias_table", "domain_group_role_table", "domain_table"}) {
      const StringList rows = Rows("SELECT rowid, * FROM " + std::string(table));
      all.insert(all.end(), rows.begin(), rows.end());
    }
    const StringList removals =
        Rows("SELECT * FROM domain_group_removed_user_table WHERE uid IS NOT NULL");
    all.insert(all.end(), removals.begin(), removals.end());
    return all;
  }

  // What a run says: its result, its summary and its lines without their heads.
  StringList Refreshed() {
    Updater updater;
    StringList said = {updater.Refresh() ? "true" : "false"};
    const RefreshSummary& summary = updater.GetSummary();
    for (const auto& [domain_idx, count] : summary.added_users) {
      said.push_back("added " + std::to_string(domain_idx) + " " + std::to_string(count));
    }
    for (const auto& [domain_idx, name] : summary.domain_names) {
      said.push_back(name);
    }
    for (const auto& failure : summary.failures) {
      said.push_back(std::to_string(failure.domain_idx) + failure.reason);
    }
    said.push_back(std::to_string(summary.users) + " " + std::to_string(summary.groups) + " " +
                   std::to_string(summary.users_complete && summary.groups_complete &&
                                  summary.users_written && summary.groups_written));
    for (const LogLine& line : TakeLog()) {
      said.push_back(line.text.substr(line.text.find(' ') + 1));
    }
    return said;
  }

  // The second time there is less to do, as mostly.
  StringList RefreshedTwice() {
    StringList said = Refreshed();
    const StringList again = Refreshed();
    said.insert(said.end(), again.begin(), again.end());
    return said;
  }

  void RandomAccounts() {
    std::string passwd;
    std::string group;
    for (unsigned uid = 1000; uid < 1014; ++uid) {
      if (Draw(4) != 0) {
        passwd += OneOf({"anna", "u", "u", "zo\u00eb", "Ben"}) + std::to_string(uid % 1003) +
                  ":x:" + std::to_string(uid) + ":99::/:/bin/sh\n";
      }
    }
    for (unsigned gid = 500; gid < 507; ++gid) {
      group += OneOf({"g", "h"}) + std::to_string(gid) + ":x:" + std::to_string(gid) + ":";
      for (unsigned uid = 1000; uid < 1014; ++uid) {
        group += Draw(4) == 0 ? "u" + std::to_string(uid % 1003) + "," : "";
      }
      group += "\n";
    }
    WriteAccounts(passwd, group);
    Write("/etc/login.defs", "UID_MIN 1000\nUID_MAX 60000\nGID_MIN 500\nGID_MAX 60000\n");
  }
};

// On the same random model the passes that know what there is to do say and write the same as those
// that read everything.
TEST_F(RefreshRoads, AllLeadToTheSameModel) {
  CreateDomain("first.example", true);
  size_t changed = 0;
  for (int model = 0; model < kModels; ++model) {
    std::string sql = RandomModel();
    for (const char* table : {"mdomain_departure_table", "joining_user_table",
                              "joining_group_table", "mdomain_notice_table"}) {
      sql += std::string("DROP TABLE IF EXISTS ") + table + ";";
    }
    if (Draw(3) == 0) {
      sql +=
          "UPDATE domain_table SET domain_default_alias_pattern = '<2a>', "
          "is_automatically_adding_users = 1;";
    }
    RandomAccounts();
    Run(sql);
    const StringList before = Content();
    Run(kOddRow);
    const StringList plain_said = RefreshedTwice();
    const StringList plain = Content();
    Run(sql);
    Run("DELETE FROM domain_group_removed_user_table WHERE uid IS NULL");
    ASSERT_EQ(Content(), before);
    EXPECT_EQ(RefreshedTwice(), plain_said) << "model " << model << ": " << sql;
    EXPECT_THAT(Text(Content()), Text(plain)) << "model " << model << ": " << sql;
    if (HasFailure()) {
      return;
    }
    changed += plain == before ? 0 : 1;
  }
  EXPECT_GT(changed, 30U);
}

// With a note of the model, other accounts lead to the same as without.
TEST_F(RefreshRoads, OtherAccountsMeetTheModelThatIsNoted) {
  CreateDomain("first.example", true);
  Write("/var/run/postara_server/mdomain.lock", "");
  constexpr int kNotedModels = 12;
  const std::string note = root() + kNoteFile;
  // Every member is an account, as what is said of others is no state to note.
  const auto write_accounts = [this] {
    std::string passwd;
    std::string group = "all:x:2001:";
    for (unsigned uid = 1000; uid < 1014; ++uid) {
      if (Draw(4) != 0) {
        const std::string name = "u" + std::to_string(uid);
        passwd += name + ":x:" + std::to_string(uid) + ":99::/:/bin/sh\n";
        group += Draw(2) == 0 ? name + "," : "";
      }
    }
    WriteAccounts(passwd, group + "\n");
  };
  size_t settled = 0;
  for (int model = 0; model < kNotedModels; ++model) {
    SCOPED_TRACE(model);
    write_accounts();
    Refreshed();
    for (int round = 0; round < 2; ++round) {
      usleep(kUntilFilesSettle);
      Refreshed();
    }
    usleep(kUntilFilesSettle);
    if (model % 2 == 0) {
      write_accounts();
    } else {
      Write("/etc/passwd", Read("/etc/passwd") + "root:x:0:0::/:/bin/sh\n");
    }
    const std::string passwd = Read("/etc/passwd");
    const std::string database = Read(DbPath().substr(root().size()));
    const bool is_noted = access(note.c_str(), F_OK) == 0;
    const StringList said = RefreshedTwice();
    const StringList noted = Content();
    settled += is_noted && Read(DbPath().substr(root().size())) == database ? 1 : 0;
    Write(DbPath().substr(root().size()), database);
    unlink(note.c_str());
    Write("/etc/passwd", passwd);
    EXPECT_EQ(RefreshedTwice(), said);
    EXPECT_THAT(Text(Content()), Text(noted));
  }
  EXPECT_GT(settled, 3U);
}

// The second refresh of an unchanged company is not read again, the one after any change is.
TEST_F(RefreshRoads, WhatIsProvablyUnchangedIsNotReadAgain) {
  CreateDomain("example.com", true);
  Write("/var/run/postara_server/mdomain.lock", "");
  const auto is_read = [this] {
    FailOn("KLIBUserInfoEnum");
    const StringList said = Refreshed();
    ClearFaults();
    // An answer that was cut short is reported, and no state to note.
    return testing::Matches(testing::Contains(testing::HasSubstr("ignore the process")))(said);
  };
  const auto settle = [this] {
    unlink((DbPath() + "-journal").c_str());
    for (int round = 0; round < 2; ++round) {  // what the first changes, the second settles
      usleep(kUntilFilesSettle);
      Refreshed();
    }
    usleep(kUntilFilesSettle);
    return Refreshed();
  };
  const StringList full = settle();
  EXPECT_FALSE(is_read());
  EXPECT_EQ(Refreshed(), full);

  const std::string passwd = Read("/etc/passwd");
  const std::string group = Read("/etc/group");
  const std::vector<std::pair<const char*, std::function<void()>>> changes = {
      {"the same text written again", [&] { Write("/etc/passwd", passwd); }},
      {"a user", [&] { Write("/etc/passwd", passwd + "dave:x:1004:1500::/:/bin/sh\n"); }},
      {"a group", [&] { Write("/etc/group", group + "late:x:2009:alice\n"); }},
      {"other ranges", [&] { Write("/etc/login.defs", "UID_MIN 1002\nGID_MIN 1000\n"); }},
      {"host settings", [&] { Write("/etc/mailserver-domain/host.ini", "[local]\n"); }},
      {"a row", [&] { Run("UPDATE user_table SET user_name = 'x' WHERE uid = 1002"); }},
      {"a pattern", [&] { Run("UPDATE domain_table SET domain_default_alias_pattern = '<1a>'"); }},
      {"a writer that did not finish",
       [&] { Write(DbPath().substr(root().size()) + "-journal", ""); }},
      {"a note that is cut", [&] { Write(kNoteFile, Read(kNoteFile).substr(0, 30)); }},
  };
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    change();
    EXPECT_TRUE(is_read());
    usleep(kUntilFilesSettle);
    EXPECT_TRUE(is_read());  // it was incomplete
    settle();
    EXPECT_FALSE(is_read());
  }

  // What would be said again is read again: a member whom nobody knows.
  Write("/etc/group", "staff:x:2001:alice,nobody-here\n");
  settle();
  EXPECT_TRUE(is_read());
}

}  // namespace
