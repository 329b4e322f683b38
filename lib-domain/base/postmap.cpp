#include "lib-domain/base/postmap.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "platform/include/files.h"
#include "platform/include/process.h"

namespace MDOMAIN::BASE {

namespace {

constexpr const char* kPostmap = "/usr/sbin/postmap";
constexpr const char* kPostconf = "/usr/sbin/postconf";
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
  const int before = KLIBCPopenSetDeadline(kDeadline);
  FILE* stream = KLIBCPopenv(program, "r", argv.data());
  KLIBCPopenSetDeadline(before);
  if (stream == nullptr) {
    throw MapFailure(std::string(program) + ": " + strerror(errno) + ": is Postfix installed?");
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
    throw MapFailure(std::string(kPostconf) + " failed: " + result.errors);
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
    throw MapFailure(path + ": " + strerror(error));
  }
}

// Before the rename: at its place a file never has other rights. postmap has run by then, which
// would give up its own rights for those of the owner of the text.
void GiveAway(const std::string& path, mode_t mode) {
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) < 0) {
    throw MapFailure(std::string("there is no account ") + korvmailserver::kServiceAccount);
  }
  if ((geteuid() == 0 && lchown(path.c_str(), uid, 0) != 0) || chmod(path.c_str(), mode) != 0) {
    throw MapFailure(path + ": " + strerror(errno));
  }
}

void Rename(const std::string& from, const std::string& to, mode_t mode) {
  GiveAway(from, mode);
  if (rename(from.c_str(), to.c_str()) != 0) {
    throw MapFailure(to + ": " + strerror(errno));
  }
}

}  // namespace

std::string ChooseMapType(const std::string& preferred, const std::set<std::string>& known) {
  std::string first;
  for (const char* type : kCompiledTypes) {
    if (known.count(type) != 0 && (first.empty() || preferred == type)) {
      first = type;
    }
  }
  return first;
}

std::string MapType() {
  const std::vector<std::string> preferred =
      Words(Run(kPostconf, {"-hx", "default_database_type"}));
  const std::vector<std::string> known = Words(Run(kPostconf, {"-m"}));
  std::string type =
      ChooseMapType(preferred.empty() ? "" : preferred.front(), {known.begin(), known.end()});
  if (type.empty()) {
    throw MapFailure("this Postfix has no map type that is compiled");
  }
  return type;
}

std::string Ending(const std::string& type) {
  return type == "hash" || type == "btree" ? ".db" : "." + type;
}

void Compile(const std::string& type, const std::string& path) {
  const std::string map = type + ":" + path;
  const Result result = Run(kPostmap, {map.c_str()});
  if (result.status != 0 || !result.errors.empty()) {
    throw MapFailure("postmap " + map + " (status " + std::to_string(result.status) +
                     "): " + result.errors);
  }
  Sync(path + Ending(type), 0);
}

void Install(const std::string& type, const std::string& from, const std::string& to) {
  Rename(from + Ending(type), to + Ending(type), kMapMode);
  Rename(from, to, kMapMode);
  Sync(to.substr(0, to.rfind('/')), O_DIRECTORY);
}

void InstallFile(const std::string& from, const std::string& to, mode_t mode) {
  Rename(from, to, mode);
  Sync(to.substr(0, to.rfind('/')), O_DIRECTORY);
}

void WriteMapText(const std::string& path, const std::string& bytes) {
  if (korvmailserver::ReplaceFile(path, bytes, 0600) != 0) {
    throw MapFailure(path + ": " + strerror(errno));
  }
}

MapFolderLock::MapFolderLock(const std::string& folder)
    : fd_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  int result = fd_ < 0 ? -1 : flock(fd_, LOCK_EX);
  while (fd_ >= 0 && result != 0 && errno == EINTR) {
    result = flock(fd_, LOCK_EX);
  }
  if (result != 0) {
    const std::string why = strerror(errno);
    if (fd_ >= 0) {
      close(fd_);
    }
    throw MapFailure(folder + ": " + why);
  }
}

MapFolderLock::~MapFolderLock() {
  close(fd_);
}

MapWorkFolder::MapWorkFolder(const std::string& within) : path_(within + ".bcc_map.XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    throw MapFailure(path_ + ": " + strerror(errno));
  }
}

MapWorkFolder::~MapWorkFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

bool MapWorkFolder::Remove() const {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  if (error) {
    LOG_ERROR("bcc maps replaced, but [%s] stays: %s", path_.c_str(), error.message().c_str());
  }
  return !error;
}

}  // namespace MDOMAIN::BASE
