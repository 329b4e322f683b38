#include "tests/support/fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/include/maillog.h"

namespace test {

namespace fs = std::filesystem;

RootTest::RootTest() {
  std::string name = (fs::temp_directory_path() / "mdomain-test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    std::abort();
  }
  root_ = name;
  setenv("MDOMAIN_ROOT", root_.c_str(), 1);
  korvmailserver::SetMailLogSink([this](int level, const std::string& text) {
    log_.push_back({level, text});
    return true;
  });
}

RootTest::~RootTest() {
  korvmailserver::SetMailLogSink(nullptr);
  unsetenv("MDOMAIN_ROOT");
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void RootTest::TearDown() {
  for (const LogLine& line : log_) {
    if (line.level == 3) {
      ADD_FAILURE() << "unannounced error line: " << line.text;
    }
  }
}

void RootTest::Write(const std::string& absolute_path, const std::string& bytes) {
  const fs::path path = root_ + absolute_path;
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string RootTest::Read(const std::string& absolute_path) const {
  std::ifstream in(root_ + absolute_path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void RootTest::WriteAccounts(const std::string& passwd, const std::string& group) {
  Write("/etc/passwd", passwd);
  Write("/etc/group", group);
  Write("/etc/login.defs", "UID_MIN 1000\nUID_MAX 60000\nGID_MIN 1000\nGID_MAX 60000\n");
}

std::vector<LogLine> RootTest::TakeLog() {
  return std::exchange(log_, {});
}

bool RootTest::Logged(const std::string& text) {
  for (auto line = log_.begin(); line != log_.end(); ++line) {
    if (line->text.find(text) != std::string::npos) {
      log_.erase(line);
      return true;
    }
  }
  return false;
}

}  // namespace test
