// Writing here and publishing there: who may, and what is compared before.
#include "platform/keystore/copied_store.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/keystore/node_paths.h"
#include "platform/keystore/pieces.h"

namespace korvmailserver {

namespace {

constexpr char kNobodyManages[] =
    "nobody has said which machine manages the domains: mdomain node manage or mdomain node join";

std::string ManagedElsewhere(const std::string& manager, long long term) {
  std::string who = manager.empty() ? "another machine" : manager;
  if (manager == NodeName()) {
    who = "another machine that is called " + manager + " as well";
  }
  return who + " manages the domains" + (term == 0 ? "" : " (term " + std::to_string(term) + ")");
}

bool IsReplaced(const NodeState& own, const SharedState& found) {
  return found.exists &&
         (found.term > own.term || (found.term == own.term && found.manager_id != own.id));
}

// What the machine that manages may put in the place of what the store says.
bool FollowAsManager(const NodeState& own, const std::string& token, const SharedState& found,
                     SharedState& next, std::string& error) {
  const bool is_former = !found.former_publisher.empty() && found.former_publisher != NodeName();
  if (is_former || IsReplaced(own, found)) {
    error = ManagedElsewhere(is_former ? found.former_publisher : found.manager, found.term);
    return false;
  }
  const bool is_own_attempt = found.token == own.token || found.token == token;
  if (found.exists && found.term == own.term && found.version > own.version && !is_own_attempt) {
    error = "the store has publication " + std::to_string(found.version) +
            ", and this machine made only " + std::to_string(own.version) +
            ": its files may be those of a backup; mdomain node take-over settles it";
    return false;
  }
  next.term = own.term;
  next.version = std::max(own.version, found.version) + 1;
  next.followed = own.followed;
  return true;
}

// What a machine adds that takes over from the publication that it found.
std::string FollowedWith(const std::string& followed, const std::string& token) {
  constexpr size_t kMostBytes = 2112;  // of the last 64
  const std::string all = followed + (followed.empty() || token.empty() ? "" : " ") + token;
  return all.size() <= kMostBytes ? all : all.substr(all.size() - kMostBytes);
}

// Those of `wanted` that `stored` lacks or has otherwise.
template <typename Map>
Map Differing(const Map& wanted, const Map& stored) {
  Map differing;
  for (const auto& entry : wanted) {
    const auto old = stored.find(entry.first);
    if (old == stored.end() || !(old->second == entry.second)) {
      differing.insert(entry);
    }
  }
  return differing;
}

}  // namespace

PendingPublications& PublicationsOfProcess() {
  static auto& pending = *new PendingPublications();
  return pending;
}

std::string WithoutRoot(const std::string& path) {
  const std::string root = RootPrefix();
  return path.rfind(root + "/", 0) == 0 ? path.substr(root.size()) : path;
}

CopiedStore::CopiedStore(const KeyStoreSettings& settings)
    : settings_(settings), failed_(local_.Name()) {}

CopiedStore::~CopiedStore() = default;

bool CopiedStore::Get(const std::vector<std::string>& keys,
                      std::map<std::string, std::string>& values, std::string& error) {
  _Settle();
  return local_.Get(keys, values, error);
}

bool CopiedStore::List(const std::string& tree, const KeyUse& use, std::string& error) {
  _Settle();
  return local_.List(tree, use, error);
}

bool CopiedStore::All(std::map<std::string, std::string>& values, std::string& error) {
  _Settle();
  return local_.All(values, error);
}

bool CopiedStore::Write(const Entries& entries, const std::vector<std::string>& removed_keys,
                        std::string& error) {
  if (!_RequireManager(error) || !local_.Write(entries, removed_keys, error)) {
    return false;
  }
  _PublishSoon();
  return true;
}

bool CopiedStore::SetFile(const std::string& key, const std::string& path, std::string& error) {
  if (access(path.c_str(), R_OK) != 0) {
    error = "cannot read " + path + ": " + strerror(errno);
    return false;
  }
  return Write({{key, path}}, {}, error);
}

bool CopiedStore::IsHealthy(std::string& error) {
  failed_ = local_.Name();
  return local_.IsHealthy(error);
}

bool CopiedStore::_ReadState(NodeState& state, std::string& error) {
  failed_ = local_.Name();
  LocalStore::Memory memory;
  const bool is_read = local_.ReadMemory(memory, error);
  state = NodeStateOf(memory);
  return is_read;
}

bool CopiedStore::_WriteState(const NodeState& state, std::string& error) {
  failed_ = local_.Name();
  LocalStore::Change change;
  change.memory = MemoryOf(state);
  return local_.Apply(change, error);
}

bool CopiedStore::_RequireManager(std::string& error) {
  NodeState state;
  if (!ReadNode(state, error)) {
    return false;
  }
  if (state.role == NodeRole::kMember || state.role == NodeRole::kReplaced) {
    error = ManagedElsewhere(state.manager, state.term) + ", nothing is changed here";
    return false;
  }
  failed_ = local_.Name();
  return true;
}

bool CopiedStore::OnCopy(const std::function<bool(RedisPublication& copy)>& work) {
  if (copy_ == nullptr) {
    copy_ = std::make_unique<RedisPublication>(settings_);
  }
  const bool is_done = work(*copy_);
  failed_ = copy_->Name();
  if (!is_done) {
    copy_.reset();
  }
  return is_done;
}

bool CopiedStore::ReadShared(SharedState& state, std::string& error) {
  return OnCopy([&](RedisPublication& copy) { return copy.ReadState(state, error); });
}

bool CopiedStore::ReadNode(NodeState& state, std::string& error) {
  if (!_ReadState(state, error)) {
    return false;
  }
  if (state.role == NodeRole::kUndecided && !is_settled_) {
    // A store that is away says nothing about this machine.
    std::string ignored;
    NodeState adopted = state;
    state = _Adopt(adopted, ignored) ? adopted : state;
  }
  is_settled_ = true;
  return true;
}

// Before the first answer: a store from before there were roles has keys that are not here yet.
void CopiedStore::_Settle() {
  NodeState state;
  std::string ignored;
  if (!is_settled_) {
    ReadNode(state, ignored);
  }
  failed_ = local_.Name();
}

// What a store says about this machine that was written before there were roles, or by a run that
// was killed before it could note its own.
bool CopiedStore::_Adopt(NodeState& state, std::string& error) {
  SharedState shared;
  if (!ReadShared(shared, error)) {
    return false;
  }
  LocalStore::Change change;
  if (shared.exists && shared.manager_id == state.id && shared.token == state.token) {
    state.role = NodeRole::kManager;
    state.term = shared.term;
    state.version = shared.version;
  } else if (!shared.former_publisher.empty()) {
    const bool is_own = shared.former_publisher == NodeName();
    state.role = is_own ? NodeRole::kManager : NodeRole::kMember;
    state.term = is_own ? 1 : 0;
    SharedContent content;
    if (!OnCopy([&](RedisPublication& copy) { return copy.ReadContent(content, error); })) {
      return false;
    }
    change.drop_other_keys = true;
    change.entries.assign(content.keys.begin(), content.keys.end());
  } else {
    return true;
  }
  state.manager = state.role == NodeRole::kManager ? NodeName() : shared.former_publisher;
  change.memory = MemoryOf(state);
  return local_.Apply(change, error);
}

void CopiedStore::_PublishSoon() {
  PendingPublications& pending = PublicationsOfProcess();
  if (pending.open_scopes > 0) {
    pending.is_due = true;
    return;
  }
  std::vector<std::string> mended;
  std::string error;
  if (!Publish(false, mended, error)) {
    maillog(kLogWarning, "key store %s: not published: %s", failed_.c_str(), error.c_str());
  }
}

bool CopiedStore::_Gather(Publication& publication, LocalStore::Content& own, std::string& error) {
  failed_ = local_.Name();
  publication.files.clear();
  publication.bytes.clear();
  if (!local_.ReadContent(own, error)) {
    return false;
  }
  publication.keys = own.keys;
  publication.known = own.files;
  for (auto& [key, value] : publication.keys) {
    const std::string path = value;
    PublishedFile file;
    PublishedPlace place;
    std::string ignored;
    file.key = key;
    file.path = WithoutRoot(path);
    if (!PlaceOfPublished(file, place, ignored)) {
      continue;
    }
    value = file.path;
    // A file that is gone is left as it was published.
    if (access(path.c_str(), F_OK) == 0) {
      publication.files[key] = own.files[key];
      if (!LookAtFile(path, publication.files[key], publication.bytes[key], error)) {
        return false;
      }
    }
  }
  return true;
}

bool CopiedStore::Publish(bool is_verified, std::vector<std::string>& mended, std::string& error) {
  std::string& why = PublicationsOfProcess().why_unpublished;
  PublicationsOfProcess().is_due = false;
  NodeState state;
  if (!ReadNode(state, error)) {
    why = error;
    return false;
  }
  if (state.role != NodeRole::kManager) {
    error = state.role == NodeRole::kUndecided ? kNobodyManages
                                               : ManagedElsewhere(state.manager, state.term);
    why = error;
    return false;
  }
  Publication publication;
  publication.is_verified = is_verified;
  const std::string token = RandomToken();
  publication.follow = [&state, token](const SharedState& found, SharedState& next,
                                       std::string& reason) {
    next.token = token;
    return FollowAsManager(state, token, found, next, reason);
  };
  const bool is_published = _PublishAs(state, publication, error);
  why = is_published ? "" : failed_ + ": " + error;
  mended.swap(publication.mended);
  return is_published || _KeepUnpublished(state);
}

// Publishes, and notes how that ended. `state` is what this machine remembers, with the token that
// it is going to write.
bool CopiedStore::_PublishAs(NodeState& state, Publication& publication, std::string& error) {
  const auto follow = publication.follow;
  publication.follow = [&](const SharedState& found, SharedState& next, std::string& reason) {
    next.exists = true;
    next.manager = NodeName();
    next.manager_id = state.id;
    next.time = time(nullptr);
    return follow(found, next, reason);
  };
  LocalStore::Content own;
  publication.gather = [&](Publication& gathered, std::string& reason) {
    return _Gather(gathered, own, reason);
  };
  publication.before_writing = [&](const SharedState& next, std::string& reason) {
    NodeState tried = state;
    tried.token = next.token;
    return _WriteState(tried, reason);
  };
  SharedState shared;
  PublicationResult result = PublicationResult::kFailed;
  OnCopy([&](RedisPublication& copy) {
    result = copy.Publish(publication, shared, error);
    return result != PublicationResult::kFailed;
  });
  std::string ignored;
  if (result == PublicationResult::kRefused) {
    NoteReplaced(shared, state, ignored);
  }
  if (result != PublicationResult::kDone) {
    return false;
  }
  _NotePublication(shared, publication, own, state);
  return true;
}

// Writes what differs from what is noted already. The store has it all: what cannot be noted is
// only asked again.
void CopiedStore::_NotePublication(const SharedState& shared, const Publication& publication,
                                   const LocalStore::Content& own, NodeState& state) {
  state.role = NodeRole::kManager;
  state.manager = shared.manager;
  state.term = shared.term;
  state.version = shared.version;
  state.time = shared.time;
  state.token = shared.token;
  state.followed = shared.followed;
  state.unpublished_since = 0;
  LocalStore::Change change;
  change.memory = Differing(MemoryOf(state), own.memory);
  change.files = Differing(publication.files, own.files);
  std::string ignored;
  if (!change.memory.empty() || !change.files.empty()) {
    local_.Apply(change, ignored);
  }
}

// Always false, which is the caller's answer.
bool CopiedStore::_KeepUnpublished(NodeState& state) {
  NodeState noted;
  std::string ignored;
  const std::string failed = failed_;
  if (_ReadState(noted, ignored)) {
    noted.role = state.role;
    noted.manager = state.manager;
    noted.term = state.term;
    noted.unpublished_since =
        noted.unpublished_since == 0 ? time(nullptr) : noted.unpublished_since;
    _WriteState(noted, ignored);
  }
  failed_ = failed;
  return false;
}

bool CopiedStore::NoteReplaced(const SharedState& shared, NodeState& state, std::string& error) {
  if (state.role != NodeRole::kManager || !IsReplaced(state, shared)) {
    return true;
  }
  state.role = NodeRole::kReplaced;
  state.manager = shared.manager;
  state.term = shared.term;
  return _WriteState(state, error);
}

bool CopiedStore::BeginManaging(const StoreStanding& seen, std::string& error) {
  NodeState state;
  Publication publication;
  if (!_ReadState(state, error)) {
    return false;
  }
  if (state.id.empty()) {
    state.id = RandomToken();
  }
  const std::string token = RandomToken();
  publication.follow = [&state, &seen, token](const SharedState& found, SharedState& next,
                                              std::string& reason) {
    const std::string manager = found.exists ? found.manager : found.former_publisher;
    const bool is_own_attempt = found.exists && found.token == token;
    const bool is_seen =
        manager == seen.manager && found.term == seen.term && found.version == seen.version;
    if (!is_own_attempt && !is_seen) {
      reason = manager.empty() ? "the store was emptied in the meantime"
                               : ManagedElsewhere(manager, found.term) +
                                     " and has just published, or just taken over";
      return false;
    }
    next.token = token;
    next.term = is_own_attempt ? found.term : std::max(state.term, found.term) + 1;
    next.followed = is_own_attempt
                        ? found.followed
                        : FollowedWith(found.exists ? found.followed : state.followed, found.token);
    next.version = std::max(state.version, found.version) + 1;
    return true;
  };
  return _PublishAs(state, publication, error);
}

bool CopiedStore::BecomeMember(std::string& error) {
  NodeState state;
  SharedState shared;
  if (!_ReadState(state, error) || !ReadShared(shared, error)) {
    return false;
  }
  state.role = NodeRole::kMember;
  state.manager = shared.exists ? shared.manager : shared.former_publisher;
  state.term = 0;
  state.version = 0;
  state.unpublished_since = 0;
  state.token.clear();
  return _WriteState(state, error);
}

bool CopiedStore::ReadSharedContent(PublishedContent& content, std::string& error) {
  SharedContent shared;
  if (!OnCopy([&](RedisPublication& copy) { return copy.ReadContent(shared, error); })) {
    return false;
  }
  content = {};
  content.keys = shared.keys;
  for (const auto& file : shared.files) {
    content.files[file.first] = file.second.file;
  }
  return true;
}

bool CopiedStore::ReadOwnContent(PublishedContent& content, std::string& error) {
  Publication publication;
  LocalStore::Content own;
  if (!_Gather(publication, own, error)) {
    return false;
  }
  content = {};
  content.keys = publication.keys;
  for (const auto& [key, file] : publication.files) {
    content.files[key] = {key, WithoutRoot(file.path), file.size, file.digest};
  }
  return true;
}

}  // namespace korvmailserver
