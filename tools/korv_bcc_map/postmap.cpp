#include "tools/korv_bcc_map/postmap.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>
#include <vector>

#include "platform/include/files.h"
#include "platform/include/process.h"

namespace korv_bcc_map {

namespace {

constexpr const char* kPostmap = "/usr/sbin/postmap";
constexpr const char* kPostconf = "/usr/sbin/postconf";
constexpr mode_t kMode = 0640;
constexpr int kDeadline = 300;  // seconds for one run of either
constexpr const char* kCompiledTypes[] = {"hash", "lmdb", "btree", "cdb"};

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result Run(const char* program, const std::vector<const char*>& arguments) {
  std::vector<const char*> argv = {program};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  argv.push_back(nullptr);
  KLIBCPopenSetDeadline(kDeadline);
  FILE* stream = KLIBCPopenv(program, "r", argv.data());
  if (stream == nullptr) {
    throw Failure(std::string(program) + ": " + strerror(errno) + ": is Postfix installed?");
  }
  Result result;
  std::array<char, 4096> buffer;
  while (const size_t size = fread(buffer.data(), 1, buffer.size(), stream)) {
    result.output.append(buffer.data(), size);
  }
  result.status = KLIBCPclose(stream);
  result.errors = KLIBCPopenErrorText();
  return result;
}

std::vector<std::string> Words(const Result& result) {
  if (result.status != 0) {
    throw Failure(std::string(kPostconf) + " failed: " + result.errors);
  }
  std::istringstream in(result.output);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

void Sync(const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags | O_RDONLY | O_CLOEXEC);
  const bool done = fd >= 0 && fsync(fd) == 0;
  const int error = errno;
  if (fd >= 0) {
    close(fd);
  }
  if (!done) {
    throw Failure(path + ": " + strerror(error));
  }
}

// Before the rename: at its place a file never has other rights. postmap has run by then, which
// would give up its own rights for those of the owner of the text.
void GiveAway(const std::string& path) {
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) < 0) {
    throw Failure(std::string("there is no account ") + korvmailserver::kServiceAccount);
  }
  if ((geteuid() == 0 && lchown(path.c_str(), uid, 0) != 0) || chmod(path.c_str(), kMode) != 0) {
    throw Failure(path + ": " + strerror(errno));
  }
}

void Rename(const std::string& from, const std::string& to) {
  GiveAway(from);
  if (rename(from.c_str(), to.c_str()) != 0) {
    throw Failure(to + ": " + strerror(errno));
  }
}

}  // namespace

std::string MapType() {
  const std::vector<std::string> preferred =
      Words(Run(kPostconf, {"-hx", "default_database_type"}));
  const std::vector<std::string> all = Words(Run(kPostconf, {"-m"}));
  const std::set<std::string> known(all.begin(), all.end());
  for (const char* type : kCompiledTypes) {
    if (!preferred.empty() && preferred.front() == type && known.count(type) != 0) {
      return type;
    }
  }
  for (const char* type : kCompiledTypes) {
    if (known.count(type) != 0) {
      return type;
    }
  }
  throw Failure("this Postfix has no map type that is compiled");
}

std::string Ending(const std::string& type) {
  return type == "hash" || type == "btree" ? ".db" : "." + type;
}

void Compile(const std::string& type, const std::string& path) {
  const std::string map = type + ":" + path;
  const Result result = Run(kPostmap, {map.c_str()});
  if (result.status != 0 || !result.errors.empty()) {
    throw Failure("postmap " + map + " (status " + std::to_string(result.status) +
                  "): " + result.errors);
  }
  Sync(path + Ending(type), 0);
}

void Install(const std::string& type, const std::string& from, const std::string& to) {
  Rename(from + Ending(type), to + Ending(type));
  Rename(from, to);
  Sync(to.substr(0, to.rfind('/')), O_DIRECTORY);
}

void InstallFile(const std::string& from, const std::string& to) {
  Rename(from, to);
  Sync(to.substr(0, to.rfind('/')), O_DIRECTORY);
}

}  // namespace korv_bcc_map
