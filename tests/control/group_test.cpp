// Mirroring groups: whose members are stored when they are created, changed, unknown or withheld.
#include "lib-domain/control/group.h"

#include <algorithm>

#include "tests/control/control_fixture.h"
#include "tests/support/random_model.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
using MDOMAIN::CONTROL::Group;
using Groups = std::vector<MDOMAIN::RECORD::Group>;

constexpr const char* kPeople =
    "alice:x:1001:1001::/home/a:/bin/sh\n"
    "Bob:x:1002:1002::/home/b:/bin/sh\n"
    "carol:x:1003:1003::/home/c:/bin/sh\n";
const Groups kAll = {{2001, "staff", "all of us"}, {2002, "empty", ""}, {2003, "ghosts", ""}};

class GroupControl : public ControlTest, protected ModelMaker {
 protected:
  GroupControl() { SetMembers("alice,Bob"); }
  void SetMembers(const std::string& staff) {
    WriteAccounts(kPeople, "staff:x:2001:" + staff + "\nempty:x:2002:\nghosts:x:2003:gone,lost\n");
  }
  StringList Members() {
    return Rows(
        "SELECT gid, user_name FROM group_to_user_table NATURAL JOIN user_table "
        "ORDER BY gid, uid");
  }
};

TEST_F(GroupControl, MembersFollowTheAccountSystem) {
  EXPECT_TRUE(Group().Create(kAll));
  EXPECT_EQ(Members(), (StringList{"2001|alice", "2001|Bob"}));
  EXPECT_EQ(Rows("SELECT * FROM group_table ORDER BY 1"),
            (StringList{"2001|staff|all of us", "2002|empty|", "2003|ghosts|"}));
  // Only the group all of whose members are unknown is skipped.
  EXPECT_TRUE(Logged("Failed to find member [gone, lost] of group [ghosts]"));
  EXPECT_TRUE(Logged("group [ghosts] should has [2] members, but get [0]"));
  EXPECT_TRUE(Logged("Failed to _GetUsersFromGroup [ghosts], skip"));

  SetMembers("carol,gone");
  EXPECT_TRUE(Group().Create({kAll[0]}));  // only adds
  EXPECT_TRUE(Logged("Failed to find member [gone] of group [staff]"));
  EXPECT_EQ(Members(), (StringList{"2001|alice", "2001|Bob", "2001|carol"}));
  Run("INSERT INTO group_to_user_table VALUES(NULL,NULL)");                   // is nobody's
  EXPECT_TRUE(Group().Set({{2001, "staff", "fewer"}, {2002, "empty", ""}}));  // replaces
  EXPECT_TRUE(Logged("failed to convert  to gid"));
  EXPECT_TRUE(Logged("group [2001]'s member count has changed from [3] to [1]"));
  EXPECT_FALSE(Logged("group [2002]'s member count"));
  EXPECT_EQ(Members(), StringList{"2001|carol"});
  EXPECT_EQ(Rows("SELECT group_desc FROM group_table WHERE gid=2001"), StringList{"fewer"});

  SetMembers("alice");  // as many, but somebody else
  EXPECT_TRUE(Group().Set({kAll[0]}));
  EXPECT_FALSE(Logged("member count"));
  EXPECT_EQ(Members(), StringList{"2001|alice"});
  SetMembers("");
  EXPECT_TRUE(Group().Set({kAll[0]}));
  EXPECT_EQ(Members(), StringList{});
}

TEST_F(GroupControl, UnchangedMembersAreNotWritten) {
  EXPECT_TRUE(Group().Create({kAll[0], kAll[1]}));
  FailOn(kBatch, "group_to_user_table");
  EXPECT_TRUE(Group().Set({kAll[0], kAll[1]}));
  SetMembers("Bob,alice");
  EXPECT_TRUE(Group().Set({kAll[0], kAll[1]}));
}

TEST_F(GroupControl, NoGroupsAskNothing) {
  WriteAccounts("", "");  // an account system without users fails whoever asks it
  EXPECT_TRUE(Group().Create({}));
  EXPECT_TRUE(Group().Set({}));
  EXPECT_FALSE(Group().Set({kAll[1]}));
  EXPECT_TRUE(Logged("Failed to TryToGetAllZelmUsers"));
  EXPECT_TRUE(Logged("Failed to _UpdateUsersBelongToGroups"));
  TakeLog();
}

TEST_F(GroupControl, PartOfTheUsersIsEnoughForTheirGroups) {
  WriteAccounts(std::string(kPeople) + "dave:x:no number:100:d:/:/bin/sh\n",
                "staff:x:2001:alice\n");
  EXPECT_TRUE(Group().Create({kAll[0]}));
  EXPECT_TRUE(Logged("!is_all_success, only get [3] zelm_users"));
  EXPECT_EQ(Members(), StringList{"2001|alice"});
  TakeLog();
}

