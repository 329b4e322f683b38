// A journal of a killed writer is rolled back by the kept connection as by any other that may
// write.
#include "platform/include/kept_database.h"

#include <unistd.h>

#include <map>

namespace korvmailserver {

namespace {

constexpr off_t kLeastSize = 2;  // smaller files are given a schema, or refused

bool IsSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_mode == b.st_mode &&
         a.st_uid == b.st_uid && a.st_gid == b.st_gid;
}

}  // namespace

bool KeptDatabase::Place::Read(const std::string& path_now) {
  process = getpid();
  user = geteuid();
  path = path_now;
  const size_t slash = path.rfind('/');
  return slash != std::string::npos && lstat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) &&
         file.st_size >= kLeastSize && stat(path.substr(0, slash).c_str(), &folder) == 0;
}

bool KeptDatabase::Place::operator==(const Place& other) const {
  return process == other.process && user == other.user && path == other.path &&
         IsSame(file, other.file) && IsSame(folder, other.folder);
}

KeptDatabase& KeptDatabase::Of(const std::string& path) {
  static auto& kept = *new std::map<std::string, KeptDatabase>();
  return kept[path.substr(path.rfind('/') + 1)];
}

bool KeptDatabase::Run(const std::string& path, const Work& work) {
  const UnkeptDatabaseFailures unkept;
  Place now;
  if (connection_.Get() != nullptr && now.Read(path) && now == place_ &&
      work(connection_.Get(), compiled_)) {
    return true;
  }
  _Forget();
  return false;
}

void KeptDatabase::Keep(const std::string& path) {
  const UnkeptDatabaseFailures unkept;
  _Forget();
  if (place_.Read(path)) {
    connection_.Open(path, Connection::Mode::kWrite, 0);
  }
}

bool KeptDatabase::_IsKnown(const char* question) {
  DatabaseNumbers now;
  if (!numbers_ || !ReadDatabaseNumbers(connection_.Get(), now) || !(now == *numbers_)) {
    answers_.clear();
    numbers_.reset();
  }
  return answers_.count(question) != 0;
}

// Within the transaction that read it.
void KeptDatabase::_Know(const char* question, std::any answer) {
  DatabaseNumbers now;
  const bool are_told = ReadDatabaseNumbers(connection_.Get(), now);
  if (!are_told || !numbers_ || !(now == *numbers_)) {
    answers_.clear();
    numbers_ = are_told ? std::make_optional(now) : std::nullopt;
  }
  answers_[question] = std::move(answer);
}

void KeptDatabase::_Forget() {
  answers_.clear();
  numbers_.reset();
  compiled_.Clear();
  connection_.Close();
}

}  // namespace korvmailserver
