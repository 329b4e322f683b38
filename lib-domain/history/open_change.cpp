// The file holds texts with their length before them: what the entry will say, then for each commit
// the rows as they were. One that is cut short was written before a commit that did not happen.
#include "lib-domain/history/open_change.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

#include "lib-domain/api/updater.h"
#include "lib-domain/base/json_text.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/history/history_file.h"
#include "lib-domain/history/kept_changes.h"
#include "platform/include/files.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::TableChange;

constexpr char kInterrupted[] = "interrupted";

// Of a change that is all or nothing it has another name, and a folder beside it.
std::string OpenPath(bool all_or_nothing) {
  return PATHS::HistoryDb() + (all_or_nothing ? ".whole" : ".open");
}

std::string FilesPath() {
  return PATHS::HistoryDb() + ".files/";
}

void RemoveFiles() {
  std::error_code ignored;
  std::filesystem::remove_all(FilesPath(), ignored);
}

// Another one after each commit to the history; 0 without a history.
unsigned int CommitsOfHistory() {
  constexpr off_t kCounter = 24;
  unsigned char bytes[4] = {};
  const int file = open(PATHS::HistoryDb().c_str(), O_RDONLY | O_CLOEXEC);
  const bool is_read = file >= 0 && pread(file, bytes, sizeof(bytes), kCounter) == sizeof(bytes);
  if (file >= 0) {
    close(file);
  }
  return is_read ? (unsigned{bytes[0]} << 24U) + (unsigned{bytes[1]} << 16U) +
                       (unsigned{bytes[2]} << 8U) + bytes[3]
                 : 0;
}

std::string HeadOf(const Entry& entry, size_t files) {
  Json::Value head;
  head["time"] = Json::Int64(entry.time);
  head["person"] = entry.person;
  head["command"] = entry.command;
  head["state"] = entry.state;
  head["why_kept"] = entry.why_kept;
  head["files"] = Json::UInt64(files);
  head["commits"] = CommitsOfHistory();
  return Json::writeString(Json::StreamWriterBuilder(), head);
}

bool WriteText(int file, const std::string& text) {
  const std::string bytes = std::to_string(text.size()) + ":" + text;
  return write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

// Where the name cannot be removed, the file says nothing: nobody takes back what it told of.
void Forget(const std::string& path, int file) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT && ftruncate(file, 0) != 0) {
    LOG_ERROR("Cannot remove [%s]: %s", path.c_str(), std::strerror(errno));
  }
}

// The texts that are whole.
std::vector<std::string> TextsIn(const std::string& bytes) {
  std::vector<std::string> texts;
  for (size_t at = 0; at < bytes.size();) {
    const size_t colon = bytes.find(':', at);
    const size_t size = std::strtoull(bytes.c_str() + at, nullptr, 10);
    if (colon == std::string::npos || size > bytes.size() - colon - 1) {
      break;
    }
    texts.push_back(bytes.substr(colon + 1, size));
    at = colon + 1 + size;
  }
  return texts;
}

// Tables of several commits, each once, with rows in order.
void Merge(std::vector<TableChange>& tables) {
  std::stable_sort(tables.begin(), tables.end(), [](const TableChange& a, const TableChange& b) {
    return std::tie(a.path, a.table) < std::tie(b.path, b.table);
  });
  std::vector<TableChange> merged;
  for (TableChange& table : tables) {
    if (merged.empty() || merged.back().path != table.path || merged.back().table != table.table) {
      merged.push_back(std::move(table));
    } else {
      std::move(table.rows.begin(), table.rows.end(), std::back_inserter(merged.back().rows));
    }
  }
  for (TableChange& table : merged) {
    std::sort(table.rows.begin(), table.rows.end(),
              [](const auto& a, const auto& b) { return a.rowid < b.rowid; });
  }
  tables = std::move(merged);
}

std::string WhyNotTakenBack(const std::string& reason, bool is_whole, bool are_files_same,
                            bool is_own_model) {
  std::vector<CONTROL::INTERNAL::PendingDeparture> pending;
  const bool is_told = CONTROL::INTERNAL::ListPendingDepartures(pending);
  return !reason.empty()   ? reason
         : !is_whole       ? "it was interrupted, and changed more than was kept"
         : !are_files_same ? "it was interrupted, and changed texts or keys of domains"
         : !is_own_model   ? "it was interrupted, and the model file is another one now"
         : !is_told || !pending.empty()
             ? "it was interrupted within a removal, and the next change ends it"
             : "";
}

