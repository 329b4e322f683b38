// The head of a log line: the source path below the top of the tree, the line, the message format.
#include "lib-domain/base/log_line.h"

namespace MDOMAIN::BASE {

namespace {

const std::string kOwnPath = "lib-domain/base/log_line.cpp";

// What the compiler puts before a path of this tree; this very file tells.
std::string TreePrefix() {
  const std::string file = __FILE__;
  const size_t at = file.rfind(kOwnPath);
  return at == std::string::npos ? std::string() : file.substr(0, at);
}

std::string WithoutEnding(const std::string& path) {
  const size_t dot = path.rfind('.');
  const size_t slash = path.rfind('/');
  const bool in_name = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return in_name ? path.substr(0, dot) : path;
}

}  // namespace

std::string SourcePath(const char* file) {
  static const std::string kPrefix = TreePrefix();
  const std::string path = WithoutEnding(file);
  if (!kPrefix.empty() && path.compare(0, kPrefix.size(), kPrefix) == 0) {
    return path.substr(kPrefix.size());
  }
  // Part of the build may have been given another folder than this file was.
  const size_t at = path.rfind("/lib-domain/");
  return at == std::string::npos ? path : path.substr(at + 1);
}

void FormatLogHead(char (&buffer)[kLogBufferSize], const char* file, int line, const char* format) {
  std::snprintf(buffer, kLogBufferSize, "%s:%d %s", SourcePath(file).c_str(), line, format);
}

}  // namespace MDOMAIN::BASE
