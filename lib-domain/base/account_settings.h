// Which account source this process works with: the settings that name it, kept for its life.
//
// A process that went on under another source would write the accounts of the one into the model of
// the other. Whoever changes the model or publishes asks first.
#ifndef LIB_DOMAIN_BASE_ACCOUNT_SETTINGS_H
#define LIB_DOMAIN_BASE_ACCOUNT_SETTINGS_H

#include <map>
#include <string>

namespace MDOMAIN::BASE {

// The value of "account_type", "win_domain_short_name" or "acc_domain_name". Kept once it has been
// read and is not empty. False, with `value` untouched, when the configuration cannot be read.
bool GetAccountSetting(const char* key, std::string& value);

// Whether the configuration has what was kept, and `model_path` is the model file that it names. An
// empty path is not compared. False with one log line; true where the configuration cannot be read,
// which whoever needs it tells.
bool IsAccountSourceInForce(const std::string& model_path);

// Forgets what was kept: a machine that pulls was given other settings. For tests, too.
void ForgetAccountSettings();

// While one lives, the kept values are others: read anew, and forgotten at its end.
class OtherAccountSettings {
 public:
  OtherAccountSettings();
  ~OtherAccountSettings();
  OtherAccountSettings(const OtherAccountSettings&) = delete;
  OtherAccountSettings& operator=(const OtherAccountSettings&) = delete;

 private:
  std::map<std::string, std::string> outer_;
};

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_ACCOUNT_SETTINGS_H
