// The mail server's log: syslog, facility mail, with one process-wide sink in front of it.
#ifndef PLATFORM_MAILLOG_H
#define PLATFORM_MAILLOG_H

#include <functional>
#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// Levels of log lines.
constexpr int kLogError = 3;
constexpr int kLogNotice = 2;
constexpr int kLogWarning = 1;

}  // namespace korvmailserver

// Writes one line at one of these levels; any other number counts as a notice. `format` is a printf
// format in which "%m" is the text of errno at the time of the call; errno is left as it was. A
// trailing line end is dropped, and line ends inside the text become blanks, so one call is one
// line of any length. Safe in destructors of static objects. Without a syslog daemon the line is
// lost and nothing fails.
MDOMAIN_EXPORT void maillog(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

namespace korvmailserver {

// Receives (level, expanded line). Return true to keep the line from syslog. A line that the sink
// itself logs goes to syslog only; an exception out of it is dropped and syslog gets the line.
using MailLogSink = std::function<bool(int level, const std::string& line)>;

// Puts `sink` in front of syslog for the whole process; an empty one removes it. Returns the sink
// before it. The last sink is kept until the process ends, so what it refers to must live as long,
// or the sink be removed first.
MDOMAIN_EXPORT MailLogSink SetMailLogSink(MailLogSink sink);

}  // namespace korvmailserver

#endif  // PLATFORM_MAILLOG_H
