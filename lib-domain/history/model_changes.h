// Everything that a change of the domains leaves on this machine, watched while it is made: rows of
// the model, of the addresses with several members, of the mail settings and the key store, and the
// files of the domains.
#ifndef LIB_DOMAIN_HISTORY_MODEL_CHANGES_H
#define LIB_DOMAIN_HISTORY_MODEL_CHANGES_H

#include <sys/stat.h>

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/change_record.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

// A file in one of the folders whose files belong to domains.
struct FileChange {
  std::string path;  // below the folder of the databases, "disclaimer_content/domain-1"
  bool was_there = false;
  bool is_there = false;
  std::string before;    // the bytes; those of a key for this process alone
  std::string after;     // of a text
  bool is_held = false;  // whether `before` could be read
  mode_t mode = 0;       // of a key as it was, with its owner
  uid_t uid = 0;
  gid_t gid = 0;

  bool IsKept() const;  // whether the history keeps the bytes: those of a key are secret
};

struct Changes {
  std::vector<korvmailserver::TableChange> tables;  // ascending by database and table
  std::vector<FileChange> files;                    // ascending by path
  bool is_whole = true;                             // false: more was changed than was kept

  bool IsEmpty() const { return is_whole && tables.empty() && files.empty(); }
};

// More rows than a first refresh of a million users touches.
constexpr size_t kEveryRow = 20000000;

// Keys that a publication writes from the model say nothing new, but where publishing is all.
enum class Watch { kStored, kPublishedToo };

// Of the root that is in force when it begins. What the program keeps for itself (logs of changes,
// notices, marks of unfinished work) and what others write is no change.
class MDOMAIN_EXPORT ModelChanges {
 public:
  // Keeps at most so many rows.
  explicit ModelChanges(size_t most_rows, Watch watch = Watch::kStored);
  ~ModelChanges();
  ModelChanges(const ModelChanges&) = delete;
  ModelChanges& operator=(const ModelChanges&) = delete;
  // From now on also the files. Before this, once nobody else may change them, a file counts as
  // unchanged; calls after the first do nothing.
  void WatchFiles();
  // Which keys List tells from now on.
  void SetWatch(Watch watch) { watch_ = watch; }
  // What differs now. False with one log line when it cannot be read.
  bool List(Changes& changes) const;

  // Before each commit `use` gets the rows that were changed since the last call, as they were, and
  // whether all were kept so far.
  void TellBeforeCommits(korvmailserver::ChangeRecord::Listener use) {
    record_.TellBeforeCommits(std::move(use));
  }
  // Another number once a file of the domains differs: of the files as they were when watching
  // began, and as they are.
  size_t StampOfWatched() const;
  static size_t StampOfFiles();
  // Of rows as they were makes what differs now. False as List.
  static bool Complete(Changes& changes);
  // Adds the paths of these files below a folder that is laid out so. False with one log line.
  static bool ListFiles(const std::string& folder, std::vector<std::string>& paths);
  // What is kept so far was before this change, and does not count.
  void StartAnew() { record_.StartAnew(); }
  // Where the databases are, links resolved, with a slash at the end.
  static std::string DatabaseFolder();

 private:
  // A descriptor, so that what is replaced can still be read.
  struct Kept {
    int file = -1;
    std::string bytes;  // where there are too many to open them all
    bool is_held = false;
    struct stat info {};
    std::string stamp;
  };

  using Stamps = std::map<std::string, std::string>;

  void _Keep(const std::string& path, Kept& kept, size_t& open_files) const;
  bool _ListFile(const std::string& path, const Stamps& now, Changes& changes) const;

  std::string folder_;
  Watch watch_;
  bool watches_files_ = false;
  bool are_files_known_ = false;
  std::map<std::string, Kept> files_;
  korvmailserver::ChangeRecord record_;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_MODEL_CHANGES_H
