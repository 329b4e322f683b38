// Dry runs of sessions.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/session_fixture.h"

namespace {

int waits_for_the_disk = 0;

}  // namespace

extern "C" int fsync(int /*file*/) {
  ++waits_for_the_disk;
  return 0;
}
extern "C" int fdatasync(int /*file*/) {
  ++waits_for_the_disk;
  return 0;
}

namespace {

using mdomain::Copy;
using mdomain::Error;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using test::kAlice;
using test::kBob;
using test::kCarol;
using test::kStaff;
using test::SessionTest;
using test::StringList;

std::string Sentences(const mdomain::ChangePlan& plan) {
  std::string text;
  for (const auto& change : plan.changes) {
    text += change.what + " " + change.change + ": " + change.text + "\n";
  }
  return text;
}

class TrialTest : public SessionTest {
 protected:
  // Every file but the lock, with its times and its content.
  StringList Files() const {
    StringList files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
      struct stat info {};
      if (entry.is_regular_file() && entry.path().filename() != "mdomain.lock" &&
          lstat(entry.path().c_str(), &info) == 0) {
        files.push_back(entry.path().string() + " " + std::to_string(info.st_ino) + " " +
                        std::to_string(info.st_mtim.tv_nsec) + " " +
                        std::to_string(info.st_ctim.tv_nsec) + " " +
                        Read(entry.path().string().substr(root().size())));
      }
    }
    std::sort(files.begin(), files.end());
    return files;
  }

  long long newest_ = 0;
};

// For every changing call: what a dry run tells is what the history then has, and it leaves every
// file as it is.
TEST_F(TrialTest, APlanIsWhatTheChangeThenDoes) {
  const std::string disclaimer = R"([{"id": 1, "name": "d", "enabled": true, "op": "or",
      "disabled_for_local_recipient": false, "exception_rule_list": [], "content_txt": "t",
      "content_html": "h", "match_rule_list": [
      {"target": "sender", "pattern_type": "email", "pattern": "*@b.example"}]}])";
  const Copy copy = {Copy::Of::kMailTo, "bob", "carol@a.example"};
  using Work = std::function<std::optional<Error>(Session&)>;
  const auto call = [](auto change) -> Work {
    return [change](Session& session) {
      const auto result = change(session);
      return result ? std::nullopt : std::make_optional(result.GetError());
    };
  };
  const std::pair<const char*, Work> cases[] = {
      {"gets", call([](Session& s) {
         return s.AddMembers(2, {{kCarol}, {}}, {"c", "bob"});
       })},
      {"leaves", call([](Session& s) { return s.RemoveGroups(1, {kStaff}); })},
      {"joins", call([](Session& s) {
         return s.AddMembers(1, {{}, {kStaff}});
       })},
      {"role", call([](Session& s) { return s.SetGroupRole(1, {kStaff}, Role::kDomainAdmin); })},
      {"stays out", call([](Session& s) { return s.RemoveUsers(1, {kAlice}); })},
      {"again", call([](Session& s) { return s.RestoreMembers(1, kStaff); })},
      {"gets", call([](Session& s) {
         return s.SetUser(2, kBob, {{}, {}, {"x"}, {}});
       })},
      {"several members", call([](Session& s) {
         return s.CreateEntry(2, {"team", {"bob"}, {}, {}, ""});
       })},
      {"also goes to", call([](Session& s) {
         return s.SetEntry(2, {"team", {"bob", "carol"}, {}, {}, ""});
       })},
      {"no longer goes", call([](Session& s) { return s.DeleteEntry(2, "team"); })},
      {"is copied to", call([copy](Session& s) { return s.AddCopies(2, {copy}); })},
      {"no longer copied", call([copy](Session& s) { return s.RemoveCopies(2, {copy}); })},
      {"are added", call([&](Session& s) { return s.SetDisclaimers(2, disclaimer); })},
      {"gets the name", call([](Session& s) { return s.AddNames(2, {"n.example"}); })},
      {"gets the name", call([](Session& s) { return s.SetNames(2, {"m.example"}); })},
      {"loses the name", call([](Session& s) { return s.RemoveNames(2, {"m.example"}); })},
      {"pattern", call([](Session& s) {
         return s.SetDomain(2, {{}, {}, "<1a>", {}});
       })},
      {"primary", call([](Session& s) { return s.MakePrimary(2); })},
      {"becomes", call([](Session& s) { return s.SetSetting("postmaster", "bob"); })},
      {"is created", call([](Session& s) { return s.CreateDomain({"c.example"}); })},
      {"is deleted", call([this](Session& s) { return s.Undo(newest_); })},
      {"is new", call([](Session& s) { return s.Refresh(); })},
      {"is deleted", call([](Session& s) { return s.DeleteDomains({1}); })},
      {"two", call([](Session& s) {
         return s.Together("two", [](Session& one) {
           return one.SetDomain(2, {{}, "two", {}, {}}) && one.RemoveUsers(2, {kCarol});
         });
       })},
  };
  for (const auto& one : cases) {
    const auto& [text, changing] = one;
    const auto& work = changing;
    SCOPED_TRACE(text);
    const auto newest = session_.History(1)->front();
    newest_ = newest.id;
    if (std::string(text) == "is new") {
      SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}});
    }
    const StringList files = Files();
    const int waits = waits_for_the_disk;
    const auto plan = session_.DryRun([&](Session& trial) -> mdomain::Result<mdomain::Nothing> {
      const std::optional<Error> error = work(trial);
      return error ? mdomain::Result<mdomain::Nothing>(*error) : mdomain::Nothing();
    });
    ASSERT_TRUE(plan) << plan.GetError().text;
    EXPECT_EQ(Files(), files);
    EXPECT_EQ(waits_for_the_disk, waits);
    const std::optional<Error> error = work(session_);
    ASSERT_FALSE(error) << error->text;
    EXPECT_GT(waits_for_the_disk, waits);
    const auto entry = session_.History(1)->front();
    EXPECT_NE(entry.id, newest.id);
    EXPECT_EQ(entry.summary, plan->summary);
    EXPECT_EQ(Sentences(session_.HistoryPlan(entry.id)->value_or(mdomain::ChangePlan())),
              Sentences(*plan));
    EXPECT_NE(Sentences(*plan).find(text == std::string("two") ? "loses" : text),
              std::string::npos);
  }
}

