// Hooks run with the rights of whoever pulls, root as a rule. So what others could have put there
// is not run, and of the caller's environment they get nothing but the root prefix.
#include "lib-domain/sync/pull_hooks.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/process.h"
#include "platform/include/root_path.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

constexpr int kSeconds = 60;
constexpr char kSearchPath[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// What editors and package managers leave beside a program is none.
bool IsHookName(const std::string& name) {
  const auto is_plain = [](unsigned char byte) {
    return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z') || byte == '-' || byte == '_' || byte == '.';
  };
  const std::string backup = ".bak";
  const bool is_backup = name.size() >= backup.size() &&
                         name.compare(name.size() - backup.size(), backup.size(), backup) == 0;
  return name[0] != '.' && !is_backup && name.find(".dpkg-") == std::string::npos &&
         std::all_of(name.begin(), name.end(), is_plain);
}

// Whether nobody but root and the caller can have chosen what it holds.
bool IsTrusted(const struct stat& info) {
  return (info.st_uid == 0 || info.st_uid == geteuid()) &&
         (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::vector<std::string> Environment(long long version) {
  std::vector<std::string> variables = {kSearchPath, "MDOMAIN_VERSION=" + std::to_string(version)};
  if (const std::string root = korvmailserver::RootPrefix(); !root.empty()) {
    variables.push_back("MDOMAIN_ROOT=" + root);
  }
  return variables;
}

void LogOutput(const std::string& path, const std::string& output) {
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    LOG_NOTICE("hook [%s]: %s", path.c_str(), line.c_str());
  }
}

// Why it failed; empty when it did not.
std::string Run(const korvmailserver::ProgramCall& call) {
  const korvmailserver::ProgramEnd end = korvmailserver::RunProgram(call);
  const std::string reason = std::strerror(errno);
  LogOutput(call.path, end.output);
  if (end.status < 0) {
    return "could not be started: " + reason;
  }
  if (end.is_late) {
    return "did not end within " + std::to_string(call.seconds) + " seconds and was killed";
  }
  return end.status == 0 ? "" : "ended with status " + std::to_string(end.status);
}

void Fail(const std::string& failure, std::vector<std::string>& failures) {
  LOG_WARNING("%s", failure.c_str());
  failures.push_back(failure);
}

// The names of the files to run or to refuse, in the order of their bytes; none when the folder is
// missing or cannot be used.
void ListHooks(const std::string& folder, std::vector<std::string>& names,
               std::vector<std::string>& failures) {
  struct stat info {};
  if (stat(folder.c_str(), &info) != 0 && errno == ENOENT) {
    return;
  }
  if (postara::sdk::EnumDirectory(folder, names) < 0) {
    Fail("the hooks in " + folder + " cannot be listed: " + std::strerror(errno), failures);
  } else if (!IsTrusted(info)) {
    Fail("the hooks in " + folder + " are not run: others may write to the folder", failures);
    names.clear();
  }
}

void RunHook(const std::string& path, long long version, const std::string& input,
             std::vector<std::string>& failures) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
      (info.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) {
    return;
  }
  const std::string failure = IsTrusted(info) ? Run({path, Environment(version), input, kSeconds})
                                              : "is not run: others may write to it";
  if (!failure.empty()) {
    Fail("the hook " + path + " " + failure, failures);
  }
}

}  // namespace

bool RunPullHooks(long long version, const std::string& input, std::vector<std::string>& failures) {
  const std::string folder = PATHS::AfterPullHooks();
  const size_t before = failures.size();
  std::vector<std::string> names;
  ListHooks(folder, names, failures);
  for (const std::string& name : names) {
    if (IsHookName(name)) {
      RunHook(std::string(folder).append("/").append(name), version, input, failures);
    }
  }
  return failures.size() == before;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
