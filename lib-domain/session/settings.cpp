// Keys of the mail configuration, for the host's administrators.
#include <map>

#include "lib-domain/session/access.h"
#include "lib-domain/sync/mail_settings.h"
#include "lib-domain/sync/model_in_force.h"
#include "platform/include/mail_conf.h"

namespace mdomain {

using MDOMAIN::UTILS::KeyKind;
using MDOMAIN::UTILS::SettingResult;
using session::Fail;
using session::Read;
using session::Refuse;

namespace {

constexpr const char* kWhat = "see or set settings of the host";

std::map<std::string, std::string> StoredSettings() {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    Fail("the configuration could not be read");
  }
  return values;
}

Setting SettingOf(const std::string& key, const std::string& value, bool is_set) {
  const KeyKind kind = MDOMAIN::UTILS::KindOfKey(key);
  return {key, value,
          kind == KeyKind::kSetting     ? Setting::Kind::kSetting
          : kind == KeyKind::kPublished ? Setting::Kind::kPublished
                                        : Setting::Kind::kUnknown,
          is_set};
}

// The value in force: a known key that is not set may have a default.
Setting Find(const std::string& key) {
  const bool is_set = StoredSettings().count(key) != 0;
  std::string value;
  if (mailConfGet(key, value) < 0) {
    Fail("the configuration could not be read");
  }
  Setting setting = SettingOf(key, value, is_set);
  if (!is_set && value.empty() && setting.kind == Setting::Kind::kUnknown) {
    Refuse(Reason::kNotFound, MDOMAIN::UTILS::NoKey(key));
  }
  return setting;
}

[[noreturn]] void RefuseSetting(const MDOMAIN::UTILS::SettingOutcome& outcome) {
  switch (outcome.result) {
    case SettingResult::kInvalid:
      Refuse(Reason::kInvalid, outcome.text);
    case SettingResult::kUnknownKey:
      Refuse(Reason::kRefused, outcome.text,
             "look at its spelling, or force it for a key of another program");
    case SettingResult::kFollows:
      Refuse(Reason::kRefused, outcome.text, "change the domains, or publish where it is wrong");
    case SettingResult::kOtherModel:
      Refuse(Reason::kRefused, outcome.text, "force it to change it all the same");
    default:
      Fail(outcome.text);
  }
}

}  // namespace

Result<std::vector<Setting>> Session::Settings(bool all) const {
  return Read<std::vector<Setting>>(*this, [&] {
    session::RequireHost(*this, kWhat);
    std::map<std::string, Setting> settings;
    for (const auto& [key, value] : StoredSettings()) {
      settings.emplace(key, SettingOf(key, value, true));
    }
    for (const std::string& key : all ? MDOMAIN::UTILS::KnownKeys() : std::vector<std::string>()) {
      settings.emplace(key, SettingOf(key, "", false));
    }
    std::vector<Setting> listed;
    listed.reserve(settings.size());
    for (auto& [key, setting] : settings) {
      listed.push_back(std::move(setting));
    }
    return listed;
  });
}

Result<Setting> Session::GetSetting(const std::string& key) const {
  return Read<Setting>(*this, [&] {
    session::RequireHost(*this, kWhat);
    return Find(key);
  });
}

Result<ChangedSetting> Session::SetSetting(const std::string& key, const std::string& value,
                                           bool force) {
  return session::HostChange<ChangedSetting>(
      *this, kWhat, "set " + key,
      [&] {
        const auto outcome = MDOMAIN::UTILS::SetMailSetting(key, value, force);
        if (outcome.result != SettingResult::kDone) {
          RefuseSetting(outcome);
        }
        MDOMAIN::UTILS::TakeAccountSource();
        return ChangedSetting{Find(key), outcome.consequence, outcome.missing_key};
      },
      session::ChangeKind::kChange, session::Needs::kNothing);
}

}  // namespace mdomain
