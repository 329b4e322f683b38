// Log lines: expanded, made one line, offered to the sink, else sent to syslog.
//
// The sink is kept in memory that is never given back: destructors of static objects log too, and
// they run after the static objects of this file would be gone.
#include "platform/include/maillog.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

korvmailserver::MailLogSink& Sink() {
  static auto* sink = new korvmailserver::MailLogSink();
  return *sink;
}

// `error` is the errno that "%m" stands for. A format that cannot be expanded is shown as it is.
__attribute__((format(printf, 1, 0))) std::string Expand(const char* format, va_list args,
                                                         int error) {
  char* text = nullptr;
  errno = error;
  const int length = vasprintf(&text, format, args);
  if (length < 0) {
    return format;
  }
  const std::unique_ptr<char, void (*)(void*)> holder(text, std::free);
  return {text, static_cast<size_t>(length)};
}

// Quoted text may hold line ends, and a second line could pose as an entry of its own. A zero byte
// would end the line for syslog.
void MakeOneLine(std::string& line) {
  line.erase(line.find_last_not_of("\r\n") + 1);
  for (char& c : line) {
    if (c == '\n' || c == '\r' || c == '\0') {
      c = ' ';
    }
  }
}

int Priority(int level) {
  switch (level) {
    case korvmailserver::kLogError:
      return LOG_ERR;
    case korvmailserver::kLogWarning:
      return LOG_WARNING;
    default:
      return LOG_NOTICE;
  }
}

// True when the sink keeps the line to itself. A line logged by the sink goes to syslog: offered to
// the sink again it would never end.
bool Offer(int level, const std::string& line) {
  static thread_local bool inside = false;
  if (inside || !Sink()) {
    return false;
  }
  const korvmailserver::MailLogSink sink = Sink();  // it may replace itself while it runs
  inside = true;
  bool kept = false;
  try {
    kept = sink(level, line);
  } catch (...) {  // most lines come from failure paths and destructors: syslog has it instead
  }
  inside = false;
  return kept;
}

}  // namespace

void maillog(int level, const char* format, ...) {
  const int error = errno;
  va_list args;
  va_start(args, format);
  std::string line = Expand(format, args, error);
  va_end(args);
  MakeOneLine(line);
  if (!Offer(level, line)) {
    syslog(LOG_MAIL | Priority(level), "%s", line.c_str());
  }
  errno = error;
}

namespace korvmailserver {

MailLogSink SetMailLogSink(MailLogSink sink) {
  return std::exchange(Sink(), std::move(sink));
}

}  // namespace korvmailserver
