// The disclaimers of all domains at once: backup and restore through files.
#include <cerrno>
#include <string>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/disclaimer/system_view.h"
#include "lib-domain/api/export_file.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/record/domain.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/nodes.h"
#include "platform/include/process.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

// Not into a folder, nor through a link to one, that has the name.
bool Move(const std::string& from, const std::string& to) {
  return KLIBCExec("/bin/mv", {"-f", "-T", "--", from, to}) == 0;
}

// Takes what lies at `path` aside under the first name that is free.
bool KeepAside(const std::string& path) {
  std::string aside;
  for (int number = 1; aside.empty() || postara::sdk::Exist(aside); ++number) {
    aside = path + "." + std::to_string(number);
  }
  LOG_WARNING("disclaimers of another time are kept in %s", aside.c_str());
  return Move(path, aside);
}

// Reads and checks a backup and gives its lists to the domains of now. False with a log line.
bool ReadBackup(const std::string& path, Json::Value& all) {
  std::string bytes;
  if (korvmailserver::ReadFile(path, bytes) < 0) {
    LOG_ERROR("open file fail: %s, error[%m]", path.c_str());
    return false;
  }
  std::string error;
  errno = 0;
  if (!ParseJson(bytes, all) || !CheckSystemView(all, error) || !NamesDomains(all)) {
    errno = EBADMSG;
    LOG_ERROR("json parse fail: %s, error[%m]", path.c_str());
    return false;
  }
  return TakeIndexesByName(all) && AreDomainsKnown(all);
}

// Replaces the disclaimers of all domains by those of `all`; on failure those of `before` are in
// force again.
int ReplaceAll(MimeDefang& mimedefang, const Json::Value& all, const Json::Value& before) {
  const korvmailserver::PublicationScope publication;
  if (mimedefang.RemoveAllDisclaimerContent() >= 0 && mimedefang.RemoveAllDisclaimerList() >= 0 &&
      mimedefang.SetSystemAllDisclaimerList(all) >= 0) {
    return 0;
  }
  mimedefang.SetSystemAllDisclaimerList(before);
  return -1;
}

// Whether a file holds nothing but what the domains have.
bool IsInForce(const std::string& path, const Json::Value& current) {
  std::string bytes;
  Json::Value all;
  std::string error;
  return korvmailserver::ReadFile(path, bytes) >= 0 && ParseJson(bytes, all) &&
         CheckSystemView(all, error) && HaveSameDisclaimers(all, current);
}

// The files of one move between account domains.
struct MoveFiles {
  std::string from;    // kept of the account domain that comes
  std::string moving;  // the one that goes, until the other one is in force
  std::string to;      // from then on
};

// What is in force is saved before anything changes. A copy that an earlier move left, because it
// was stopped, is the whole one: what is in force since then may be half of each.
bool SaveBeforeMove(const MoveFiles& files, Json::Value& current) {
  Json::Value saved;
  if (postara::sdk::Exist(files.moving)) {
    if (!ReadBackup(files.moving, saved)) {
      return false;
    }
    Json::Value named = current;
    const bool differs = !HaveSameDisclaimers(saved, current);
    if (differs &&
        (!AddDomainNames(named) || WriteExport(files.to + ".stopped", WriteJson(named)) != 0 ||
         !KeepAside(files.to + ".stopped"))) {
      return false;
    }
    current = saved;
    return true;
  }
  Json::Value named = current;
  if (AddDomainNames(named) && WriteExport(files.moving, WriteJson(named)) == 0) {
    return true;
  }
  LOG_ERROR("open file fail: %s, error[%m]", files.moving.c_str());
  return false;
}

// The new disclaimers are in force: the copies go where the next move looks for them.
int FinishMove(const MoveFiles& files) {
  if (postara::sdk::Exist(files.moving) &&
      ((postara::sdk::Exist(files.to) && !KeepAside(files.to)) || !Move(files.moving, files.to))) {
    LOG_ERROR("move disclaimer list fail: %s, error[%m]", files.to.c_str());
    return -1;
  }
  if (postara::sdk::Exist(files.from) && !Move(files.from, PATHS::DisclaimerList())) {
    LOG_ERROR("restore disclaimer list fail: %s, error[%m]", files.from.c_str());
    return -1;
  }
  return 0;
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
  if (GetSystemAllDisclaimerList(all) < 0 || !AddDomainNames(all)) {
    return -1;
  }
  if (WriteExport(path, WriteJson(all)) < 0) {
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
  Json::Value all;
  // What an earlier restoration left unread may be the only copy.
  if (GetSystemAllDisclaimerList(all) < 0 ||
      (postara::sdk::Exist(current) && !IsInForce(current, all) && !KeepAside(current)) ||
      BackupDisclaimerToFile(current) < 0) {
    return -1;
  }
  if (to != from && postara::sdk::Exist(to) && !KeepAside(to)) {
    LOG_ERROR("move disclaimer list fail: %s, error[%m]", to.c_str());
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
  if (old_account == new_account) {
    return 0;
  }
  const std::string to = folder + "/disclaimer_list-" + old_account;
  const MoveFiles files = {folder + "/disclaimer_list-" + new_account, to + ".moving", to};
  Json::Value incoming(Json::arrayValue);
  if (postara::sdk::Exist(files.from) && !ReadBackup(files.from, incoming)) {
    LOG_ERROR("failed to restore disclaimer from file");
    return -1;
  }
  Json::Value current;
  if (GetSystemAllDisclaimerList(current) < 0) {
    LOG_ERROR("failed to back and restore disclaimer file");
    return -1;
  }
  // A move that was stopped after its last change.
  const bool is_saved = postara::sdk::Exist(files.moving) || postara::sdk::Exist(files.to);
  if (is_saved && HaveSameDisclaimers(current, incoming)) {
    return FinishMove(files);
  }
  if (!SaveBeforeMove(files, current)) {
    LOG_ERROR("failed to back and restore disclaimer file");
    return -1;
  }
  if (ReplaceAll(*this, incoming, current) < 0) {
    LOG_ERROR("failed to restore disclaimer from file");
    return -1;
  }
  return FinishMove(files);
}

int MimeDefang::RestoreDisclaimerFromFile() {
  return RestoreDisclaimerFromFile(PATHS::DisclaimerList());
}

int MimeDefang::RestoreDisclaimerFromFile(const std::string& path) {
  Json::Value all;
  if (!ReadBackup(path, all)) {
    return -1;
  }
  // What cannot be read cannot be put back, and is what a restoration is there to mend.
  Json::Value before(Json::arrayValue);
  if (GetSystemAllDisclaimerList(before) < 0) {
    before = Json::Value(Json::arrayValue);
  }
  return ReplaceAll(*this, all, before);
}
