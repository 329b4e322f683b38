// Pulling published files to where this machine's programs read them.
#include "platform/include/node_files.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <iterator>

#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/new_file.h"
#include "platform/include/root_path.h"
#include "platform/keystore/backend.h"
#include "platform/keystore/node_paths.h"
#include "platform/keystore/snapshot.h"

namespace korvmailserver {

namespace {

// A file that grows beside the one that it will replace.
class PulledFile : public FileShare::Receiver {
 public:
  PulledFile(const std::string& path, mode_t mode)
      : path_(path), mode_(mode), folder_(path.substr(0, path.rfind('/'))), file_(path) {}

  bool Begin(std::string& error) override {
    return file_.IsOpen() ? file_.Clear() || Fail(error) : Open(error);
  }

  bool Append(const std::string& piece, std::string& error) override {
    return file_.Append(piece) || Fail(error);
  }

  // Puts the new file in the old one's place. A journal that a crash left beside an old database
  // would be played back into the new one.
  bool Replace(std::string& error) {
    unlink((path_ + "-journal").c_str());
    return file_.Replace(mode_) || Fail(error);
  }

 private:
  bool Open(std::string& error) {
    const FolderResult made = MakeServiceFolder(folder_, 0755);
    uid_t uid = 0;
    gid_t gid = 0;
    if (made == FolderResult::kNoAccount || mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
      error = std::string("no account ") + kServiceAccount;
      return false;
    }
    if (made == FolderResult::kFailed) {
      return Fail(error);
    }
    if (!IsSafeFolder(folder_, error)) {
      error = "cannot write " + path_ + ": " + error;
      return false;
    }
    RemoveLeftovers(folder_);
    return (file_.Open() && file_.SetOwner(uid, gid)) || Fail(error);
  }

  bool Fail(std::string& error) const {
    error = "cannot write " + path_ + ": " + strerror(errno);
    return false;
  }

  const std::string path_;
  const mode_t mode_;
  const std::string folder_;
  NewFile file_;
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
  PublishedPlace place;
  if (!PlaceOfPublished(file, place, error)) {
    return PullResult::kFailed;
  }
  if (file.node == NodeName()) {
    return PullResult::kPublishedHere;
  }
  const std::string path = UnderRoot(place.path);
  std::string bytes;
  if (ReadFile(path, bytes) == 0 && DigestOf(bytes) == file.digest) {
    return PullResult::kUnchanged;
  }
  PulledFile replacement(path, place.mode);
  PublishedFile fetched;
  if (!files.Fetch(file.key, fetched, replacement, error)) {
    return PullResult::kFailed;
  }
  if (fetched.path != file.path) {
    error = "file " + file.key + " moved while it was pulled";
    return PullResult::kFailed;
  }
  file = fetched;
  return replacement.Replace(error) ? PullResult::kReplaced : PullResult::kFailed;
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
