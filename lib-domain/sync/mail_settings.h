// The keys of the mail configuration: which of them this system knows, who writes them, and what
// may be set.
#ifndef LIB_DOMAIN_SYNC_MAIL_SETTINGS_H
#define LIB_DOMAIN_SYNC_MAIL_SETTINGS_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

enum class KeyKind {
  kUnknown,    // of another program, or misspelt
  kSetting,    // the administrator's or the mail server's; read here
  kPublished,  // follows from the model: the next publication writes it again
};

MDOMAIN_EXPORT KeyKind KindOfKey(const std::string& key);

// The keys that this system knows, but those that a domain's index ends.
MDOMAIN_EXPORT std::vector<std::string> KnownKeys();

// That there is no such key, and which one may have been meant.
MDOMAIN_EXPORT std::string NoKey(const std::string& key);

// Whether the key has a value; an unknown one may be another program's. False with one log line
// when the configuration cannot be read.
MDOMAIN_EXPORT bool IsKeySet(const std::string& key, bool& is_set);

enum class SettingResult {
  kDone,
  kInvalid,     // no key, no text of one line, or no value that the key can have
  kUnknownKey,  // nobody knows the key, and nobody set it
  kFollows,     // it follows from the domains, and would be set back
  kOtherModel,  // a model without domains would come into force in place of one that has some, or
                // the settings of these domains would be others'
  kFailed,      // it could not be read, written or followed
};

struct SettingOutcome {
  SettingResult result = SettingResult::kDone;
  std::string text;         // one sentence why not
  std::string consequence;  // of what was done by force: which model is in force, what stands where
  std::string missing_key;  // the accounts' source needs this one, too
};

// Sets a key. `by_force` does what would be kUnknownKey, kFollows or kOtherModel. Unless it is done
// or failed, nothing is changed.
MDOMAIN_EXPORT SettingOutcome SetMailSetting(const std::string& key, const std::string& value,
                                             bool by_force);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_MAIL_SETTINGS_H
