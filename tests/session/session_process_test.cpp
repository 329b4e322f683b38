// Sessions of a process that lives long: replaced files, other programs, threads, forks.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/support/session_fixture.h"

namespace {

using mdomain::Copy;
using mdomain::Reason;
using mdomain::Session;
using test::kAlice;
using test::kBob;
using test::kCarol;
using test::SessionTest;

namespace files = std::filesystem;
namespace PATHS = MDOMAIN::PATHS;

// As a restore does it: over the file, or another one in its place.
void Restore(const std::string& path, const std::string& kept, bool in_place) {
  if (in_place) {
    files::copy_file(kept, path, files::copy_options::overwrite_existing);
  } else {
    files::copy_file(kept, path + ".new");
    files::rename(path + ".new", path);
  }
}

TEST_F(SessionTest, FilesThatAreReplacedOrMissingAreFollowed) {
  const auto add_alias = [](Session& session) {
    return bool(session.SetUser(1, kBob, {{}, {}, {"new"}, {}}));
  };
  const struct {
    std::string path;
    std::function<bool(Session&)> change;
    std::function<bool(Session&)> is_changed;
  } cases[] = {
      {DbPath(), add_alias,
       [](Session& session) { return session.Owner("new@a.example")->has_value(); }},
      {PATHS::SettingsDb(),
       [](Session& session) {
         return bool(session.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}));
       },
       [](Session& session) { return !session.Copies(1)->empty(); }},
      {PATHS::AliasDb(),
       [](Session& session) {
         return bool(session.CreateEntry(1, {"team", {"bob"}, {}, {}, ""}));
       },
       [](Session& session) { return !session.Entries(1)->empty(); }},
  };
  ASSERT_TRUE(session_.CreateEntry(2, {"all", {"bob"}, {}, {}, ""}));
  for (const auto& one : cases) {
    for (const bool in_place : {true, false}) {
      SCOPED_TRACE(one.path + (in_place ? " in place" : " renamed"));
      files::copy_file(one.path, one.path + ".kept", files::copy_options::overwrite_existing);
      ASSERT_TRUE(one.change(session_));
      ASSERT_TRUE(one.is_changed(session_));
      Restore(one.path, one.path + ".kept", in_place);
      EXPECT_FALSE(one.is_changed(session_));
      EXPECT_TRUE(session_.SetDomain(1, {{}, in_place ? "in place" : "renamed", {}, {}}));
      EXPECT_FALSE(one.is_changed(session_));
    }
    files::rename(one.path, one.path + ".away");
    EXPECT_FALSE(one.change(session_)) << one.path;
    EXPECT_FALSE(files::exists(one.path));
    EXPECT_EQ(Configured("virtual_multiple_domain"), "1/a.example, 2/b.example");
    files::rename(one.path + ".away", one.path);
    EXPECT_TRUE(one.change(session_)) << one.path;
  }
  files::rename(DbPath(), DbPath() + ".away");
  EXPECT_NE(ReasonOf(session_.Domains()), Reason::kNotFound);
  EXPECT_NE(ReasonOf(session_.Refresh()), Reason::kNotFound);
  EXPECT_NE(ReasonOf(session_.Publish()), Reason::kNotFound);
  files::rename(DbPath() + ".away", DbPath());
  // That of another host.
  files::copy_file(DbPath(), DbPath() + ".other");
  test::SqliteFile(DbPath() + ".other")
      .Run("UPDATE domain_table SET domain_name = 'other.example' WHERE domain_idx = 2");
  Restore(DbPath(), DbPath() + ".other", false);
  EXPECT_FALSE(session_.As(kAlice).FindDomain("b.example")->has_value());
  EXPECT_TRUE(session_.As(kAlice).FindDomain("other.example")->has_value());
  EXPECT_TRUE(session_.Publish());
  EXPECT_EQ(Configured("virtual_multiple_domain"), "1/a.example, 2/other.example");
  TakeLog();
}

TEST_F(SessionTest, WaitsForOthers) {
  const int held = open(PATHS::LockFile().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"c.example"})), Reason::kBusy);
  // Readers do not wait for one that waits.
  std::thread waiting([] { EXPECT_TRUE(Session({60, "waits"}).CreateDomain({"c.example"})); });
  EXPECT_EQ(session_.Domains()->size(), 2u);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"d.example"})), Reason::kBusy);
  close(held);
  waiting.join();
  EXPECT_EQ(session_.Domains()->size(), 3u);
}

TEST_F(SessionTest, ManyThreadsTakeTurns) {
  std::vector<std::thread> threads;
  threads.reserve(6);
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([this, i] {
      Session own = i % 2 == 0 ? session_ : Session({30, "thread"});
      const std::string alias = "t" + std::to_string(i);
      for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(own.SetUser(1, kCarol, {{}, {}, {alias}, {}}));
        EXPECT_EQ(own.Domains()->size(), 2u);
        EXPECT_EQ((*own.Owner(alias + "@a.example")).value_or("-"), "carol");
        EXPECT_TRUE(own.SetUser(1, kCarol, {{}, {}, {}, {alias}}));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(session_.FindUser(1, kCarol)->value().aliases.size(), 1u);
}

TEST_F(SessionTest, AForkedChildBeginsAnew) {
  for (int round = 0; round < 3; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      const bool is_done = bool(session_.SetUser(1, kCarol, {{}, {}, {"child"}, {}})) &&
                           session_.Domains()->size() == 2;
      _exit(is_done ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ((*session_.Owner("child@a.example")).value_or("-"), "carol");
    ASSERT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {}, {"child"}}));
  }
}

}  // namespace
