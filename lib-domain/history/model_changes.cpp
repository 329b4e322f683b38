#include "lib-domain/history/model_changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"

namespace MDOMAIN::HISTORY {

namespace {

// Of the model; its other tables are the program's own notes.
const std::set<std::string> kModelTables = {
    "user_table",
    "group_table",
    "group_to_user_table",
    "domain_user_role_table",
    "domain_user_alias_table",
    "domain_group_role_table",
    "domain_group_removed_user_table",
    "domain_table",
    "domain_to_additional_domain_table",
    "primary_domain_table",
};
constexpr const char* kFileFolders[] = {"disclaimer_content", "dkim.key"};
// A process may have some thousand at most; a change of further files is told and not kept.
constexpr size_t kMostOpenFiles = 200;

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsWatched(const std::string& path, const std::string& table) {
  const std::string name = path.substr(path.rfind('/') + 1);
  if (EndsWith(name, "_DOMAIN.db")) {
    return kModelTables.count(table) != 0;
  }
  return name == "mailserver.db" || name == "alias.db" ||
         (name == "keystore.db" && table == "key_table");
}

// Keys that every publication writes from the model.
bool IsPublished(const korvmailserver::SqlRow& row) {
  constexpr std::string_view kKeys[] = {"virtual_multiple_domain", "smtp_main_domain",
                                        "additional_domain-", "smtp_changed_uids"};
  return !row.empty() &&
         std::any_of(std::begin(kKeys), std::end(kKeys),
                     [&](std::string_view begin) { return row[0].bytes.rfind(begin, 0) == 0; });
}

void LeaveOutPublished(std::vector<korvmailserver::TableChange>& tables) {
  for (auto& table : tables) {
    if (table.table == "key_table") {
      table.rows.erase(std::remove_if(table.rows.begin(), table.rows.end(),
                                      [](const auto& row) {
                                        return IsPublished(row.before) || IsPublished(row.after);
                                      }),
                       table.rows.end());
    }
  }
  tables.erase(std::remove_if(tables.begin(), tables.end(),
                              [](const auto& table) { return table.rows.empty(); }),
               tables.end());
}

// Real path of the folder of the databases, as SQLite tells theirs.
std::string DatabaseFolder() {
  std::error_code error;
  const auto path = std::filesystem::weakly_canonical(PATHS::EtcDir(), error);
  std::string folder = error ? PATHS::EtcDir() : path.string();
  return folder.back() == '/' ? folder : folder + "/";
}

constexpr std::string_view kTexts = "disclaimer_content/";

// Identity, size and time of a regular file; empty where there is none.
std::string StampOf(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return "";
  }
  std::ostringstream stamp;
  stamp << info.st_dev << " " << info.st_ino << " " << info.st_size << " " << info.st_mtim.tv_sec
        << "." << info.st_mtim.tv_nsec;
  return stamp.str();
}

// Paths and stamps of the regular files in the folders, below `folder`. False with one log line.
bool ListFiles(const std::string& folder, std::map<std::string, std::string>& stamps) {
  for (const char* name : kFileFolders) {
    std::vector<std::string> found;
    if (!korvmailserver::ListFolder(folder + name, found)) {
      return false;
    }
    for (const std::string& file : found) {
      const std::string path = std::string(name) + "/" + file;
      const std::string stamp = StampOf(folder + path);
      if (file[0] != '.' && !stamp.empty()) {
        stamps[path] = stamp;
      }
    }
  }
  return true;
}

std::string BytesOf(int file) {
  std::string bytes;
  char piece[65536];
  for (ssize_t size = 0;
       (size = pread(file, piece, sizeof(piece), static_cast<off_t>(bytes.size()))) > 0;) {
    bytes.append(piece, static_cast<size_t>(size));
  }
  return bytes;
}

}  // namespace

ModelChanges::ModelChanges(size_t most_rows)
    : folder_(DatabaseFolder()),
      record_(
          [this](const std::string& path, const std::string& table) {
            return path.rfind(folder_, 0) == 0 && path.find('/', folder_.size()) == path.npos &&
                   IsWatched(path, table);
          },
          most_rows) {}

void ModelChanges::WatchFiles() {
  if (watches_files_) {
    return;
  }
  watches_files_ = true;
  std::map<std::string, std::string> stamps;
  ListFiles(folder_, stamps);
  size_t open_files = 0;
  for (const auto& [path, stamp] : stamps) {
    files_[path].stamp = stamp;
    if (path.rfind(kTexts, 0) == 0 && open_files++ < kMostOpenFiles) {
      files_[path].file = open((folder_ + path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    }
  }
}

ModelChanges::~ModelChanges() {
  for (const auto& [path, kept] : files_) {
    if (kept.file >= 0) {
      close(kept.file);
    }
  }
}

bool FileChange::IsKept() const {
  return path.rfind(kTexts, 0) == 0;
}

bool ModelChanges::List(Changes& changes) const {
  changes.is_whole = record_.IsWhole();
  std::map<std::string, std::string> stamps;
  if (!record_.List(changes.tables) || (watches_files_ && !ListFiles(folder_, stamps))) {
    changes.is_whole = false;
    return false;
  }
  LeaveOutPublished(changes.tables);
  std::set<std::string> paths;
  for (const auto& [path, kept] : files_) {
    paths.insert(path);
  }
  for (const auto& [path, stamp] : stamps) {
    paths.insert(path);
  }
  for (const std::string& path : paths) {
    const auto kept = files_.find(path);
    const auto now = stamps.find(path);
    FileChange change{path, kept != files_.end(), now != stamps.end(), "", ""};
    if (change.was_there && change.is_there && kept->second.stamp == now->second) {
      continue;
    }
    if (change.IsKept()) {
      changes.is_whole = changes.is_whole && (!change.was_there || kept->second.file >= 0);
      change.before = change.was_there ? BytesOf(kept->second.file) : "";
      if (change.is_there && korvmailserver::ReadFile(folder_ + path, change.after) < 0) {
        LOG_ERROR("Cannot read [%s%s]: %s", folder_.c_str(), path.c_str(), std::strerror(errno));
        changes.is_whole = false;
        return false;
      }
    }
    if (change.was_there != change.is_there || !change.IsKept() || change.before != change.after) {
      changes.files.push_back(std::move(change));
    }
  }
  return true;
}

}  // namespace MDOMAIN::HISTORY
