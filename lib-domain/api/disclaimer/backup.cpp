// The disclaimers of all domains at once: backup and restore through files.
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/disclaimer/system_view.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/record/domain.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/process.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

constexpr mode_t kFileMode = 0600;

bool Move(const std::string& from, const std::string& to) {
  return KLIBCExec("/bin/mv", {"-f", "--", from, to}) == 0;
}

// The names of account domains come from the account system's settings.
bool IsFileName(const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos;
}

}  // namespace

int MimeDefang::RemoveAllDisclaimerList() {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    return -1;
  }
  for (const RECORD::Domain& domain : domains) {
    const std::string key = DisclaimerListKey(domain.GetDomainIdx());
    if (PostaraServerBACKENDWrap::exist(key) && !PostaraServerBACKENDWrap::removeKey(key)) {
      LOG_ERROR("Failed to remove disclaimer list, domain_id[%d]", domain.GetDomainIdx());
      return -1;
    }
  }
  return 0;
}

int MimeDefang::RemoveAllDisclaimerContent() {
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(PATHS::DisclaimerDir(), names) < 0) {
    if (errno == ENOENT) {
      return 0;
    }
    LOG_ERROR("remove file fail: %s, error[%m]", PATHS::DisclaimerDir().c_str());
    return -1;
  }
  int result = 0;
  for (const std::string& name : names) {
    const std::string path = PATHS::DisclaimerDir() + "/" + name;
    if (postara::sdk::Unlink(path) < 0) {
      LOG_ERROR("remove file fail: %s, error[%m]", path.c_str());
      result = -1;
    }
  }
  return result;
}

int MimeDefang::BackupDisclaimerToFile(const std::string& path) {
  Json::Value all;
  if (GetSystemAllDisclaimerList(all) < 0) {
    return -1;
  }
  if (korvmailserver::ReplaceFile(path, WriteJson(all), kFileMode) < 0) {
    LOG_ERROR("open file fail: %s, error[%m]", path.c_str());
    return -1;
  }
  return 0;
}

int MimeDefang::BackupRestoreDisclaimerFile(const std::string& from, const std::string& to) {
  const std::string current = PATHS::DisclaimerList();
  // `from` and `to` may be one file: what it holds is taken aside before it is written over.
  const std::string aside = from + ".restore";
  const bool has_backup = postara::sdk::Exist(from);
  if (BackupDisclaimerToFile(current) < 0) {
    return -1;
  }
  if (has_backup && !Move(from, aside)) {
    LOG_ERROR("restore disclaimer list fail: %s, error[%m]", from.c_str());
    return -1;
  }
  if (!Move(current, to)) {
    LOG_ERROR("move disclaimer list fail: %s, error[%m]", to.c_str());
    if (has_backup) {
      Move(aside, from);
    }
    return -1;
  }
  if (has_backup && !Move(aside, current)) {
    LOG_ERROR("restore disclaimer list fail: %s, error[%m]", current.c_str());
    return -1;
  }
  if (RemoveAllDisclaimerList() < 0) {
    LOG_ERROR("remove all disclaimer list fail, error[%m]");
    return -1;
  }
  return 0;
}

int MimeDefang::MoveDisclaimerToBkpAccount(const std::string& old_account,
                                           const std::string& new_account) {
  const std::string folder = PATHS::DisclaimerBackupDir();
  if (!IsFileName(old_account) || !IsFileName(new_account)) {
    LOG_ERROR("failed to back and restore disclaimer file");
    return -1;
  }
  if (korvmailserver::MakeServiceFolder(folder, kFolderMode) !=
      korvmailserver::FolderResult::kDone) {
    LOG_ERROR("make dir fail: %s, error[%m]", folder.c_str());
    return -1;
  }
  const std::string from = folder + "/disclaimer_list-" + new_account;
  const std::string to = folder + "/disclaimer_list-" + old_account;
  const bool has_backup = postara::sdk::Exist(from);
  if (BackupRestoreDisclaimerFile(from, to) < 0) {
    LOG_ERROR("failed to back and restore disclaimer file");
    return -1;
  }
  if (!has_backup) {
    return RemoveAllDisclaimerContent();
  }
  if (RestoreDisclaimerFromFile() < 0) {
    LOG_ERROR("failed to restore disclaimer from file");
    return -1;
  }
  return 0;
}

int MimeDefang::RestoreDisclaimerFromFile() {
  return RestoreDisclaimerFromFile(PATHS::DisclaimerList());
}

int MimeDefang::RestoreDisclaimerFromFile(const std::string& path) {
  std::string bytes;
  if (korvmailserver::ReadFile(path, bytes) < 0) {
    LOG_ERROR("open file fail: %s, error[%m]", path.c_str());
    return -1;
  }
  Json::Value all;
  std::string error;
  errno = 0;
  if (!ParseJson(bytes, all) || !CheckSystemView(all, error) || !NamesDomains(all)) {
    errno = EBADMSG;
    LOG_ERROR("json parse fail: %s, error[%m]", path.c_str());
    return -1;
  }
  if (!AreDomainsKnown(all) || RemoveAllDisclaimerContent() < 0 || RemoveAllDisclaimerList() < 0) {
    return -1;
  }
  return SetSystemAllDisclaimerList(all);
}
