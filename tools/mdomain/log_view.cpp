// Both views are sinks in front of the log; the progress of a refresh is read from its notices.
#include "tools/mdomain/log_view.h"

#include <unistd.h>

#include <iostream>
#include <string>

#include "lib-domain/base/log_line.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr const char* kClearLine = "\r\033[K";

bool progress_shown = false;

void Status(const std::string& text) {
  std::cerr << kClearLine << text << std::flush;
  progress_shown = true;
}

void ClearStatus() {
  if (progress_shown) {
    std::cerr << kClearLine << std::flush;
    progress_shown = false;
  }
}

const char* Name(int level) {
  if (level == MDOMAIN::BASE::kLogError) {
    return "error";
  }
  return level == MDOMAIN::BASE::kLogWarning ? "warning" : "notice";
}

// The refresh reports its statistics in notices; each notice ends one stretch of work.
void FollowRefresh(const std::string& line) {
  if (line.find(" zelm_users,") != std::string::npos) {
    Status("users read, writing them and reading groups ...");
  } else if (line.find(" zelm_groups,") != std::string::npos) {
    Status("groups read, writing them and adding new accounts to domains ...");
  }
}

}  // namespace

void ShowLog(bool verbose) {
  const bool keep_from_syslog = !korvmailserver::RootPrefix().empty();
  korvmailserver::SetMailLogSink([=](int level, const std::string& line) {
    if (verbose || level == MDOMAIN::BASE::kLogError || level == MDOMAIN::BASE::kLogWarning) {
      ClearStatus();
      std::cerr << "mdomain: " << Name(level) << ": " << Printable(line) << "\n";
    }
    return keep_from_syslog;
  });
}

Progress::Progress() {
  if (isatty(STDERR_FILENO) == 0) {
    return;
  }
  Status("reading users ...");
  const auto shown = korvmailserver::SetMailLogSink(nullptr);
  korvmailserver::SetMailLogSink([shown](int level, const std::string& line) {
    const bool kept = shown && shown(level, line);
    FollowRefresh(line);
    return kept;
  });
}

Progress::~Progress() {
  ClearStatus();
}

}  // namespace mdomain
