#include "lib-domain/base/account_settings.h"

#include <map>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::BASE {

namespace {

constexpr const char* kType = "account_type";
constexpr const char* kWinDomain = "win_domain_short_name";
constexpr const char* kLdapDomain = "acc_domain_name";

// Never destroyed: destructors of static objects may still ask.
std::map<std::string, std::string>& Kept() {
  static auto* kept = new std::map<std::string, std::string>();
  return *kept;
}

// The names of the other sources mean nothing.
bool IsOfType(const std::string& key, AUTH_TYPE type) {
  return key == kType || key == (type == AUTH_WIN ? kWinDomain : kLdapDomain);
}

std::string ModelPath(std::map<std::string, std::string>& values) {
  const AUTH_TYPE type = ConvertAuthType(values[kType]);
  const std::string name = type == AUTH_LOCAL ? "local"
                           : type == AUTH_WIN ? values[kWinDomain]
                                              : values[kLdapDomain];
  return PATHS::DomainDb(name);
}

}  // namespace

bool GetAccountSetting(const char* key, std::string& value) {
  std::string& kept = Kept()[key];
  if (kept.empty() && mailConfGet(key, kept) < 0) {
    return false;
  }
  value = kept;
  return true;
}

bool IsAccountSourceInForce(const std::string& model_path) {
  std::map<std::string, std::string> now;
  if (mailConfGetMany({kType, kWinDomain, kLdapDomain}, now) < 0) {
    return true;
  }
  for (const auto& [key, value] : Kept()) {
    if (IsOfType(key, ConvertAuthType(now[kType])) && !value.empty() && now[key] != value) {
      LOG_ERROR("%s is [%s] now, and this process works with [%s]: start it anew", key.c_str(),
                now[key].c_str(), value.c_str());
      return false;
    }
  }
  const std::string path_now = ModelPath(now);
  if (!model_path.empty() && model_path != path_now) {
    LOG_ERROR("[%s] is in force now, and this process works on [%s]: start it anew",
              path_now.c_str(), model_path.c_str());
    return false;
  }
  return true;
}

void ForgetAccountSettings() {
  Kept().clear();
}

OtherAccountSettings::OtherAccountSettings() : outer_(std::exchange(Kept(), {})) {}

OtherAccountSettings::~OtherAccountSettings() {
  Kept() = std::move(outer_);
}

}  // namespace MDOMAIN::BASE
