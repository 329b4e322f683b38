// The public functions, on the store in force.
#include "platform/include/nodes.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <exception>
#include <iterator>

#include "platform/include/files.h"
#include "platform/include/host_settings.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/keystore/copied_store.h"

namespace korvmailserver {

namespace {

bool OnShared(const std::function<bool(CopiedStore& store, std::string& error)>& operation,
              int log_level = kLogError) {
  return RunOnKeyStore(
      [&](KeyStoreBackend& backend, std::string& error) {
        CopiedStore* store = backend.Shared();
        if (store == nullptr) {
          error = "this key store is not shared between machines";
          return false;
        }
        return operation(*store, error);
      },
      log_level);
}

// A store without machines is no failure.
bool IsShared(bool& is_shared) {
  return RunOnKeyStore([&](KeyStoreBackend& backend, std::string& /*error*/) {
    is_shared = backend.Shared() != nullptr;
    return true;
  });
}

// For a scope's end, which must not throw: where there is no memory, a short text needs none.
void NoteUnpublished(const char* reason) noexcept {
  PublicationsOfProcess().why_unpublished = "no memory";
  try {
    PublicationsOfProcess().why_unpublished = reason;
    maillog(kLogWarning, "key store: not published: %s", reason);
  } catch (const std::exception&) {
  }
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

bool ReadNodeStanding(NodeStanding& standing) {
  bool is_shared = false;
  if (!IsShared(is_shared)) {
    return false;
  }
  standing = {};
  standing.name = NodeName();
  if (!is_shared) {
    return true;
  }
  return OnShared([&](CopiedStore& store, std::string& error) {
    NodeState state;
    if (!store.ReadNode(state, error)) {
      return false;
    }
    standing.role = state.role;
    standing.manager = state.manager;
    standing.term = state.term;
    standing.version = state.version;
    standing.time = state.time;
    standing.unpublished_since = state.unpublished_since;
    return true;
  });
}

bool ReadStoreStanding(StoreStanding& standing) {
  return OnShared([&](CopiedStore& store, std::string& error) {
    SharedState shared;
    NodeState state;
    if (!store.ReadShared(shared, error) || !store.ReadNode(state, error) ||
        !store.NoteReplaced(shared, state, error)) {
      return false;
    }
    standing.manager = shared.exists ? shared.manager : shared.former_publisher;
    standing.is_empty = standing.manager.empty();
    standing.term = shared.term;
    standing.version = shared.version;
    standing.time = shared.time;
    standing.is_followed = state.token.empty() || state.token == shared.token ||
                           shared.followed.find(state.token) != std::string::npos;
    // A store of an earlier term, or of before terms, has not heard of this machine's later one.
    const bool is_own_name =
        shared.exists ? shared.manager_id == state.id : shared.former_publisher == NodeName();
    standing.is_own = state.role == NodeRole::kManager &&
                      (shared.term < state.term || (is_own_name && shared.term == state.term));
    return true;
  });
}

PublicationScope::PublicationScope() {
  ++PublicationsOfProcess().open_scopes;
}

PublicationScope::~PublicationScope() {
  PendingPublications& pending = PublicationsOfProcess();
  if (--pending.open_scopes > 0 || !pending.is_due) {
    return;
  }
  try {
    std::vector<std::string> mended;
    OnShared(
        [&](CopiedStore& store, std::string& error) { return store.Publish(false, mended, error); },
        kLogWarning);
  } catch (const std::exception& failure) {
    NoteUnpublished(failure.what());
  }
}

std::string WhyUnpublished() {
  return PublicationsOfProcess().why_unpublished;
}

bool PublishChangedFiles(const std::vector<std::pair<std::string, std::string>>& files) {
  return RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
    if (backend.Shared() == nullptr) {
      return true;
    }
    KeyStoreBackend::Entries there;
    std::copy_if(files.begin(), files.end(), std::back_inserter(there),
                 [](const auto& file) { return KLIBCFileExist(file.second.c_str()); });
    return there.empty() || backend.Write(there, {}, error);
  });
}

bool PublishVerified(std::vector<std::string>& mended) {
  return OnShared(
      [&](CopiedStore& store, std::string& error) { return store.Publish(true, mended, error); });
}

bool BeginManaging(const StoreStanding& seen) {
  return OnShared(
      [&](CopiedStore& store, std::string& error) { return store.BeginManaging(seen, error); });
}

bool BecomeMember() {
  return OnShared([](CopiedStore& store, std::string& error) { return store.BecomeMember(error); });
}

bool ReadStoreContent(PublishedContent& content) {
  return OnShared([&](CopiedStore& store, std::string& error) {
    return store.ReadSharedContent(content, error);
  });
}

bool ReadOwnContent(PublishedContent& content) {
  return OnShared(
      [&](CopiedStore& store, std::string& error) { return store.ReadOwnContent(content, error); });
}

bool PullPublication(bool accept_older, PullReport& report,
                     const std::function<void()>& before_change) {
  return OnShared([&](CopiedStore& store, std::string& error) {
    return store.Pull(accept_older, before_change, report, error);
  });
}

bool PullPublication(bool accept_older, PullReport& report) {
  return PullPublication(accept_older, report, [] {});
}

bool WaitForPublication(int seconds) {
  static bool is_said = false;
  int told = -1;
  OnShared(
      [&](CopiedStore& store, std::string& error) {
        return store.OnCopy([&](RedisPublication& copy) {
          told = copy.Wait(seconds, error);
          error = is_said ? "" : error;
          return told >= 0;
        });
      },
      kLogWarning);
  is_said = told < 0;
  if (told < 0) {
    sleep(static_cast<unsigned>(seconds));
  }
  return told > 0;
}

bool ListNodes(std::vector<NodeReport>& nodes) {
  return OnShared([&](CopiedStore& store, std::string& error) {
    return store.OnCopy([&](RedisPublication& copy) { return copy.ListNodes(nodes, error); });
  });
}

bool ListStoreRisks(std::vector<std::string>& risks) {
  return OnShared([&](CopiedStore& store, std::string& error) {
    NodeState state;
    return store.ReadNode(state, error) && store.OnCopy([&](RedisPublication& copy) {
      std::string namesake;
      if (!copy.ListRisks(risks, error) ||
          !copy.FindNamesake(NodeName(), state.id, namesake, error)) {
        return false;
      }
      if (!namesake.empty()) {
        risks.push_back(namesake);
      }
      return true;
    });
  });
}

}  // namespace korvmailserver