TEST_F(TrialTest, APublicationTellsWhatItWouldWrite) {
  const auto publish = [](Session& trial) { return trial.Publish(); };
  EXPECT_EQ(Sentences(*session_.DryRun(publish)), "");
  ASSERT_TRUE(session_.SetSetting("smtp_main_domain", "other.example", true));
  const StringList files = Files();
  EXPECT_EQ(Sentences(*session_.DryRun(publish)),
            "setting changed: setting smtp_main_domain becomes \"a.example\"\n");
  EXPECT_EQ(Files(), files);
  EXPECT_TRUE(publish(session_));
  EXPECT_EQ(Configured("smtp_main_domain"), "a.example");
  EXPECT_EQ(Sentences(*session_.DryRun(publish)), "");
}

// A refusal is the call's own, an exception takes nothing along, and afterwards changes are real.
TEST_F(TrialTest, ADryRunEndsWithItsCall) {
  const StringList before = Model();
  const auto wrong = [](Session& trial) { return trial.SetUser(2, kBob, {{}, {}, {"a b"}, {}}); };
  EXPECT_EQ(session_.DryRun(wrong).GetError().refused.size(), 1u);
  EXPECT_EQ(ReasonOf(session_.DryRun([](Session& trial) -> mdomain::Result<mdomain::Domain> {
              (void)trial.CreateDomain({"c.example"});
              throw std::runtime_error("no");
            })),
            Reason::kFailed);
  const auto within = [&](Session& trial) { return trial.DryRun(wrong); };
  EXPECT_EQ(ReasonOf(session_.DryRun(within)), Reason::kRefused);
  EXPECT_EQ(ReasonOf(session_.Together("x", [&](Session& one) { return bool(within(one)); })),
            Reason::kRefused);
  // Without the parameter it is a trial all the same: what counts is the thread.
  EXPECT_TRUE(session_.DryRun([&](Session&) { return session_.RemoveUsers(2, {kBob}); }));
  EXPECT_TRUE(session_.DryRun([](Session& trial) {
    (void)trial.SetSetting("acc_domain_name", "dir.example", true);
    return trial.SetSetting("account_type", "ldap", true);
  }));
  EXPECT_EQ(Model(), before);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 3; ++round) {
        const std::string alias = "t" + std::to_string(i);
        EXPECT_TRUE(session_.DryRun([](Session& trial) { return trial.DeleteDomains({2}); }));
        EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {alias}, {}}));
        EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {}, {alias}}));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Model(), before);
}

}  // namespace
