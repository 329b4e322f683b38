// What may be wrong with the files themselves.
#include "lib-domain/insight/doctor.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/db/schema.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/root_path.h"

namespace MDOMAIN::INSIGHT::INTERNAL {

namespace {

using DB::INTERNAL::Reader;
using korvmailserver::Statement;

std::string CureOf(const std::string& path) {
  return path == PATHS::EmailOwnerDb() ? "mdomain owner build"
         : path == PATHS::HistoryDb()  ? "remove the file: nothing depends on it"
                                       : "restore the file from a backup or from a folder kept-*";
}

// What SQLite says may have several lines.
std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

// How far SQLite is within statements that look at a whole file.
void TellSteps(sqlite3* connection, BASE::Progress& progress) {
  constexpr int kStepsOfSqlite = 100;
  sqlite3_progress_handler(
      connection, kStepsOfSqlite,
      [](void* told) {
        static_cast<BASE::Progress*>(told)->Step();
        return 0;
      },
      &progress);
}

void CheckDatabase(const std::string& path, Findings& findings) {
  const std::string doing = "steps of checking " + path.substr(path.rfind('/') + 1);
  BASE::Progress progress(doing.c_str(), 0);
  const auto add = [&](const std::string& text) {
    findings.push_back({"database", true, path + ": " + OneLine(text), CureOf(path)});
  };
  Reader reader(path);
  if (!reader.Open()) {
    add("it cannot be opened");
    return;
  }
  if (reader.Get() == nullptr) {
    return;
  }
  TellSteps(reader.Get(), progress);
  const bool is_checked = reader.ForEachRow("PRAGMA integrity_check(5)", [&](const Statement& row) {
    if (row.Text(0) != "ok") {
      add("it is damaged: " + row.Text(0));
    }
  });
  if (!is_checked) {
    add("it cannot be read");
  }
  std::string dangling;
  reader.ForEachRow("PRAGMA foreign_key_check", [&](const Statement& row) {
    dangling =
        dangling.empty() ? row.Text(0) + " has rows of a missing row of " + row.Text(2) : dangling;
  });
  if (!dangling.empty()) {
    add(dangling);
  }
}

int NewestVersion() {
  std::vector<std::string> scripts;
  UTILS::DomainUtilGetSqliteCmds(scripts);
  return static_cast<int>(scripts.size());
}

// -1 where there is no file that can be read.
int VersionOf(const std::string& path) {
  int version = -1;
  Reader reader(path);
  if (reader.Open() && reader.Get() != nullptr) {
    reader.ForEachRow("PRAGMA user_version", [&](const Statement& row) { version = row.Int(0); });
  }
  return version;
}

void CheckVersion(const std::string& path, Findings& findings) {
  const int version = VersionOf(path);
  if (version >= 0 && version < NewestVersion()) {
    findings.push_back({"version", false,
                        path + ": it has the schema of version " + std::to_string(version) +
                            ", this program's is " + std::to_string(NewestVersion()) +
                            "; what is in it was not looked at",
                        ""});
  } else if (version > NewestVersion()) {
    findings.push_back(
        {"version", true,
         path + ": a newer program wrote it (version " + std::to_string(version) + ")",
         "install that program's version again"});
  }
}

// Nobody but the service account and root may write these files.
void CheckRights(const std::string& path, Findings& findings) {
  struct stat info {};
  uid_t uid = 0;
  gid_t gid = 0;
  if (lstat(path.c_str(), &info) != 0) {
    return;
  }
  const std::string of_service =
      "chown " + std::string(korvmailserver::kServiceAccount) + " " + path;
  if (!S_ISREG(info.st_mode)) {
    findings.push_back(
        {"rights", true, path + ": it is no regular file", "put the file in its place"});
  } else if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    findings.push_back({"rights", true, path + ": others may write to it", "chmod go-w " + path});
  } else if (korvmailserver::RootPrefix().empty() &&
             mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) >= 0 && info.st_uid != uid) {
    findings.push_back(
        {"rights", true, path + ": it does not belong to the service account", of_service});
  }
}

// What holds secrets: keys are the mail server's, which may have a group that reads them.
void CheckSecret(const std::string& path, mode_t closed, Findings& findings) {
  struct stat info {};
  if (lstat(path.c_str(), &info) == 0 && (info.st_mode & closed) != 0) {
    findings.push_back(
        {"rights", true, path + ": others may read it",
         "chmod " + std::string((closed & S_IRGRP) != 0 ? "go" : "o") + "= " + path});
  }
}

void CheckFolder(const std::string& folder, Findings& findings) {
  std::string why;
  if (!korvmailserver::IsSafeFolder(folder, why)) {
    findings.push_back(
        {"rights", true, folder + ": " + why, "give it to the service account alone"});
  }
  std::vector<std::string> names;
  postara::sdk::EnumDirectory(folder, names);
  size_t kept = 0;
  for (const std::string& name : names) {
    kept += name.rfind("kept-", 0) == 0 ? 1 : 0;
    const bool is_aside = name.find(".broken") != std::string::npos;
    if (is_aside) {
      findings.push_back({"leftovers", false,
                          folder + name + ": a database that was set aside as broken",
                          "remove it when nothing in it is wanted"});
    }
  }
  constexpr size_t kManyKept = 5;
  if (kept > kManyKept) {
    findings.push_back(
        {"leftovers", false,
         folder + ": " + std::to_string(kept) + " folders with copies from before (kept-*)",
         "remove the older ones"});
  }
}

}  // namespace

std::string ModelPath() {
  std::string path;
  return UTILS::GetUserGroupDomainConfigPath(path) ? path : "";
}

bool IsModelUsable(Findings& findings) {
  const std::string path = ModelPath();
  if (path.empty()) {
    findings.push_back({"account-source", true,
                        "the account source has no domain name, after which the model file is "
                        "called",
                        "mdomain config set, as the manual's page on directories says"});
    return false;
  }
  if (!postara::sdk::Exist(path)) {
    std::string domains;
    mailConfGet("virtual_multiple_domain", domains);
    findings.push_back(
        domains.empty()
            ? Finding{"no-domain", false, "there is no domain", "mdomain domain create NAME"}
            : Finding{"lost-model", true, path + " is missing, and published are " + domains,
                      CureOf(path)});
    return false;
  }
  return VersionOf(path) == NewestVersion();
}

void CheckFiles(Findings& findings) {
  const std::string model = ModelPath();
  for (const std::string& path : {model, PATHS::SettingsDb(), PATHS::AliasDb(), PATHS::KeyStoreDb(),
                                  PATHS::EmailOwnerDb(), PATHS::LoginDb(), PATHS::HistoryDb()}) {
    if (!path.empty() && postara::sdk::Exist(path)) {
      CheckDatabase(path, findings);
      CheckRights(path, findings);
    }
  }
  CheckSecret(PATHS::HistoryDb(), S_IRWXG | S_IRWXO, findings);
  std::vector<std::string> keys;
  const std::string folder_of_keys = PATHS::EtcDir() + "dkim.key/";
  postara::sdk::EnumDirectory(folder_of_keys, keys);
  for (const std::string& key : keys) {
    if (key.find("private") != std::string::npos) {
      CheckSecret(folder_of_keys + key, S_IRWXO, findings);
    }
  }
  if (!model.empty()) {
    CheckVersion(model, findings);
  }
  for (const std::string& folder : {PATHS::EtcDir(), PATHS::TargetEtcDir()}) {
    CheckFolder(folder, findings);
  }
}

}  // namespace MDOMAIN::INSIGHT::INTERNAL
