#include "platform/keystore/replacement_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/include/files.h"

namespace korvmailserver {

ReplacementFile::ReplacementFile(const std::string& path, mode_t mode)
    : path_(path), folder_(path.substr(0, path.rfind('/'))), mode_(mode), file_(path) {}

bool ReplacementFile::Open(std::string& error) {
  const FolderResult made = MakeServiceFolder(folder_, 0755);
  uid_t uid = 0;
  gid_t gid = 0;
  if (made == FolderResult::kNoAccount || mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    error = std::string("no account ") + kServiceAccount;
    return false;
  }
  if (made == FolderResult::kFailed) {
    return _Fail(error);
  }
  if (!IsSafeFolder(folder_, error)) {
    error = "cannot write " + path_ + ": " + error;
    return false;
  }
  RemoveLeftovers(folder_);
  return (file_.Open() && file_.SetOwner(uid, gid)) || _Fail(error);
}

bool ReplacementFile::Append(const std::string& piece, std::string& error) {
  return file_.Append(piece) || _Fail(error);
}

bool ReplacementFile::Replace(std::string& error) {
  unlink((path_ + "-journal").c_str());
  return file_.Replace(mode_) || _Fail(error);
}

bool ReplacementFile::_Fail(std::string& error) const {
  error = "cannot write " + path_ + ": " + strerror(errno);
  return false;
}

}  // namespace korvmailserver
