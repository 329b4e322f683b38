// The key store's public calls, on the backend in force.
#include "platform/include/key_store.h"

#include "platform/keystore/backend.h"

namespace korvmailserver {

namespace {

unsigned long moment = 0;

unsigned long NewMoment() {
  static unsigned long last = 0;
  return ++last;
}

}  // namespace

KeyStoreView::KeyStoreView(Kind kind) : outer_(moment) {
  if (kind == Kind::kCurrent) {
    moment = 0;
  } else if (moment == 0) {
    moment = NewMoment();
  }
}

// What was changed meanwhile without the outer view is of another moment.
KeyStoreView::~KeyStoreView() {
  const bool was_suspended = outer_ != 0 && moment == 0;
  moment = was_suspended ? NewMoment() : outer_;
}

unsigned long KeyStoreView::Moment() {
  return moment;
}

}  // namespace korvmailserver

namespace KORV {
namespace POSTARA_SERVER {

using korvmailserver::KeyStoreBackend;
using korvmailserver::kLogWarning;
using korvmailserver::RunOnKeyStore;

namespace {

// The stored value; without one `found` is false and `value` empty.
bool Find(const std::string& key, bool& found, std::string& value) {
  std::map<std::string, std::string> values;
  if (!RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
        return backend.Get({key}, values, error);
      })) {
    return false;
  }
  const auto stored = values.find(key);
  found = stored != values.end();
  value = found ? stored->second : "";
  return true;
}

}  // namespace

bool PostaraServerBACKENDWrap::setFile(const std::string& key, const std::string& path) {
  return RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
    return backend.SetFile(key, path, error);
  });
}

bool PostaraServerBACKENDWrap::ls(const std::string& tree, std::vector<std::string>& keys) {
  return ls(
      tree, [](const std::string& /*key*/) { return true; }, keys);
}

bool PostaraServerBACKENDWrap::ls(const std::string& tree,
                                  const std::function<bool(const std::string& key)>& is_wanted,
                                  std::vector<std::string>& keys) {
  std::vector<std::string> names;
  const auto use = [&](const std::string& key) {
    if (is_wanted(key)) {
      names.push_back(key);
    }
  };
  if (!RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
        return backend.List(tree, use, error);
      })) {
    return false;
  }
  keys = std::move(names);
  return true;
}

bool PostaraServerBACKENDWrap::exist(const std::string& key) {
  bool found = false;
  std::string value;
  return Find(key, found, value) && found;
}

bool PostaraServerBACKENDWrap::removeKey(const std::string& key) {
  return removeKeys({key});
}

bool PostaraServerBACKENDWrap::removeKeys(const std::vector<std::string>& keys) {
  return RunOnKeyStore(
      [&](KeyStoreBackend& backend, std::string& error) { return backend.Write({}, keys, error); });
}

bool PostaraServerBACKENDWrap::getFile(const std::string& key, std::string& path) {
  bool found = false;
  return Find(key, found, path);
}

bool KORVMailNodeCluster::isClusterHealth(int /*level*/) {
  return RunOnKeyStore(
      [](KeyStoreBackend& backend, std::string& error) { return backend.IsHealthy(error); },
      kLogWarning);
}

int KORVMailNodeCluster::setFile(const std::string& key, const std::string& path) {
  return PostaraServerBACKENDWrap::setFile(key, path) ? 0 : -1;
}

}  // namespace POSTARA_SERVER
}  // namespace KORV
