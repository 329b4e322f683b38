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

// Paths of the files in the folders, below `folder`. False with one log line.
bool ListFiles(const std::string& folder, std::set<std::string>& paths) {
  for (const char* name : kFileFolders) {
    std::vector<std::string> found;
    if (!korvmailserver::ListFolder(folder + name, found)) {
      return false;
    }
    for (const std::string& file : found) {
      if (file[0] != '.') {
        paths.insert(std::string(name) + "/" + file);
      }
    }
  }
  return true;
}

// Keeps a file readable that is replaced later; -1 where there is none.
int Keep(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
}

bool IsSame(int kept, const std::string& path) {
  struct stat before {};
  struct stat now {};
  return fstat(kept, &before) == 0 && lstat(path.c_str(), &now) == 0 &&
         before.st_ino == now.st_ino && before.st_dev == now.st_dev &&
         before.st_size == now.st_size && before.st_mtim.tv_sec == now.st_mtim.tv_sec &&
         before.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
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
          most_rows) {
  std::set<std::string> paths;
  ListFiles(folder_, paths);
  for (const std::string& path : paths) {
    files_[path] = Keep(folder_ + path);
  }
}

ModelChanges::~ModelChanges() {
  for (const auto& [path, file] : files_) {
    close(file);
  }
}

bool ModelChanges::List(Changes& changes) const {
  changes.is_whole = record_.IsWhole();
  std::set<std::string> paths;
  if (!record_.List(changes.tables) || !ListFiles(folder_, paths)) {
    return false;
  }
  LeaveOutPublished(changes.tables);
  for (const auto& [path, file] : files_) {
    paths.insert(path);
  }
  for (const std::string& path : paths) {
    const auto kept = files_.find(path);
    if (kept != files_.end() && IsSame(kept->second, folder_ + path)) {
      continue;
    }
    FileChange change;
    change.path = path;
    change.before = kept == files_.end() ? "" : BytesOf(kept->second);
    if (korvmailserver::ReadFile(folder_ + path, change.after) < 0 && errno != ENOENT) {
      LOG_ERROR("Cannot read [%s%s]: %s", folder_.c_str(), path.c_str(), std::strerror(errno));
      return false;
    }
    if (change.before != change.after) {
      changes.files.push_back(std::move(change));
    }
  }
  return true;
}

}  // namespace MDOMAIN::HISTORY