TEST_F(GroupControl, WhatFailingStepsLeaveBehind) {
  const Groups groups = {{2001, "staff", "d"}, {2004, "other", "d"}};
  const auto start = [&] {
    WriteAccounts(kPeople, "staff:x:2001:alice\nother:x:2004:carol\n");
    ASSERT_TRUE(Group().Create(groups) && Group().Set(groups));
    // A member whom nobody knows: group by group, as only that tells of it.
    WriteAccounts(kPeople, "staff:x:2001:alice,Bob,gone\nother:x:2004:Bob,gone\n");
  };
  start();
  const FailingStep steps[] = {
      {kBatch, "UPDATE group_table", "fail to update group_table\nFailed to set groups",
       "2001|alice, 2004|carol"},
      {kBatch, "INSERT OR IGNORE INTO  user_table",
       "fail to insert user_table\nFailed to create users\nFailed to _UpdateUsersBelongToGroups",
       "2001|alice, 2004|carol"},
      {kBatch, "DELETE FROM group_to_user_table WHERE gid = 2004",
       "fail to delete from group_to_user_table\nFailed to DeleteGroupToUsers, gid: [2004]",
       "2001|alice, 2001|Bob, 2004|carol"},
      {kBatch, "VALUES ('2004'",
       "fail to update group_to_user_table\nFailed to SetGroupToUsers [other]",
       "2001|alice, 2001|Bob"},
  };
  ExpectStops(
      steps, [&] { return Group().Set(groups); },
      [&] {
        const StringList members = Members();
        start();
        return Text(members);
      });

  // A group whose members cannot be told is skipped.
  FailOn("KORVGroupListMember", "staff");
  EXPECT_TRUE(Group().Set(groups));
  EXPECT_TRUE(Logged("Failed to KORVGroupListMember staff"));
  EXPECT_TRUE(Logged("Failed to _GetUsersFromGroup [staff], skip"));
  EXPECT_EQ(Members(), (StringList{"2001|alice", "2004|Bob"}));
}

// Many groups are compared with what is stored, and written together where they have no members;
// one group at a time is written as it stands. Names and members may be anything. A membership of a
// number that is none makes all rows of a changed group be written anew.
TEST_F(GroupControl, ManyGroupsAreWrittenAsOneByOne) {
  constexpr const char* kOddRow =
      "INSERT INTO group_table VALUES(4294967295, 'odd', '');"
      "INSERT INTO group_to_user_table VALUES(4294967295, 1001);";
  const auto run = [this](const std::string& sql, bool creates, const std::vector<Groups>& calls,
                          const std::string& rowid = "rowid") {
    Run(sql);
    StringList all;
    for (const Groups& groups : calls) {
      EXPECT_TRUE(creates ? Group().Create(groups) : Group().Set(groups));
    }
    for (const LogLine& line : TakeLog()) {
      all.push_back(line.text.substr(line.text.find(' ')));
    }
    std::sort(all.begin(), all.end());  // all members are looked for before one is written
    Run("DELETE FROM group_to_user_table WHERE gid = 4294967295;"
        "DELETE FROM group_table WHERE gid = 4294967295");
    for (const char* table : {"group_table", "group_to_user_table", "user_table"}) {
      for (const std::string& row :
           Rows("SELECT " + rowid + ", * FROM " + table + " ORDER BY 1, 2, 3")) {
        all.push_back(row);
      }
    }
    return all;
  };
  EXPECT_TRUE(Group().Create({kAll[1]}));  // makes the tables
  for (int model = 0; model < 60; ++model) {
    const bool creates = Draw(2) == 0;
    const bool has_no_members = creates && Draw(2) == 0;
    std::string group_file;
    Groups groups;
    std::vector<Groups> singly;
    for (unsigned gid = creates ? 498 : 500; gid < (creates ? 507 : 505); ++gid) {
      const std::string name = "g" + std::to_string(gid);
      group_file += name + ":x:" + std::to_string(gid) + ":" +
                    OneOf({"", "anna,ben", "ben,Anna,gone", "gone", "carl", "ben,ANNA"}) + "\n";
      groups.emplace_back(gid, name, OneOf({"", "", "d", "e'"}));
      singly.push_back({groups.back()});
    }
    WriteAccounts("anna:x:1003:9::/:\nben:x:1001:9::/:\nAnna:x:1005:9::/:\ncarl:x:1020:9::/:\n",
                  group_file);
    const std::string sql =
        RandomModel() + "UPDATE group_table SET group_name = " +
        OneOf({"'g' || gid", "'g'", "NULL", "CAST('g' || gid AS BLOB)"}) +
        ", group_desc = " + OneOf({"''", "'d'", "NULL", "5"}) + " WHERE gid <> " + Gid() + ";" +
        (has_no_members ? "DELETE FROM group_to_user_table;" : "") +
        "DROP TABLE IF EXISTS joining_user_table;DROP TABLE IF EXISTS joining_group_table;";
    const StringList plain = run(sql, creates, singly);
    EXPECT_EQ(run(sql, creates, {groups}), plain) << sql << group_file;
    if (!creates) {
      EXPECT_EQ(Text(run(sql, creates, {groups}, "0")),
                Text(run(sql + kOddRow, creates, {groups}, "0")))
          << sql << group_file;
    }
    if (HasFailure()) {
      return;
    }
  }
}

}  // namespace
