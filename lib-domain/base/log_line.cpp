// The head of a log line: the unit's name, the line, the message format.
#include "lib-domain/base/log_line.h"

namespace MDOMAIN::BASE {

namespace {

// Units of several files: what the files' paths begin with, and the name that all of them log
// under.
struct SpreadUnit {
  const char* files;
  const char* name;
};
constexpr SpreadUnit kSpreadUnits[] = {
    {"lib-domain/api/bcc/", "lib-domain/api/bcc"},
    {"lib-domain/api/disclaimer/", "lib-domain/api/mimedefang"},
    {"lib-domain/api/domain_user_", "lib-domain/api/domain_user"},
    {"lib-domain/control/dkim_settings", "lib-domain/control/domain"},
    {"lib-domain/control/domain_group_", "lib-domain/control/domain_group"},
    {"lib-domain/control/domain_settings", "lib-domain/control/domain"},
    {"lib-domain/control/domain_user_", "lib-domain/control/domain_user"},
    {"lib-domain/db/domain_user_", "lib-domain/db/domain_user"},
    {"lib-domain/db/look_up", "lib-domain/db/domain_user"},
    {"lib-domain/db/model_state", "lib-domain/db/domain"},
    {"lib-domain/accounts/alias_", "lib-domain/utils/default_alias_getter"},
    {"lib-domain/accounts/net_output", "lib-domain/utils/default_alias_getter"},
    {"lib-domain/sync/auto_add", "lib-domain/utils/updater"},
    {"lib-domain/sync/first_domain", "lib-domain/utils/updater"},
    {"lib-domain/sync/publication", "lib-domain/utils/updater"},
    {"lib-domain/sync/refresh", "lib-domain/utils/updater"},
};

constexpr std::string_view kOwnPath = "lib-domain/base/log_line.cpp";

// What the compiler puts before the paths of this tree: this file's own path shows it.
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

std::string TreePath(const char* file) {
  static const auto& kPrefix = *new std::string(TreePrefix());
  const std::string path = WithoutEnding(file);
  if (!kPrefix.empty() && path.compare(0, kPrefix.size(), kPrefix) == 0) {
    return path.substr(kPrefix.size());
  }
  // Another part of the build may have named the tree by another folder than this file's.
  const size_t at = path.rfind("/lib-domain/");
  return at == std::string::npos ? path : path.substr(at + 1);
}

}  // namespace

std::string SourcePath(const char* file) {
  std::string path = TreePath(file);
  for (const SpreadUnit& unit : kSpreadUnits) {
    if (path.rfind(unit.files, 0) == 0) {
      return unit.name;
    }
  }
  return path;
}

void FormatLogHead(char (&buffer)[kLogBufferSize], const char* file, int line, const char* format) {
  std::snprintf(buffer, kLogBufferSize, "%s:%d %s", SourcePath(file).c_str(), line, format);
}

}  // namespace MDOMAIN::BASE
