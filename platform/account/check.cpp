// Inspects the source in force, step by step, for people who have just set it up.
#include "platform/account/sources.h"

namespace korvmailserver {

namespace {

using account::Source;

// A count, or why there is none.
template <class TablePointer>
AccountCheckStep CountStep(const char* name, const TablePointer& table, Source& source) {
  if (table == nullptr) {
    return {name, false, source.TakeError()};
  }
  const std::string count = std::to_string(table->listed());
  return {name, table->listed() > 0,
          table->listed() > 0 ? count : "the source answers, and has none"};
}

AccountCheckStep CompleteStep(const account::UserTable& users, const account::GroupTable& groups) {
  const account::Gaps& gaps = users.complete() ? groups.gaps() : users.gaps();
  const char* of = users.complete() ? "groups: " : "users: ";
  const bool complete = users.complete() && groups.complete();
  return {"complete", complete, complete ? "yes" : of + gaps.why};
}

// Every account domain has a database of its own, so a source must have a domain name.
AccountCheckStep DomainNameStep(const std::string& type, const char* key) {
  std::string name;
  if (mailConfGet(key, name) < 0) {
    return {"settings", false, "the mail configuration cannot be read"};
  }
  return {"settings", !name.empty(),
          "account_type is " + type +
              (name.empty() ? std::string(", and ") + key + " is not set"
                            : std::string(", ") + key + " " + name)};
}

AccountCheckStep SettingsStep() {
  HostSettings settings;
  std::string error;
  std::string type;
  if (!ReadHostSettings(settings, error)) {
    return {"settings", false, error};
  }
  if (mailConfGet("account_type", type) < 0) {
    return {"settings", false, "the mail configuration cannot be read"};
  }
  switch (ConvertAuthType(type)) {
    case AUTH_LOCAL:
      return {"settings", true, "account_type is local"};
    case AUTH_WIN:
      return DomainNameStep(type, "win_domain_short_name");
    case AUTH_LDAP:
      return DomainNameStep(type, "acc_domain_name");
    default:
      return {"settings", false, "account_type is \"" + type + "\"; set it to local, win or ldap"};
  }
}

bool AllOk(const std::vector<AccountCheckStep>& steps) {
  return !steps.empty() && steps.back().ok;
}

}  // namespace

bool CheckAccountSource(std::vector<AccountCheckStep>& steps) {
  steps.assign(1, SettingsStep());
  if (!AllOk(steps)) {
    return false;
  }
  const auto source = account::SourceInForce();
  source->Check(steps);
  if (!AllOk(steps)) {
    return false;
  }
  const auto users = source->Users();
  steps.push_back(CountStep("users", users, *source));
  if (!AllOk(steps)) {
    return false;
  }
  const auto groups = source->Groups();
  steps.push_back(CountStep("groups", groups, *source));
  if (!AllOk(steps)) {
    return false;
  }
  steps.push_back(CompleteStep(*users, *groups));
  return AllOk(steps);
}

}  // namespace korvmailserver
