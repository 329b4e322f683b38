// Chooses the backend in force and keeps it, with its connection, for the next call.
//
// It is made anew when the root prefix or the host settings file changed, after a failure, and in a
// forked child, which must not talk over its parent's connection.
#include "platform/keystore/backend.h"

#include <sys/stat.h>
#include <unistd.h>

#include <tuple>

#include "platform/include/key_store.h"
#include "platform/include/maillog.h"
#include "platform/include/scope_guard.h"
#include "platform/keystore/copied_store.h"
#include "platform/keystore/local_store.h"

namespace korvmailserver {

namespace {

constexpr char kAdditionalDomainPrefix[] = "additional_domain-";
constexpr char kVirtualDomainTree[] = "virtual_domain";

// Equal stamps: the same process, root and host settings file.
using Stamp = std::tuple<pid_t, std::string, ino_t, off_t, time_t, long>;

Stamp CurrentStamp() {
  const std::string path = HostSettingsPath();
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    status = {};
  }
  return {
      getpid(), path, status.st_ino, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

struct InForce {
  Stamp stamp;
  std::unique_ptr<KeyStoreBackend> backend;
  unsigned long moment = 0;  // of the view that has found it
};

InForce& Kept() {
  static auto& kept = *new InForce();
  return kept;
}

KeyStoreBackend* BackendInForce(std::string& error) {
  InForce& kept = Kept();
  const unsigned long moment = KeyStoreView::Moment();
  const bool is_of_view = moment != 0 && kept.moment == moment;
  if (kept.backend && is_of_view && std::get<pid_t>(kept.stamp) == getpid()) {
    return kept.backend.get();
  }
  const Stamp now = CurrentStamp();
  kept.moment = moment;
  if (kept.backend && kept.stamp == now) {
    return kept.backend.get();
  }
  kept.backend.reset();
  HostSettings settings;
  if (!ReadHostSettings(settings, error)) {
    return nullptr;
  }
  if (settings.keystore.backend == "redis") {
    kept.backend = std::make_unique<CopiedStore>(settings.keystore);
  } else {
    kept.backend = std::make_unique<LocalStore>();
  }
  kept.stamp = now;
  return kept.backend.get();
}

}  // namespace

const std::vector<std::string>& kKeyStoreTrees = *new std::vector<std::string>{kVirtualDomainTree};

std::string KeyStoreTreeOf(const std::string& key) {
  return key.rfind(kAdditionalDomainPrefix, 0) == 0 ? kVirtualDomainTree : "";
}

KeyStoreBackend::Entries ChangedEntries(const KeyStoreBackend::Entries& entries,
                                        const std::map<std::string, std::string>& stored) {
  KeyStoreBackend::Entries changed;
  for (const auto& entry : entries) {
    const auto old = stored.find(entry.first);
    if (old == stored.end() || old->second != entry.second) {
      changed.push_back(entry);
    }
  }
  return changed;
}

bool RunOnKeyStore(
    const std::function<bool(KeyStoreBackend& backend, std::string& error)>& operation,
    int log_level) {
  std::string error;
  KeyStoreBackend* backend = BackendInForce(error);
  if (backend == nullptr) {
    maillog(log_level, "%s", error.c_str());
    return false;
  }
  // After a failure the next call reads the settings again: a password may have changed. After an
  // exception answers may still be on their way to the connection.
  postara::ScopeGuard forget([] { Kept().backend.reset(); });
  if (operation(*backend, error)) {
    forget.Dismiss();
    return true;
  }
  if (!error.empty()) {
    maillog(log_level, "key store %s: %s", backend->Name().c_str(), error.c_str());
  }
  return false;
}

}  // namespace korvmailserver
