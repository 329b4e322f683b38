#include "platform/include/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>

#include "tests/support/children.h"
#include "tests/support/fixture.h"

namespace {

class ProcessTest : public test::RootTest {
 protected:
  ~ProcessTest() override { KLIBCPopenSetDeadline(0); }

  struct Result {
    std::string output;
    bool read_failed;
    int status;
  };
  static Result Shell(const std::string& script) {
    const char* const argv[] = {"sh", "-c", script.c_str(), nullptr};
    FILE* stream = KLIBCPopenv("/bin/sh", "r", argv);
    if (stream == nullptr) {
      return {"not started", true, -1};
    }
    Result result{};
    char part[1000];
    size_t count = 0;
    while ((count = fread(part, 1, sizeof(part), stream)) > 0) {
      result.output.append(part, count);
    }
    result.read_failed = ferror(stream) != 0;
    result.status = KLIBCPclose(stream);
    return result;
  }
  static std::chrono::seconds Since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                            start);
  }
};

TEST_F(ProcessTest, HandsOverArgumentsUnchangedAndNoInput) {
  const char* const argv[] = {"printf", "[%s]", "a b", "$(id)", "'\"*", "", "ü\n", nullptr};
  FILE* stream = KLIBCPopenv("/usr/bin/printf", "r", argv);
  ASSERT_NE(stream, nullptr);
  char line[100] = {};
  EXPECT_GT(fread(line, 1, sizeof(line) - 1, stream), 0U);
  EXPECT_STREQ(line, "[a b][$(id)]['\"*][][ü\n]");
  EXPECT_EQ(KLIBCPclose(stream), 0);
  EXPECT_EQ(Shell("cat; echo end").output, "end\n");
}

TEST_F(ProcessTest, TellsHowProgramsEnd) {
  EXPECT_EQ(Shell("exit 0").status, 0);
  EXPECT_EQ(Shell("echo no such realm >&2; exit 255").status, 255);
  EXPECT_EQ(KLIBCPopenErrorText(), "no such realm\n");
  EXPECT_TRUE(Logged("Program [/bin/sh] ended with status 255: no such realm"));
  EXPECT_EQ(Shell("kill -TERM $$").status, 128 + SIGTERM);
  EXPECT_EQ(KLIBCPopenErrorText(), "");
  EXPECT_EQ(KLIBCExec("/bin/sh", {"-c", "echo to nobody; exit \"$1\"", "sh", "7"}), 7);
  EXPECT_EQ(KLIBCExec("/bin/true", {}), 0);
}

