#include "platform/include/maillog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/fixture.h"

namespace {

std::string syslog_line;  // what reached syslog last: its priority

}  // namespace

// In front of the C library's, for the lines that no sink keeps.
extern "C" void syslog(int priority, const char* /*format*/, ...) {
  syslog_line = std::to_string(priority);
}

namespace {

// Logs when static objects are destroyed: before this file's own are, after the log's would be.
struct LateLogger {
  ~LateLogger() { maillog(3, "late %d", 1); }
};

class MaillogTest : public test::RootTest {
 protected:
  std::string Line() {
    const auto lines = TakeLog();
    return lines.size() == 1 ? lines[0].text : "not one line";
  }
};

TEST_F(MaillogTest, OneCallIsOneLine) {
  maillog(2, "%s", "two\nlines\r\n");
  EXPECT_EQ(Line(), "two lines");
  maillog(2, "%s|%s", "a\r\nSep 1 root: forged", "b");
  EXPECT_EQ(Line(), "a  Sep 1 root: forged|b");
  maillog(2, "%c%s", '\0', "after a zero byte");
  EXPECT_EQ(Line(), " after a zero byte");
  maillog(2, "%s", "\n\n");
  EXPECT_EQ(Line(), "");
}

TEST_F(MaillogTest, ExpandsLongLinesAndTheErrorOfTheCall) {
  const std::string longest(100000, 'x');
  maillog(1, "[%s]", longest.c_str());
  EXPECT_EQ(Line(), "[" + longest + "]");
  errno = ENOENT;
  maillog(1, "%s: %m (%d%%)", "file", 5);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Line(), "file: No such file or directory (5%)");
}

TEST_F(MaillogTest, WhatTheSinkDoesNotKeepGoesToSyslog) {
  int seen = 0;
  const auto before = korvmailserver::SetMailLogSink([&seen](int level, const std::string&) {
    ++seen;
    if (level == 1) {
      throw std::runtime_error("sink");
    }
    maillog(3, "a line of the sink itself");
    return level == 2;
  });
  struct {
    int level;
    const char* syslog;
  } cases[] = {{3, "19"}, {1, "20"}, {0, "21"}};  // LOG_MAIL | LOG_ERR, LOG_WARNING, LOG_NOTICE
  for (const auto& c : cases) {
    syslog_line.clear();
    maillog(c.level, "text");
    EXPECT_EQ(syslog_line, c.syslog) << "level " << c.level;
  }
  syslog_line.clear();
  maillog(2, "kept");
  EXPECT_EQ(syslog_line, "19") << "only the sink's own line";
  EXPECT_EQ(seen, 4);
  korvmailserver::SetMailLogSink(before);
}

TEST(MaillogDeathTest, LinesFromDestructorsOfStaticObjectsReachTheSink) {
  EXPECT_EXIT(
      {
        static LateLogger late;
        korvmailserver::SetMailLogSink([](int, const std::string& line) {
          std::fprintf(stderr, "sink: %s\n", line.c_str());
          return true;
        });
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "sink: late 1");
}

}  // namespace
