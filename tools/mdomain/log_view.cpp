// All views are sinks in front of the log; the progress of a refresh is read from its notices.
#include "tools/mdomain/log_view.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/progress.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/include/sqlite.h"
#include "tools/mdomain/notes.h"

namespace mdomain {
namespace {

const char* Name(int level) {
  if (level == MDOMAIN::BASE::kLogError) {
    return "error";
  }
  return level == MDOMAIN::BASE::kLogWarning ? "warning" : "notice";
}

// How log lines begin that this library wrote: the unit and the line, which mean nothing to an
// administrator.
constexpr const char* kUnit = "lib-domain/";

// What was logged and not shown, and of it the lines that say most about why a command failed.
struct Unshown {
  struct Error {
    std::string text;  // without its head
    bool is_librarys;
  };
  std::vector<Error> errors;
  std::string platform_error;   // names a file or a server, and what the system said
  std::string database_before;  // the failure of a database that was known by then
  std::string platform_warning;
};

Unshown& Kept() {
  static Unshown kept;
  return kept;
}

bool shows_errors = false;
bool shows_all = false;

struct HeldLine {
  int level;
  std::string text;
};
std::vector<HeldLine> held;
bool is_held = false;

bool IsLibrarys(const std::string& line) {
  return line.rfind(kUnit, 0) == 0;
}

std::string WithoutHead(const std::string& line) {
  return IsLibrarys(line) ? line.substr(line.find(' ') + 1) : line;
}

void Keep(int level, const std::string& line) {
  if (level == MDOMAIN::BASE::kLogError) {
    Kept().errors.push_back({WithoutHead(line), IsLibrarys(line)});
  }
  if (IsLibrarys(line)) {
    return;
  }
  if (level == MDOMAIN::BASE::kLogError) {
    Kept().platform_error = line;
    Kept().database_before = korvmailserver::LastDatabaseFailure();
  } else if (Kept().platform_warning.empty()) {
    Kept().platform_warning = line;
  }
}

void Show(int level, const std::string& line) {
  Note(std::string(Name(level)) + ": " + line);
}

void Take(int level, const std::string& line, bool verbose) {
  const bool is_notice = level == MDOMAIN::BASE::kLogNotice;
  if (!is_notice && is_held) {
    held.push_back({level, WithoutHead(line)});
  } else if (!is_notice) {
    Keep(level, line);
  }
  if (verbose) {
    Show(level, line);
  } else if (is_held) {
    return;
  } else if (level == MDOMAIN::BASE::kLogWarning ||
             (shows_errors && level == MDOMAIN::BASE::kLogError)) {
    Show(level, WithoutHead(line));
  }
}

// The refresh reports its statistics in notices; each notice ends one stretch of work.
void FollowRefresh(const std::string& line) {
  if (line.find(" zelm_users,") != std::string::npos) {
    ShowStatus("users read, writing them and reading groups ...");
  } else if (line.find(" zelm_groups,") != std::string::npos) {
    ShowStatus("groups read, writing them and adding new accounts to domains ...");
  }
}

// "40,000"
std::string WithSeparators(size_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3; at -= 3) {
    text.insert(at - 3, ",");
  }
  return text;
}

// When somebody began to wait.
std::chrono::steady_clock::time_point Begin() {
  static const auto begin = std::chrono::steady_clock::now();
  return begin;
}

// After a second, and then some times a second: a terminal is slower than the work.
void ShowCounts(const char* doing, size_t done, size_t total) {
  constexpr std::chrono::milliseconds kBefore(1000);
  constexpr std::chrono::milliseconds kPause(200);
  static auto last = Begin() + kBefore - kPause;
  const auto now = std::chrono::steady_clock::now();
  if (now - last < kPause) {
    return;
  }
  last = now;
  const std::string of = total == 0 ? "" : " of " + WithSeparators(total);
  ShowStatus(std::string(doing) + ": " + WithSeparators(done) + of);
}

}  // namespace

void ShowLog(bool verbose) {
  const bool keep_from_syslog = !korvmailserver::RootPrefix().empty();
  shows_errors = verbose;
  shows_all = verbose;
  korvmailserver::SetMailLogSink([=](int level, const std::string& line) {
    Take(level, line, verbose);
    return keep_from_syslog;
  });
}

void ShowErrorsAtOnce() {
  ShowNotes();
  shows_errors = true;
}

void ShowErrors() {
  // The library's tell what it did then, which needs no word where the platform said why.
  const bool is_told = !Kept().platform_error.empty() || !Kept().platform_warning.empty();
  for (const Unshown::Error& error : Kept().errors) {
    if (!shows_errors && !(is_told && error.is_librarys)) {
      Show(MDOMAIN::BASE::kLogError, error.text);
    }
  }
}

std::string WithCause(const std::string& message) {
  const Unshown& kept = Kept();
  const std::string& database = korvmailserver::LastDatabaseFailure();
  const std::string causes[] = {
      database == kept.database_before ? "" : database, kept.platform_error,
      kept.errors.empty() ? kept.platform_warning : kept.errors.front().text};
  const auto* cause = std::find_if(std::begin(causes), std::end(causes),
                                   [](const std::string& text) { return !text.empty(); });
  const bool said = cause == std::end(causes) || message.find(*cause) != std::string::npos;
  return said ? message : message + ": " + *cause;
}

void ForgetWarnings() {
  Kept().platform_warning.clear();
}

HeldLog::HeldLog() {
  held.clear();
  is_held = true;
}

HeldLog::~HeldLog() {
  is_held = false;
}

std::vector<std::string> HeldLog::Lines() const {
  std::vector<std::string> lines(held.size());
  std::transform(held.begin(), held.end(), lines.begin(),
                 [](const HeldLine& line) { return line.text; });
  return lines;
}

void HeldLog::Show(const std::string& said) const {
  const auto holds = [](const std::string& text, const std::string& part) {
    return !part.empty() && text.find(part) != std::string::npos;
  };
  for (const HeldLine& line : held) {
    if (!shows_all && !holds(said, line.text) && !holds(line.text, said)) {
      mdomain::Show(line.level, line.text);
    }
  }
}

Progress::Progress(bool wanted, const char* first) {
  if (!wanted || isatty(STDERR_FILENO) == 0) {
    return;
  }
  (void)Begin();
  MDOMAIN::BASE::ListenToProgress(ShowCounts);
  if (first != nullptr) {
    ShowStatus(std::string(first) + " ...");
  }
  const auto shown = korvmailserver::SetMailLogSink(nullptr);
  korvmailserver::SetMailLogSink([shown](int level, const std::string& line) {
    const bool kept = shown && shown(level, line);
    FollowRefresh(line);
    return kept;
  });
}

Progress::~Progress() {
  MDOMAIN::BASE::ListenToProgress({});
  ClearStatus();
}

}  // namespace mdomain
