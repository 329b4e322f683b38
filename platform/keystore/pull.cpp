// Bringing a whole publication to a machine that pulls.
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "platform/include/files.h"
#include "platform/include/lost_database.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/keystore/copied_store.h"
#include "platform/keystore/node_paths.h"
#include "platform/keystore/pieces.h"
#include "platform/keystore/replacement_file.h"

namespace korvmailserver {

namespace {

// How long a machine says nothing when nothing is new.
constexpr long long kReportSeconds = 60;

// Where the pieces of the file that is here lie in its bytes.
std::map<std::string, size_t> PlacesOfPieces(const KnownFile& known) {
  std::map<std::string, size_t> places;
  const std::vector<std::string> digests = SplitPieces(known.pieces);
  for (size_t i = 0; i < digests.size(); ++i) {
    places.emplace(digests[i], i * kPieceSize);
  }
  return places;
}

// What this process found when it last looked at the files that it pulls, by path. A machine that
// watches looks again and again, and what it sees on a quiet one is not worth writing down.
KnownFiles& SeenFiles() {
  static auto& files = *new KnownFiles();
  return files;
}

// The published keys with the values that they have on this machine.
std::map<std::string, std::string> KeysHere(const SharedContent& content) {
  std::map<std::string, std::string> keys = content.keys;
  for (const auto& [key, shared] : content.files) {
    if (keys.count(key) != 0) {
      keys[key] = UnderRoot(shared.file.path);
    }
  }
  return keys;
}

// Keys that come, change or go, without those of files that come or change.
std::vector<std::string> ListChangedKeys(const SharedContent& content,
                                         const std::map<std::string, std::string>& keys,
                                         std::map<std::string, std::string> old_keys) {
  std::vector<std::string> changed;
  for (const auto& [key, value] : keys) {
    const auto old = old_keys.find(key);
    if ((old == old_keys.end() || old->second != value) && content.files.count(key) == 0) {
      changed.push_back(key);
    }
    old_keys.erase(key);
  }
  for (const auto& old : old_keys) {
    changed.push_back(old.first);
  }
  std::sort(changed.begin(), changed.end());
  return changed;
}

// What was pulled once and is published no more: the texts of a domain's disclaimers, for example.
std::vector<std::string> ListUnpublished(const SharedContent& content, const KnownFiles& known) {
  std::vector<std::string> keys;
  for (const auto& [key, file] : known) {
    PublishedFile published;
    PublishedPlace place;
    std::string ignored;
    published.key = key;
    published.path = WithoutRoot(file.path);
    if (content.keys.count(key) == 0 && PlaceOfPublished(published, place, ignored)) {
      keys.push_back(key);
    }
  }
  return keys;
}

void RemoveFiles(const std::vector<std::string>& keys, const KnownFiles& known,
                 PullReport& report) {
  for (const std::string& key : keys) {
    const std::string& path = known.at(key).path;
    if (unlink(path.c_str()) == 0) {
      ForgetDatabase(path);
      report.files.push_back({key, WithoutRoot(path), PullResult::kRemoved});
    }
  }
}

bool IsOlder(const SharedState& shared, const NodeState& own) {
  return shared.term < own.term || (shared.term == own.term && shared.version < own.version);
}

}  // namespace

bool CopiedStore::Pull(bool accept_older, const std::function<void()>& before_change,
                       PullReport& report, std::string& error) {
  NodeState state;
  SharedContent content;
  if (!ReadNode(state, error)) {
    return false;
  }
  if (state.role != NodeRole::kMember) {
    error = "this machine does not pull: mdomain node join makes it one that does";
    return false;
  }
  if (!OnCopy([&](RedisPublication& copy) { return copy.ReadContent(content, error); })) {
    return false;
  }
  if (!content.state.exists) {
    error = content.state.former_publisher.empty()
                ? "nothing is published"
                : content.state.former_publisher +
                      " publishes in an older form; it is to be upgraded first";
    return false;
  }
  report = {};
  report.version = content.state.version;
  report.is_older = !accept_older && IsOlder(content.state, state);
  return report.is_older || _PullFrom(content, before_change, state, report, error);
}

bool CopiedStore::_PullFrom(const SharedContent& content,
                            const std::function<void()>& before_change, NodeState& state,
                            PullReport& report, std::string& error) {
  failed_ = local_.Name();
  LocalStore::Content own;
  if (!local_.ReadContent(own, error)) {
    return false;
  }
  LocalStore::Change change;
  Replacements replacements;
  if (!_FetchFiles(content, own.files, report, change.files, replacements)) {
    return false;  // each file has its line
  }
  change.removed_files = ListUnpublished(content, own.files);
  const std::map<std::string, std::string> keys = KeysHere(content);
  const std::vector<std::string> changed_keys = ListChangedKeys(content, keys, own.keys);
  const bool is_changed =
      !changed_keys.empty() || !replacements.empty() || !change.removed_files.empty();
  if (is_changed) {
    before_change();
  }
  if (!_ReplaceFiles(replacements, report)) {
    return false;
  }
  RemoveFiles(change.removed_files, own.files, report);
  report.keys = changed_keys;
  const bool is_new =
      is_changed || state.version != content.state.version || state.term != content.state.term;
  state.manager = content.state.manager;
  state.term = content.state.term;
  state.version = content.state.version;
  state.time = content.state.time;
  if (is_new) {
    change.drop_other_keys = true;
    change.entries.assign(keys.begin(), keys.end());
    change.memory = MemoryOf(state);
    failed_ = local_.Name();
    if (!local_.Apply(change, error)) {
      return false;
    }
  }
  _Report(state, content, change.files);
  return true;
}

// Stops at the first that cannot be put in its place, with one log line.
bool CopiedStore::_ReplaceFiles(const Replacements& replacements, PullReport& report) {
  for (const auto& [index, replacement] : replacements) {
    PulledFile& file = report.files[index];
    std::string reason;
    if (!replacement->Replace(reason)) {
      maillog(kLogError, "file %s: %s", file.key.c_str(), reason.c_str());
      return false;
    }
    file.result = PullResult::kReplaced;
  }
  return true;
}

// Whether all of them can be put in place; none is yet.
bool CopiedStore::_FetchFiles(const SharedContent& content, const KnownFiles& stored,
                              PullReport& report, KnownFiles& files, Replacements& replacements) {
  bool is_whole = true;
  for (const auto& [key, shared] : content.files) {
    std::unique_ptr<ReplacementFile> replacement;
    const auto known = stored.find(key);
    KnownFile& file = files[key] = known == stored.end() ? KnownFile() : known->second;
    report.files.push_back({key, shared.file.path, PullResult::kFailed});
    is_whole = _PullFile(shared, file, report.files.back(), replacement) && is_whole;
    if (!file.path.empty()) {
      SeenFiles()[file.path] = file;
    }
    if (replacement != nullptr) {
      replacements.emplace_back(report.files.size() - 1, std::move(replacement));
    }
  }
  return is_whole;
}

// Fetches what this machine lacks of a file into `replacement`; none where the file is here.
bool CopiedStore::_PullFile(const SharedFile& shared, KnownFile& known, PulledFile& pulled,
                            std::unique_ptr<ReplacementFile>& replacement) {
  PublishedPlace place;
  std::string error;
  std::string bytes;
  const auto fail = [&] {
    maillog(kLogError, "file %s: %s", pulled.key.c_str(), error.c_str());
    return false;
  };
  if (!PlaceOfPublished(shared.file, place, error)) {
    return fail();
  }
  const std::string path = UnderRoot(place.path);
  if (const auto seen = SeenFiles().find(path); seen != SeenFiles().end()) {
    known = seen->second;
  }
  if (access(path.c_str(), F_OK) != 0 || !LookAtPulledFile(path, known, bytes)) {
    known = {};
    known.path = path;
  }
  if (known.digest == shared.file.digest && known.size == shared.file.size) {
    pulled.result = PullResult::kUnchanged;
    return true;
  }
  if (bytes.empty() && known.size > 0) {
    known.stamp.clear();
    LookAtPulledFile(path, known, bytes);
  }
  const std::map<std::string, size_t> places = PlacesOfPieces(known);
  const auto own = [&](const std::string& digest) {
    const auto found = places.find(digest);
    return found == places.end() ? "" : bytes.substr(found->second, kPieceSize);
  };
  auto made = std::make_unique<ReplacementFile>(path, place.mode);
  const auto take = [&](const std::string& piece, std::string& reason) {
    return made->Append(piece, reason);
  };
  if (!made->Open(error) || !OnCopy([&](RedisPublication& copy) {
        return copy.Fetch(pulled.key, shared, own, take, error);
      })) {
    return fail();
  }
  known = {path, "", shared.file.size, shared.file.digest, shared.pieces};
  replacement = std::move(made);
  return true;
}

void CopiedStore::_Report(const NodeState& state, const SharedContent& content,
                          const KnownFiles& files) {
  NodeReport report;
  report.name = NodeName();
  report.term = state.term;
  report.version = state.version;
  report.time = time(nullptr);
  for (const auto& file : content.files) {
    const auto own = files.find(file.first);
    report.digests[file.first] = own == files.end() ? "" : own->second.digest;
  }
  // A machine that watches looks every few seconds.
  const bool is_said = reported_.term == report.term && reported_.version == report.version &&
                       reported_.digests == report.digests &&
                       report.time - reported_.time < kReportSeconds;
  if (is_said) {
    return;
  }
  reported_ = report;
  std::string error;
  if (!OnCopy([&](RedisPublication& copy) { return copy.Report(report, state.id, error); })) {
    maillog(kLogWarning, "key store %s: what this machine has is not recorded: %s", failed_.c_str(),
            error.c_str());
  }
}

}  // namespace korvmailserver
