// The mail configuration on top of the key store: defaults, and no write of what is there already.
#include "platform/include/mail_conf.h"

#include <algorithm>

#include "platform/include/mail_conf_change.h"
#include "platform/include/maillog.h"
#include "platform/keystore/backend.h"

using korvmailserver::KeyStoreBackend;
using korvmailserver::RunOnKeyStore;

namespace {

std::string DefaultOf(const std::string& key) {
  return key == "account_type" ? "local" : "";
}

}  // namespace

AUTH_TYPE ConvertAuthType(const std::string& text) {
  static const auto& types = *new std::map<std::string, AUTH_TYPE>{
      {"local", AUTH_LOCAL}, {"win", AUTH_WIN}, {"ldap", AUTH_LDAP}};
  const auto type = types.find(text);
  return type == types.end() ? AUTH_UNKNOWN : type->second;
}

int mailConfGetMany(const std::vector<std::string>& keys,
                    std::map<std::string, std::string>& values) {
  std::map<std::string, std::string> found;
  if (!RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
        return backend.Get(keys, found, error);
      })) {
    return -1;
  }
  for (const std::string& key : keys) {
    const auto stored = found.find(key);
    values[key] = stored == found.end() ? DefaultOf(key) : stored->second;
  }
  return 0;
}

int mailConfGet(const std::string& key, std::string& value) {
  std::map<std::string, std::string> values;
  if (mailConfGetMany({key}, values) < 0) {
    return -1;
  }
  value = values[key];
  return 0;
}

int mailConfChange(const std::vector<std::pair<std::string, std::string>>& entries,
                   const std::vector<std::string>& removed_keys) {
  const auto repeats_or_falls = [](const auto& one, const auto& next) {
    return one.first >= next.first;
  };
  const bool is_each_once =
      std::adjacent_find(entries.begin(), entries.end(), repeats_or_falls) == entries.end();
  std::map<std::string, std::string> wanted;
  if (!is_each_once) {
    for (const auto& [key, value] : entries) {
      wanted[key] = value;
    }
  }
  const bool written = RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
    return is_each_once ? backend.Write(entries, removed_keys, error)
                        : backend.Write({wanted.begin(), wanted.end()}, removed_keys, error);
  });
  return written ? 0 : -1;
}

int mailConfSetMany(const std::vector<std::pair<std::string, std::string>>& entries) {
  return mailConfChange(entries, {});
}

int mailConfSet(const std::string& key, const std::string& value, bool /*publish*/, int /*flags*/) {
  return mailConfSetMany({{key, value}});
}

bool mailConfCheckKeyValue(const std::string& key, const std::string& value) {
  std::string stored;
  return mailConfGet(key, stored) == 0 && stored == value;
}

int mailConfList(std::map<std::string, std::string>& values) {
  std::map<std::string, std::string> found;
  if (!RunOnKeyStore([&](KeyStoreBackend& backend, std::string& error) {
        return backend.All(found, error);
      })) {
    return -1;
  }
  values = std::move(found);
  return 0;
}

int smtpAccountDomainGet(std::string& name) {
  std::map<std::string, std::string> values;
  if (mailConfGetMany({"account_type", "win_domain_short_name", "acc_domain_name"}, values) < 0) {
    return -1;
  }
  switch (ConvertAuthType(values["account_type"])) {
    case AUTH_LOCAL:
      name = "local";
      return 0;
    case AUTH_WIN:
      name = values["win_domain_short_name"];
      return 0;
    case AUTH_LDAP:
      name = values["acc_domain_name"];
      return 0;
    default:
      maillog(korvmailserver::kLogError, "unknown account type [%s]",
              values["account_type"].c_str());
      return -1;
  }
}