// What the first text says. False where it is none, or where the entry was made.
bool ReadHead(const std::vector<std::string>& texts, Entry& entry, size_t& files) {
  Json::Value head;
  if (texts.empty() || !BASE::ParseJson(texts[0], head).empty() || !head.isObject() ||
      !head["time"].isInt64() || !head["files"].isUInt64() || !head["commits"].isUInt() ||
      head["commits"].asUInt() != CommitsOfHistory()) {
    return false;
  }
  for (const auto& [name, text] : {std::pair("person", &entry.person),
                                   {"command", &entry.command},
                                   {"state", &entry.state},
                                   {"why_kept", &entry.why_kept}}) {
    if (!head[name].isString()) {
      return false;
    }
    *text = head[name].asString();
  }
  entry.time = head["time"].asInt64();
  entry.state = entry.state == "done" ? kInterrupted : entry.state;
  files = head["files"].asUInt64();
  return true;
}

// The rows of the other texts, as they were. False where some are of another model.
bool ReadRows(const std::vector<std::string>& texts, Changes& changes) {
  const std::string folder = ModelChanges::DatabaseFolder();
  bool is_own_model = true;
  for (size_t i = 1; i < texts.size(); ++i) {
    Changes part;
    std::string model;
    changes.is_whole = FromBytes(texts[i], folder, part, model) && changes.is_whole;
    is_own_model = is_own_model && (model.empty() || model == ModelName());
    std::move(part.tables.begin(), part.tables.end(), std::back_inserter(changes.tables));
  }
  Merge(changes.tables);
  return is_own_model;
}

// What differs between the files that were kept and those that are there. False with one log line.
bool ListFiles(Changes& changes) {
  std::vector<std::string> paths;
  if (!ModelChanges::ListFiles(FilesPath(), paths) ||
      !ModelChanges::ListFiles(ModelChanges::DatabaseFolder(), paths)) {
    return false;
  }
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  for (const std::string& path : paths) {
    constexpr mode_t kPermissions = 07777;
    FileChange file;
    struct stat before {};
    struct stat now {};
    file.path = path;
    file.was_there = lstat((FilesPath() + path).c_str(), &before) == 0;
    file.is_there = lstat((ModelChanges::DatabaseFolder() + path).c_str(), &now) == 0;
    file.mode = before.st_mode & kPermissions;
    file.uid = before.st_uid;
    file.gid = before.st_gid;
    if (file.was_there && file.is_there && before.st_ino == now.st_ino) {
      continue;
    }
    file.is_held =
        !file.was_there || korvmailserver::ReadFile(FilesPath() + path, file.before) >= 0;
    if (!file.is_held || (file.is_there && file.IsKept() &&
                          korvmailserver::ReadFile(PATHS::EtcDir() + path, file.after) < 0)) {
      LOG_ERROR("Cannot read [%s]", path.c_str());
      return false;
    }
    changes.files.push_back(std::move(file));
  }
  return true;
}

bool TakeBackWhole(Changes& changes) {
  return postara::sdk::Exist(FilesPath()) && ListFiles(changes) && changes.is_whole &&
         TakeBack(changes) && API::Updater().Trigger();
}

Interrupted Settle(const std::vector<std::string>& texts, bool all_or_nothing) {
  Entry entry;
  size_t files = 0;
  if (!ReadHead(texts, entry, files)) {
    return Interrupted::kNothing;
  }
  Changes changes;
  const bool is_own_model = ReadRows(texts, changes);
  const bool are_files_same = files == ModelChanges::StampOfFiles();
  Plan plan;
  if (!ModelChanges::Complete(changes) || !MakePlan(changes, plan)) {
    return Interrupted::kFailed;
  }
  entry.summary = plan.entries.empty() ? "more than can be listed" : plan.summary;
  if (all_or_nothing && is_own_model && TakeBackWhole(changes)) {
    entry.state = "undone";
    return AddEntry(entry, changes, plan) ? Interrupted::kTakenBack : Interrupted::kFailed;
  }
  if (plan.entries.empty() && are_files_same && changes.is_whole) {
    return Interrupted::kNothing;
  }
  entry.why_kept = WhyNotTakenBack(entry.why_kept, changes.is_whole, are_files_same, is_own_model);
  return AddEntry(entry, changes, plan) ? Interrupted::kRecorded : Interrupted::kFailed;
}

