#include "lib-domain/history/model_changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/reader.h"
#include "platform/include/files.h"

namespace MDOMAIN::HISTORY {

namespace {

// Of the model; its other tables are the program's own notes.
const auto& kModelTables = *new std::set<std::string>{
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
// A process may have some thousand at most; what is in further ones is read.
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

// Keys that every publication writes: from the model, and the paths of files.
constexpr std::string_view kModelKeys[] = {"virtual_multiple_domain", "smtp_main_domain",
                                           "additional_domain-"};
// They go and come back with a domain's texts; where only publishing is tried they are paths of
// copies.
constexpr std::string_view kTextKeys[] = {"sync_disclaimer_content_file-"};
constexpr std::string_view kFileKeys[] = {
    "smtp_changed_uids", "mdomain_model",  "bcc_db",
    "alias_db",          "email_owner_db", "mailserver_domain_db"};

template <size_t kCount>
bool BeginsWithOne(const korvmailserver::SqlRow& row, const std::string_view (&keys)[kCount]) {
  return !row.empty() && std::any_of(std::begin(keys), std::end(keys), [&](std::string_view begin) {
    return row[0].bytes.rfind(begin, 0) == 0;
  });
}

void LeaveOutPublished(Watch watch, std::vector<korvmailserver::TableChange>& tables) {
  const auto is_left_out = [watch](const korvmailserver::SqlRow& row) {
    return BeginsWithOne(row, kFileKeys) ||
           (watch == Watch::kStored ? BeginsWithOne(row, kModelKeys)
                                    : BeginsWithOne(row, kTextKeys));
  };
  for (auto& table : tables) {
    if (table.table == "key_table") {
      table.rows.erase(std::remove_if(table.rows.begin(), table.rows.end(),
                                      [&](const auto& row) {
                                        return is_left_out(row.before) || is_left_out(row.after);
                                      }),
                       table.rows.end());
    }
  }
  tables.erase(std::remove_if(tables.begin(), tables.end(),
                              [](const auto& table) { return table.rows.empty(); }),
               tables.end());
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
bool StampFiles(const std::string& folder, std::map<std::string, std::string>& stamps) {
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

size_t StampOf(const std::map<std::string, std::string>& stamps) {
  std::string text;
  for (const auto& [path, stamp] : stamps) {
    text.append(path).append(" ").append(stamp).append("\n");
  }
  return std::hash<std::string>()(text);
}

bool ReadWhole(int file, std::string& bytes) {
  char piece[65536];
  ssize_t size = 0;
  while ((size = pread(file, piece, sizeof(piece), static_cast<off_t>(bytes.size()))) > 0) {
    bytes.append(piece, static_cast<size_t>(size));
  }
  return size == 0;
}

}  // namespace

std::string ModelChanges::DatabaseFolder() {
  std::error_code error;
  const auto path = std::filesystem::weakly_canonical(PATHS::EtcDir(), error);
  std::string folder = error ? PATHS::EtcDir() : path.string();
  return folder.back() == '/' ? folder : folder + "/";
}

ModelChanges::ModelChanges(size_t most_rows, Watch watch)
    : folder_(DatabaseFolder()),
      watch_(watch),
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
  Stamps stamps;
  are_files_known_ = StampFiles(folder_, stamps);
  size_t open_files = 0;
  for (const auto& [path, stamp] : stamps) {
    files_[path].stamp = stamp;
    _Keep(folder_ + path, files_[path], open_files);
  }
}

void ModelChanges::_Keep(const std::string& path, Kept& kept, size_t& open_files) const {
  kept.file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  kept.is_held = kept.file >= 0 && fstat(kept.file, &kept.info) == 0;
  if (kept.is_held && ++open_files > kMostOpenFiles) {
    kept.is_held = ReadWhole(kept.file, kept.bytes);
    close(kept.file);
    kept.file = -1;
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

// Adds the file if it differs. False with one log line when it cannot be told.
bool ModelChanges::_ListFile(const std::string& path, const Stamps& now, Changes& changes) const {
  const auto kept = files_.find(path);
  const auto found = now.find(path);
  FileChange change;
  change.path = path;
  change.was_there = kept != files_.end();
  change.is_there = found != now.end();
  if (change.was_there && change.is_there && kept->second.stamp == found->second) {
    return true;
  }
  if (change.was_there) {
    constexpr mode_t kPermissions = 07777;
    change.before = kept->second.bytes;
    change.mode = kept->second.info.st_mode & kPermissions;
    change.uid = kept->second.info.st_uid;
    change.gid = kept->second.info.st_gid;
    change.is_held = kept->second.is_held &&
                     (kept->second.file < 0 || ReadWhole(kept->second.file, change.before));
  }
  if (change.IsKept()) {
    changes.is_whole = changes.is_whole && (!change.was_there || change.is_held);
    if (change.is_there && korvmailserver::ReadFile(folder_ + path, change.after) < 0) {
      LOG_ERROR("Cannot read [%s%s]: %s", folder_.c_str(), path.c_str(), std::strerror(errno));
      return false;
    }
  }
  if (change.was_there != change.is_there || !change.IsKept() || change.before != change.after) {
    changes.files.push_back(std::move(change));
  }
  return true;
}

bool ModelChanges::List(Changes& changes) const {
  changes.is_whole = record_.IsWhole();
  Stamps now;
  if (!record_.List(changes.tables) ||
      (watches_files_ && (!are_files_known_ || !StampFiles(folder_, now)))) {
    changes.is_whole = false;
    return false;
  }
  LeaveOutPublished(watch_, changes.tables);
  std::set<std::string> paths;
  for (const Stamps::value_type& file : now) {
    paths.insert(file.first);
  }
  for (const auto& [path, kept] : files_) {
    paths.insert(path);
  }
  const bool is_listed = std::all_of(paths.begin(), paths.end(), [&](const std::string& path) {
    return _ListFile(path, now, changes);
  });
  changes.is_whole = changes.is_whole && is_listed;
  return is_listed;
}

size_t ModelChanges::StampOfWatched() const {
  Stamps stamps;
  for (const auto& [path, kept] : files_) {
    stamps[path] = kept.stamp;
  }
  return StampOf(stamps);
}

size_t ModelChanges::StampOfFiles() {
  Stamps stamps;
  return StampFiles(DatabaseFolder(), stamps) ? StampOf(stamps) : 0;
}

bool ModelChanges::ListFiles(const std::string& folder, std::vector<std::string>& paths) {
  Stamps stamps;
  if (!StampFiles(folder, stamps)) {
    return false;
  }
  for (const auto& [path, stamp] : stamps) {
    paths.push_back(path);
  }
  return true;
}

bool ModelChanges::Complete(Changes& changes) {
  for (const auto& table : changes.tables) {
    DB::INTERNAL::RollBackKilledWriter(table.path);
  }
  if (!korvmailserver::CompleteChanges(changes.tables)) {
    return false;
  }
  LeaveOutPublished(Watch::kStored, changes.tables);
  return true;
}

}  // namespace MDOMAIN::HISTORY
