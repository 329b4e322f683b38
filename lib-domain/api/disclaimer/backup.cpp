// The disclaimers of all domains at once: the system-wide view, backup and restore through files.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>

#include "lib-domain/api/disclaimer/unit.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/process.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0600;

bool Move(const std::string& from, const std::string& to) {
  return KLIBCExec("/bin/mv", {"-f", "--", from, to}) == 0;
}

// The names of account domains come from the account system's settings.
bool IsFileName(const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos;
}

// "domain_id" of an element of the system-wide view: a number, or a text that is one.
bool DomainIdOf(const Json::Value& element, int& domain_idx) {
  const Json::Value& id = element["domain_id"];
  if (id.isInt()) {
    domain_idx = id.asInt();
    return true;
  }
  return id.isString() && BASE::ConvertToInt(id.asString(), domain_idx);
}

// Whether every element that would be set can be: nothing is written for a view that fails here.
bool CheckSystemView(const Json::Value& all, std::string& error) {
  if (!IsArrayOfObjects(all)) {
    error = "not an array of objects";
    return false;
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    const Json::Value& list = element["disclaimer_list"];
    if (!list.isArray()) {
      continue;
    }
    if (!DomainIdOf(element, domain_idx)) {
      error = "an element has no \"domain_id\"";
      return false;
    }
    if (!IsArrayOfObjects(list)) {
      error = "domain " + std::to_string(domain_idx) + " has a disclaimer that is no object";
      return false;
    }
  }
  return true;
}

// A file that is something else, a list of one domain's disclaimers for one, must not pass for a
// view in which no domain has any.
bool NamesDomains(const Json::Value& all) {
  return std::all_of(all.begin(), all.end(), [](const Json::Value& element) {
    int domain_idx = 0;
    return DomainIdOf(element, domain_idx);
  });
}

// Texts of a domain that is no more would lie there unseen until its index is given to another one.
bool AreDomainsKnown(const Json::Value& all) {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    LOG_ERROR("get domain list failed");
    return false;
  }
  std::set<int> known;
  for (const RECORD::Domain& domain : domains) {
    known.insert(domain.GetDomainIdx());
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    if (!element["disclaimer_list"].empty() && DomainIdOf(element, domain_idx) &&
        known.count(domain_idx) == 0) {
      LOG_ERROR("Failed to set Config, domain_id[%d]", domain_idx);
      return false;
    }
  }
  return true;
}

}  // namespace

int MimeDefang::GetSystemAllDisclaimerList(Json::Value& all) {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    LOG_ERROR("get domain list failed");
    return -1;
  }
  std::map<int, std::string> texts;
  if (!ReadStoredTexts(domains, texts)) {
    return -1;
  }
  Json::Value result(Json::arrayValue);
  for (const RECORD::Domain& domain : domains) {
    const int domain_idx = domain.GetDomainIdx();
    Json::Value element(Json::objectValue);
    element["domain_id"] = domain_idx;
    if (ComposeList(domain_idx, texts[domain_idx], element["disclaimer_list"]) < 0) {
      return -1;
    }
    result.append(element);
  }
  all = result;
  return 0;
}

int MimeDefang::SetSystemAllDisclaimerList(const Json::Value& all) {
  std::string error;
  if (!CheckSystemView(all, error)) {
    LOG_ERROR("Failed to set Config, domain_id[%s]", error.c_str());
    return -1;
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    const Json::Value& list = element["disclaimer_list"];
    if (!list.isArray()) {
      continue;
    }
    if (!DomainIdOf(element, domain_idx) || SetDisclaimerList(domain_idx, list) < 0) {
      LOG_ERROR("Failed to set Config, domain_id[%s]", element["domain_id"].asString().c_str());
      return -1;
    }
  }
  return 0;
}

int MimeDefang::RemoveAllDisclaimerList() {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    LOG_ERROR("get domain list failed");
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
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet("Postara-Server", &uid, &gid) < 0 ||
      KORVFSMkdirP(folder.c_str(), uid, gid, kFolderMode) < 0) {
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