Interrupted SettleFile(bool all_or_nothing) {
  const std::string path = OpenPath(all_or_nothing);
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0) {
    if (all_or_nothing) {
      RemoveFiles();  // of one that ended, and was killed then
    }
    return Interrupted::kNothing;
  }
  struct stat held {};
  struct stat there {};
  DB::INTERNAL::RollBackKilledWriter(PATHS::HistoryDb());  // its commits count
  // Whoever had it locked before has settled it, and removed the file.
  const bool is_open = flock(file, LOCK_EX) == 0 && fstat(file, &held) == 0 &&
                       lstat(path.c_str(), &there) == 0 && held.st_ino == there.st_ino;
  std::string bytes;
  const Interrupted result = !is_open ? Interrupted::kNothing
                             : korvmailserver::ReadFile(path, bytes) < 0
                                 ? Interrupted::kFailed
                                 : Settle(TextsIn(bytes), all_or_nothing);
  if (is_open && result != Interrupted::kFailed) {
    if (all_or_nothing) {
      RemoveFiles();
    }
    Forget(path, file);
  }
  close(file);
  if (result == Interrupted::kFailed) {
    LOG_ERROR("The interrupted change in [%s] could not be settled", path.c_str());
  }
  return result;
}

}  // namespace

OpenChange::~OpenChange() {
  if (file_ >= 0) {
    Forget(OpenPath(all_or_nothing_), file_);
    close(file_);
    if (all_or_nothing_) {
      RemoveFiles();
    }
  }
}

void OpenChange::Leave() {
  if (file_ >= 0) {
    close(file_);
    file_ = -1;
  }
  is_given_up_ = true;
}

void OpenChange::Begin(const Entry& entry, ModelChanges& changes, bool all_or_nothing) {
  entry_ = &entry;
  files_ = changes.StampOfWatched();
  all_or_nothing_ = all_or_nothing;
  changes.TellBeforeCommits(
      [this](const std::vector<TableChange>& kept, bool is_whole) { _Note(kept, is_whole); });
}

namespace {

// Files are replaced by renaming: a second name keeps what is in them.
bool KeepFiles() {
  RemoveFiles();
  const std::string from = ModelChanges::DatabaseFolder();
  std::vector<std::string> paths;
  bool is_kept = mkdir(FilesPath().c_str(), S_IRWXU) == 0 && ModelChanges::ListFiles(from, paths);
  for (const std::string& path : paths) {
    const std::string to = FilesPath() + path;
    mkdir(to.substr(0, to.rfind('/')).c_str(), S_IRWXU);
    is_kept = is_kept && link((from + path).c_str(), to.c_str()) == 0;
  }
  return is_kept;
}

}  // namespace

bool OpenChange::_Open() {
  // Making it counts as commits, too: what comes later is the entry alone.
  if (!postara::sdk::Exist(PATHS::HistoryDb()) && !HistoryFile().OpenForWriting()) {
    return false;
  }
  const std::string path = OpenPath(all_or_nothing_);
  unlink(path.c_str());  // of an entry that could not be added
  file_ =
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  uid_t uid = 0;
  gid_t gid = 0;
  // Whoever may not give files away keeps it.
  if (file_ >= 0 && mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) >= 0) {
    (void)!fchown(file_, uid, gid);
  }
  return file_ >= 0 && flock(file_, LOCK_EX) == 0 && (!all_or_nothing_ || KeepFiles()) &&
         WriteText(file_, HeadOf(*entry_, files_));
}

namespace {

// The name of the model file among them, if one is. Nothing is asked for it within a commit.
std::string ModelIn(const std::vector<TableChange>& tables) {
  for (const TableChange& table : tables) {
    std::string name = table.path.substr(table.path.rfind('/') + 1);
    if (name.find("_DOMAIN.db") != std::string::npos) {
      return name;
    }
  }
  return "";
}

}  // namespace

void OpenChange::_Note(const std::vector<TableChange>& kept, bool is_whole) {
  Changes changes;
  changes.tables = kept;
  // What is no list of changes says that more was changed than was kept.
  is_given_up_ = is_given_up_ || (file_ < 0 && !_Open()) ||
                 !WriteText(file_, is_whole ? ToBytes(changes, ModelIn(kept)) : "more");
}

bool HasOpenWhole() {
  std::string bytes;
  Entry entry;
  size_t files = 0;
  return postara::sdk::Exist(OpenPath(true)) &&
         (korvmailserver::ReadFile(OpenPath(true), bytes) < 0 ||
          ReadHead(TextsIn(bytes), entry, files));
}

Interrupted SettleInterrupted(bool has_lock) {
  const Interrupted result = has_lock ? SettleFile(true) : Interrupted::kNothing;
  const Interrupted recorded = SettleFile(false);
  return result == Interrupted::kNothing ? recorded : result;
}

}  // namespace MDOMAIN::HISTORY
