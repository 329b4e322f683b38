#include "platform/account/sources.h"

#include <map>
#include <optional>

#include "platform/system/file_stamp.h"

namespace korvmailserver::account {

namespace {

// A source and what it was made from. Another root has another settings file.
struct LiveSource {
  FileStamp settings_file;
  std::string domain;
  std::shared_ptr<Source> source;
};

struct State {
  std::map<AUTH_TYPE, LiveSource> live;
  int snapshot_depth = 0;
  int few_depth = 0;
  std::map<AUTH_TYPE, std::shared_ptr<Source>> snapshots;
  std::optional<AUTH_TYPE> type_in_snapshot;
  bool has_settings_in_snapshot = false;
  FileStamp settings_file;
  HostSettings settings;
};

// Never destroyed: static objects elsewhere may still ask for accounts when they go.
State& Global() {
  static auto* state = new State();
  return *state;
}

bool IsScopeOpen() {
  return Global().snapshot_depth > 0 || Global().few_depth > 0;
}

// False and `error` when the host settings are wrong. Read again only when the file has changed; a
// snapshot, in which every account may be asked about, looks once.
bool RefreshSettings(std::string& error) {
  State& state = Global();
  if (state.has_settings_in_snapshot) {
    return true;
  }
  const std::string path = HostSettingsPath();
  if (state.settings_file.Holds(path)) {
    state.has_settings_in_snapshot = IsScopeOpen();
    return true;
  }
  state.settings_file = FileStamp();
  const FileStamp stamp = FileStamp::Of(path);
  HostSettings settings;
  if (!ReadHostSettings(settings, error)) {
    return false;
  }
  state.settings = std::move(settings);
  state.settings_file = stamp;
  return true;
}

// The domain name that belongs to a type's full names. False when it cannot be read.
bool DomainOf(AUTH_TYPE type, const char* domain, std::string& name) {
  if (type == AUTH_WIN && domain != nullptr && *domain != '\0') {
    name = domain;
    return true;
  }
  if (type == AUTH_WIN) {
    return mailConfGet("win_domain_short_name", name) >= 0;
  }
  return type != AUTH_LDAP || mailConfGet("acc_domain_name", name) >= 0;
}

std::shared_ptr<Source> Make(AUTH_TYPE type, const std::string& domain) {
  switch (type) {
    case AUTH_LOCAL:
      return MakeLocalSource();
    case AUTH_LDAP:
      return MakeLdapSource(domain);
    case AUTH_WIN:
      return MakeWinbindSource(domain);
    default:
      return std::make_shared<RefusingSource>(
          "\"account_type\" of the mail configuration is none of local, win, ldap");
  }
}

// What was kept for scopes that have ended.
void ForgetScope() {
  State& state = Global();
  const bool keeps_local = state.few_depth > 0;
  const std::shared_ptr<Source> local = keeps_local ? state.snapshots[AUTH_LOCAL] : nullptr;
  state.snapshots.clear();
  if (keeps_local) {
    state.snapshots[AUTH_LOCAL] = local;
  } else {
    state.type_in_snapshot.reset();
    state.has_settings_in_snapshot = false;
  }
}

std::shared_ptr<Source> LiveSourceFor(AUTH_TYPE type, const char* domain) {
  std::string error;
  if (!RefreshSettings(error)) {
    return std::make_shared<RefusingSource>(error);
  }
  std::string domain_name;
  if (!DomainOf(type, domain, domain_name)) {
    return std::make_shared<RefusingSource>("the mail configuration cannot be read");
  }
  LiveSource& live = Global().live[type];
  if (live.source == nullptr || live.domain != domain_name ||
      !live.settings_file.Holds(HostSettingsPath())) {
    live = {Global().settings_file, domain_name, Make(type, domain_name)};
  }
  return live.source;
}

}  // namespace

std::shared_ptr<Source> SourceFor(AUTH_TYPE type, const char* domain) {
  State& state = Global();
  const bool is_of_few = state.few_depth > 0 && type == AUTH_LOCAL;
  if (state.snapshot_depth == 0 && !is_of_few) {
    return LiveSourceFor(type, domain);
  }
  std::shared_ptr<Source>& snapshot = state.snapshots[type];
  if (snapshot == nullptr) {
    const std::shared_ptr<Source> live = LiveSourceFor(type, domain);
    snapshot = is_of_few ? live->ForFew(live) : std::make_shared<SnapshotSource>(live);
  }
  return snapshot;
}

std::shared_ptr<Source> SourceInForce() {
  State& state = Global();
  if (!state.type_in_snapshot.has_value()) {
    std::string text;
    if (mailConfGet("account_type", text) < 0) {
      return std::make_shared<RefusingSource>("the mail configuration cannot be read");
    }
    const AUTH_TYPE type = ConvertAuthType(text);
    if (!IsScopeOpen()) {
      return SourceFor(type, nullptr);
    }
    state.type_in_snapshot = type;
  }
  return SourceFor(*state.type_in_snapshot, nullptr);
}

bool IsCalledInternal(const std::string& short_name) {
  std::string error;
  return RefreshSettings(error) && Global().settings.local.internal.count(short_name) != 0;
}

void EnterSnapshot() {
  Global().snapshot_depth++;
}

void LeaveSnapshot() {
  if (--Global().snapshot_depth == 0) {
    ForgetScope();
  }
}

bool IsSnapshotOpen() {
  return IsScopeOpen();
}

void EnterFew() {
  State& state = Global();
  (state.few_depth > 0 || state.snapshot_depth == 0 ? state.few_depth : state.snapshot_depth)++;
}

void LeaveFew() {
  State& state = Global();
  if (--(state.few_depth > 0 ? state.few_depth : state.snapshot_depth) == 0) {
    ForgetScope();
  }
}

bool IsFewOpen() {
  return Global().few_depth > 0;
}

}  // namespace korvmailserver::account
