// The form of every log line of this library: "SOURCE:LINE MESSAGE".
//
// The source is the path from the top of the tree without its ending (lib-domain/api/domain). A
// unit that is spread over several files logs under one name, which programs look for: the table of
// such units stands in log_line.cpp.
#ifndef LIB_DOMAIN_BASE_LOG_LINE_H
#define LIB_DOMAIN_BASE_LOG_LINE_H

#include <cstddef>
#include <cstdio>
#include <string>

#include "platform/include/maillog.h"

namespace MDOMAIN::BASE {

using korvmailserver::kLogError;
using korvmailserver::kLogNotice;
using korvmailserver::kLogWarning;

// A line's head and message format, cut at 2047 bytes.
constexpr size_t kLogBufferSize = 2048;

// The name of the unit that `file` belongs to: its path from the top of the tree on
// ("lib-domain/..."), without its ending, whatever folder the compiler was given, or the name that
// all files of the unit share.
std::string SourcePath(const char* file);

// Writes "SOURCE:LINE FORMAT" into `buffer` as it stands: the format's own placeholders are
// expanded by maillog afterwards.
void FormatLogHead(char (&buffer)[kLogBufferSize], const char* file, int line, const char* format);

// Lets the compiler check a message's format; never called.
inline void CheckLogFormat(const char* /*format*/, ...) __attribute__((format(printf, 1, 2)));
inline void CheckLogFormat(const char* /*format*/, ...) {}

}  // namespace MDOMAIN::BASE

// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#define MDOMAIN_LOG_AT(level, file, line, format, ...)                                       \
  do {                                                                                       \
    if (false) {                                                                             \
      MDOMAIN::BASE::CheckLogFormat(format, ##__VA_ARGS__);                                  \
    }                                                                                        \
    char mdomain_log_buffer[MDOMAIN::BASE::kLogBufferSize] = {};                             \
    MDOMAIN::BASE::FormatLogHead(mdomain_log_buffer, file, line, format);                    \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wformat-nonliteral\"") \
        _Pragma("GCC diagnostic ignored \"-Wformat-security\"")                              \
            maillog(level, mdomain_log_buffer, ##__VA_ARGS__);                               \
    _Pragma("GCC diagnostic pop")                                                            \
  } while (false)

#define MDOMAIN_LOG(level, format, ...) \
  MDOMAIN_LOG_AT(level, __FILE__, __LINE__, format, ##__VA_ARGS__)

// For a helper that gives up on behalf of its caller and names the caller's source and line.
#define LOG_ERROR_AT(file, line, format, ...) \
  MDOMAIN_LOG_AT(MDOMAIN::BASE::kLogError, file, line, format, ##__VA_ARGS__)
#define LOG_ERROR(format, ...) MDOMAIN_LOG(MDOMAIN::BASE::kLogError, format, ##__VA_ARGS__)
#define LOG_NOTICE(format, ...) MDOMAIN_LOG(MDOMAIN::BASE::kLogNotice, format, ##__VA_ARGS__)
#define LOG_WARNING(format, ...) MDOMAIN_LOG(MDOMAIN::BASE::kLogWarning, format, ##__VA_ARGS__)
// NOLINTEND(cppcoreguidelines-macro-usage)

#endif  // LIB_DOMAIN_BASE_LOG_LINE_H
