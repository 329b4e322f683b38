// Pulling published files to where this machine's programs read them.
#include "platform/include/node_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <iterator>

#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/keystore/backend.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

// Only files below this folder are written: whoever can write to the store could otherwise replace
// any file of this machine.
constexpr char kAllowedFolder[] = "/var/packages/Postara-Server/";

bool IsAllowed(const std::string& path) {
  return path.rfind(kAllowedFolder, 0) == 0 && (path + "/").find("/../") == std::string::npos &&
         path.find('\0') == std::string::npos && path.back() != '/';
}

// A file that grows beside the one that it will replace.
class NewFile : public FileShare::Receiver {
 public:
  explicit NewFile(const std::string& path)
      : path_(path),
        folder_(path.substr(0, path.rfind('/'))),
        beside_(folder_ + "/." + path.substr(path.rfind('/') + 1) + ".pull") {}
  ~NewFile() override {
    if (file_ >= 0) {
      unlink(beside_.c_str());
      close(file_);
    }
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  bool Begin(std::string& error) override {
    return (file_ >= 0 || Open(error)) &&
           ((ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0) || Fail(error));
  }

  bool Append(const std::string& piece, std::string& error) override {
    for (size_t done = 0; done < piece.size();) {
      const ssize_t count = write(file_, piece.data() + done, piece.size() - done);
      if (count < 0 && errno != EINTR) {
        return Fail(error);
      }
      done += count < 0 ? 0 : static_cast<size_t>(count);
    }
    return true;
  }

  // Puts the new file in the old one's place. A journal that a crash left beside an old database
  // would be played back into the new one.
  bool Replace(unsigned mode, std::string& error) {
    if (fchmod(file_, mode) != 0 || fsync(file_) != 0) {
      return Fail(error);
    }
    if (mailFileOwnerModeSet(beside_.c_str(), kServiceAccount, mode) < 0) {
      error.clear();
      return false;
    }
    unlink((path_ + "-journal").c_str());
    if (rename(beside_.c_str(), path_.c_str()) != 0) {
      return Fail(error);
    }
    close(file_);
    file_ = -1;
    SyncFolderOf(path_);
    return true;
  }

 private:
  bool Open(std::string& error) {
    const FolderResult made = MakeServiceFolder(folder_, 0755);
    if (made == FolderResult::kNoAccount) {
      error = std::string("no account ") + kServiceAccount;
      return false;
    }
    if (made == FolderResult::kFailed) {
      return Fail(error);
    }
    file_ = open(beside_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file_ < 0) {
      return Fail(error);
    }
    if (flock(file_, LOCK_EX | LOCK_NB) != 0) {
      error = "another pull is writing " + beside_;
      close(file_);
      file_ = -1;
      return false;
    }
    return true;
  }

  bool Fail(std::string& error) const {
    error = "cannot write " + beside_ + ": " + strerror(errno);
    return false;
  }

  const std::string path_;
  const std::string folder_;
  const std::string beside_;
  int file_ = -1;
};

bool OnFiles(int log_level,
             const std::function<bool(FileShare& files, std::string& error)>& operation) {
  return RunOnKeyStore(
      [&](KeyStoreBackend& backend, std::string& error) {
        FileShare* files = backend.Files();
        if (files == nullptr) {
          error = "this key store is not shared between machines";
          return false;
        }
        return operation(*files, error);
      },
      log_level);
}

// Sets `file` to what was fetched.
PullResult Pull(FileShare& files, PublishedFile& file, std::string& error) {
  if (!IsAllowed(file.path)) {
    error = "file " + file.key + ": its path [" + file.path + "] is not below " + kAllowedFolder;
    return PullResult::kFailed;
  }
  if (file.node == NodeName()) {
    return PullResult::kPublishedHere;
  }
  const std::string path = UnderRoot(file.path);
  std::string bytes;
  if (ReadFile(path, bytes) == 0 && DigestOf(bytes) == file.digest) {
    return PullResult::kUnchanged;
  }
  NewFile replacement(path);
  PublishedFile fetched;
  if (!files.Fetch(file.key, fetched, replacement, error)) {
    return PullResult::kFailed;
  }
  if (fetched.path != file.path) {
    error = "file " + file.key + " moved while it was pulled";
    return PullResult::kFailed;
  }
  file = fetched;
  return replacement.Replace(file.mode, error) ? PullResult::kReplaced : PullResult::kFailed;
}

}  // namespace

std::string NodeName() {
  HostSettings settings;
  std::string ignored;
  if (ReadHostSettings(settings, ignored) && !settings.keystore.node.empty()) {
    return settings.keystore.node;
  }
  char name[HOST_NAME_MAX + 1] = {};
  gethostname(name, sizeof(name) - 1);
  const std::string root = RootPrefix();
  return root.empty() ? name : std::string(name) + ":" + root;
}

bool ListPublishedFiles(std::vector<PublishedFile>& files) {
  return OnFiles(
      3, [&](FileShare& share, std::string& error) { return share.ListFiles(files, error); });
}

bool GetPublisher(const std::string& key, std::string& node) {
  std::vector<PublishedFile> files;
  if (!RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
        return backend.Files() == nullptr || backend.Files()->DescribeFile(key, files, error);
      })) {
    return false;
  }
  node = files.empty() ? "" : files.front().node;
  return true;
}

bool PublishChangedFiles(const std::vector<std::pair<std::string, std::string>>& files) {
  return RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
    FileShare* share = backend.Files();
    if (share == nullptr) {
      return true;
    }
    std::vector<std::pair<std::string, std::string>> there;
    std::vector<std::pair<std::string, std::string>> changed;
    std::copy_if(files.begin(), files.end(), std::back_inserter(there),
                 [](const auto& file) { return KLIBCFileExist(file.second.c_str()); });
    return share->FindChanged(there, changed, error) &&
           std::all_of(changed.begin(), changed.end(), [&](const auto& file) {
             return backend.SetFile(file.first, file.second, error);
           });
  });
}

PullResult PullPublishedFile(const std::string& key) {
  std::vector<PublishedFile> files;
  if (!ListPublishedFiles(files)) {
    return PullResult::kFailed;
  }
  files.erase(std::remove_if(files.begin(), files.end(),
                             [&](const PublishedFile& file) { return file.key != key; }),
              files.end());
  if (files.empty()) {
    maillog(kLogError, "no file is published as %s", key.c_str());
    return PullResult::kFailed;
  }
  return PullPublishedFiles(files).front();
}

std::vector<PullResult> PullPublishedFiles(const std::vector<PublishedFile>& files) {
  std::vector<PullResult> results;
  std::vector<NodeFile> records;
  for (PublishedFile file : files) {
    PullResult result = PullResult::kFailed;
    OnFiles(3, [&](FileShare& share, std::string& error) {
      result = Pull(share, file, error);
      return result != PullResult::kFailed;
    });
    results.push_back(result);
    if (result == PullResult::kUnchanged || result == PullResult::kReplaced) {
      records.push_back({NodeName(), file.key, file.digest, time(nullptr)});
    }
  }
  if (!records.empty()) {
    OnFiles(kLogWarning, [&](FileShare& share, std::string& error) {
      return share.RecordNodeFiles(records, error);
    });
  }
  return results;
}

bool ListNodeFiles(std::vector<NodeFile>& files) {
  return OnFiles(
      3, [&](FileShare& share, std::string& error) { return share.ListNodeFiles(files, error); });
}

}  // namespace korvmailserver
