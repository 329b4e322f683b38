// Flag files and one key tell the SMTP side whose addresses changed.
#include "lib-domain/utils/domain_backend_related.h"

#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/batch_scope.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

namespace {

constexpr const char* kChangedUidsKey = "smtp_changed_uids";
constexpr mode_t kFolderMode = 0755;

std::vector<unsigned int> SortedOnce(std::vector<unsigned int> uids) {
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return uids;
}

bool MakeFolder(const std::string& folder) {
  using korvmailserver::FolderResult;
  // A missing account is a failure: in a folder of root's the consumer could never remove a flag.
  const FolderResult made = korvmailserver::MakeServiceFolder(folder, kFolderMode);
  if (made != FolderResult::kDone) {
    LOG_ERROR("failed to mkdir, path [%s], error[%s]", folder.c_str(),
              made == FolderResult::kNoAccount ? "no such service account" : std::strerror(errno));
  }
  return made == FolderResult::kDone;
}

bool Send(const std::vector<unsigned int>& uids) {
  return _TouchSMTPChangedUIDsFlags(uids) && _SetSMTPChangedUIDsToRedis(uids);
}

}  // namespace

bool NotifySMTPChangedUIDs(const std::vector<unsigned int>& uids) {
  if (uids.empty()) {
    return true;  // it would only overwrite the last notice
  }
  if (!BatchScope::IsAnyOpen()) {
    return Send(uids);
  }
  BatchScope::AfterCommit([uids] {
    if (!Send(uids)) {
      LOG_ERROR("Failed to NotifySMTPChangedUIDs");
    }
  });
  return true;
}

bool _TouchSMTPChangedUIDsFlags(const std::vector<unsigned int>& uids) {
  if (uids.empty()) {
    return true;
  }
  const std::string folder = PATHS::ChangedUserDir();
  if (!MakeFolder(folder)) {
    return false;
  }
  bool ok = true;
  std::vector<std::string> names;
  for (const unsigned int uid : SortedOnce(uids)) {
    names.push_back(std::to_string(uid));
  }
  // One by one, for what a failure says.
  for (const std::string& name : korvmailserver::TouchAll(folder, names)) {
    const std::string path = folder + name;
    if (KLIBCFileTouch(path.c_str()) < 0) {
      LOG_ERROR("Failed to KLIBCFileTouch, path: [%s]", path.c_str());
      ok = false;
    }
  }
  return ok;
}

bool _SetSMTPChangedUIDsToRedis(const std::vector<unsigned int>& uids) {
  const std::string value = BASE::Join(SortedOnce(uids), ", ");
  if (mailConfSet(kChangedUidsKey, value, true, 0) < 0) {
    LOG_ERROR("Failed to mailConfSet, key = [%s], val = [%s]", kChangedUidsKey, value.c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