TEST_F(ProcessTest, CannotStartIsNotAnExitStatus) {
  const char* const argv[] = {"x", nullptr};
  Write("/not-executable", "#!/bin/sh\n");
  errno = 0;
  EXPECT_EQ(KLIBCPopenv("/no/such/program", "r", argv), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(KLIBCExec(root() + "/not-executable", {}), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(KLIBCPopenv("/bin/sh", "w", argv), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(KLIBCPclose(stdin), -1);
}

TEST_F(ProcessTest, LongOutputsOnBothSidesDoNotBlockEachOther) {
  const Result both = Shell(
      "i=0; while [ $i -lt 300 ]; do printf '%01000d' 0; printf '%01000d' 0 >&2; i=$((i+1)); done");
  EXPECT_EQ(both.status, 0);
  EXPECT_EQ(both.output.size(), 300000U);
  EXPECT_EQ(KLIBCPopenErrorText().size(), 4096U);
  EXPECT_EQ(Shell("exec >&-; head -c 300000 /dev/zero >&2; exit 3").status, 3);
}

TEST_F(ProcessTest, ClosingEarlyEndsTheProgramQuietly) {
  const char* const argv[] = {"yes", nullptr};
  FILE* stream = KLIBCPopenv("/usr/bin/yes", "r", argv);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fgetc(stream), 'y');
  EXPECT_EQ(KLIBCPclose(stream), 128 + SIGPIPE);
  EXPECT_TRUE(TakeLog().empty());
}

TEST_F(ProcessTest, TheDeadlineEndsSilentTalkativeAndClosedPrograms) {
  EXPECT_EQ(KLIBCPopenSetDeadline(1), 0);
  const std::pair<const char*, bool> cases[] = {
      {"echo begun; sleep 60", true},                          // the reader waits
      {"echo begun; sleep 60 & wait", true},                   // what it started holds the output
      {"echo begun; while :; do echo error >&2; done", true},  // never a pause
      // The reader is done, the program is not and ignores what it can.
      {"trap '' TERM PIPE HUP; echo begun; exec >&- 2>&-; while :; do sleep 1; done", false},
  };
  for (const auto& [script, read_fails] : cases) {
    SCOPED_TRACE(script);
    const auto start = std::chrono::steady_clock::now();
    const Result result = Shell(script);
    EXPECT_EQ(result.output, "begun\n");
    EXPECT_EQ(result.read_failed, read_fails);
    EXPECT_EQ(result.status, 128 + SIGKILL);
    EXPECT_LT(Since(start).count(), 10);
    EXPECT_TRUE(Logged("did not end in time and was killed"));
  }
  EXPECT_EQ(KLIBCExec("/bin/sleep", {"60"}), 128 + SIGKILL);
  EXPECT_EQ(KLIBCPopenSetDeadline(0), 1);
}

// A program started in the background keeps the error output open for its own life.
TEST_F(ProcessTest, DoesNotWaitForWhatTheProgramLeftRunning) {
  const auto start = std::chrono::steady_clock::now();
  const Result result = Shell("sleep 20 >/dev/null & echo done; echo told >&2");
  EXPECT_EQ(result.output, "done\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(KLIBCPopenErrorText(), "told\n");
  EXPECT_LT(Since(start).count(), 10);
}

TEST_F(ProcessTest, RunsWithTheGivenInputAndEnvironmentAlone) {
  Write("/hook",
        "#!/bin/sh\nwc -c\nenv | grep -vE '^(PWD|_|SHLVL)='\necho err >&2\nsleep 20 &\nexit 7\n");
  korvmailserver::ProgramCall call{root() + "/hook", {"A=b c"}, std::string(300000, 'x'), 0};
  EXPECT_EQ(korvmailserver::RunProgram(call).status, -1);
  EXPECT_EQ(errno, EACCES);
  ASSERT_EQ(chmod(call.path.c_str(), 0700), 0);
  const auto start = std::chrono::steady_clock::now();
  for (const bool has_standard_descriptors : {true, false}) {
    EXPECT_TRUE(test::InChild([&] {
      for (int fd = 0; !has_standard_descriptors && fd < 3; ++fd) {
        close(fd);
      }
      const korvmailserver::ProgramEnd end = korvmailserver::RunProgram(call);
      return end.output == "300000\nA=b c\nerr\n" && end.status == 7 && !end.is_late;
    }));
  }
  EXPECT_LT(Since(start).count(), 10);

  Write("/hook", "#!/bin/sh\nseq $1 \"$2\"; echo err >&2\n");
  korvmailserver::ProgramCall split = call;
  split.arguments = {"1", "9000"};
  split.is_split = true;
  const korvmailserver::ProgramEnd parts = korvmailserver::RunProgram(split);
  EXPECT_GT(parts.output.size(), 40000U);
  EXPECT_EQ(parts.errors, "err\n");

  Write("/hook", "#!/bin/sh\necho begun\nsleep 60 | cat\n");
  call.seconds = 1;
  const korvmailserver::ProgramEnd end = korvmailserver::RunProgram(call);
  EXPECT_TRUE(end.is_late);
  EXPECT_EQ(end.output, "begun\n");
  EXPECT_EQ(end.status, 128 + SIGKILL);
}

TEST_F(ProcessTest, HandsOnTheEffectiveIdsAsRealOnes) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to change ids";
  }
  ASSERT_EQ(setegid(65534), 0);
  ASSERT_EQ(seteuid(65534), 0);
  const Result result = Shell("grep -E '^[UG]id' /proc/self/status | tr -s '\\t\\n' ' '");
  EXPECT_EQ(seteuid(0), 0);
  EXPECT_EQ(setegid(0), 0);
  EXPECT_EQ(result.output, "Uid: 65534 65534 65534 65534 Gid: 65534 65534 65534 65534 ");
}

// A service without the standard descriptors hands out their numbers to our pipes.
TEST_F(ProcessTest, WorksWithClosedStandardDescriptors) {
  EXPECT_TRUE(test::InChild([] {
    close(0);
    close(1);
    close(2);
    const Result result = Shell("echo out; echo err >&2");
    return result.output == "out\n" && KLIBCPopenErrorText() == "err\n";
  }));
}

}  // namespace
