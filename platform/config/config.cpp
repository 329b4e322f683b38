// Settings members bound to configuration keys, read and written together.
#include "platform/include/config.h"

#include "platform/include/mail_conf.h"

void Config::AddToBoolMap(const std::string& key, bool* member, bool default_value) {
  bools_[key] = member;
  *member = default_value;
}

int Config::LoadSettings() {
  std::vector<std::string> keys;
  for (const auto& bound : bools_) {
    keys.push_back(bound.first);
  }
  std::map<std::string, std::string> values;
  if (mailConfGetMany(keys, values) < 0) {
    return -1;
  }
  for (const auto& [key, member] : bools_) {
    if (values[key] == "yes" || values[key] == "no") {
      *member = values[key] == "yes";
    }
  }
  return 0;
}

int Config::SaveSettings() {
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& [key, member] : bools_) {
    entries.emplace_back(key, *member ? "yes" : "no");
  }
  return mailConfSetMany(entries);
}
