#include "lib-domain/sync/mail_settings.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/suggestion.h"
#include "lib-domain/base/text.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/account.h"
#include "platform/include/mail_conf.h"
#include "platform/include/text.h"

namespace MDOMAIN::UTILS {

namespace {

constexpr const char* kType = "account_type";
constexpr const char* kUnreadable = "the configuration could not be read";

struct KnownKey {
  const char* name;  // one that ends in "-" stands before a domain's index
  KeyKind kind;
};

constexpr KnownKey kKeys[] = {
    {"account_type", KeyKind::kSetting},
    {"win_domain_short_name", KeyKind::kSetting},
    {"acc_domain_name", KeyKind::kSetting},
    {"postmaster", KeyKind::kSetting},
    {"smtp_canonical_domain", KeyKind::kSetting},
    {"mimedefang_enable", KeyKind::kSetting},
    {"mimedefang_disclaimers-", KeyKind::kSetting},
    {"enable_dkim_sign-", KeyKind::kSetting},
    {"dkim_selector-", KeyKind::kSetting},
    // The other parts of the filter that mimedefang_enable stands for.
    {"spam_enable", KeyKind::kSetting},
    {"anti_virus_enable", KeyKind::kSetting},
    {"enable_dangerous_content_scan", KeyKind::kSetting},
    {"mcp_enable", KeyKind::kSetting},
    {"enable_dkim", KeyKind::kSetting},
    {"enable_dmarc", KeyKind::kSetting},
    {"virtual_multiple_domain", KeyKind::kPublished},
    {"smtp_main_domain", KeyKind::kPublished},
    {"additional_domain-", KeyKind::kPublished},
    {"mdomain_model", KeyKind::kPublished},
    {"smtp_changed_uids", KeyKind::kPublished},
    {"mailserver_domain_db", KeyKind::kPublished},
    {"bcc_db", KeyKind::kPublished},
    {"alias_db", KeyKind::kPublished},
    {"email_owner_db", KeyKind::kPublished},
    {"sync_disclaimer_content_file-", KeyKind::kPublished},
};

// "dkim_selector-7" gives "dkim_selector-"; a text without an index behind it stays.
std::string WithoutIndex(const std::string& key) {
  const size_t last = key.find_last_not_of("0123456789");
  const bool has_index = last != std::string::npos && last + 1 < key.size() && key[last] == '-';
  return has_index ? key.substr(0, last + 1) : key;
}

bool HasDomains() {
  std::string path;
  return GetModelPathWith("", "", path) && !ListDomainsOf(path).empty();
}

std::string ShownNames(const std::vector<std::string>& names) {
  constexpr size_t kShown = 5;
  const std::vector<std::string> first(
      names.begin(), names.begin() + static_cast<long>(std::min(names.size(), kShown)));
  const std::string more = names.size() > kShown ? ", ..." : "";
  return std::to_string(names.size()) + (names.size() == 1 ? " domain" : " domains") + " (" +
         BASE::Join(first, ", ") + more + ")";
}

// What a switch from one model file to the other means, in one sentence.
std::string Consequence(const std::string& from, const std::vector<std::string>& domains,
                        const std::string& to, bool is_empty, const std::string& outside) {
  const std::string none = is_empty ? ", which has no domain," : "";
  std::string text = to.empty() ? "no model is in force then"
                                : "the model file " + to + none + " is in force then";
  text += "; " + from + " keeps " + ShownNames(domains);
  if (!outside.empty()) {
    text +=
        "; what stands under their indexes stays theirs, and is not used until it is removed by "
        "mdomain publish --force or the account source is set back: " +
        outside;
  }
  return text;
}

SettingOutcome Outcome(SettingResult result, const std::string& text) {
  return {result, text, "", ""};
}

bool IsPlain(const std::string& text) {
  return korvmailserver::IsValidUtf8(text) && korvmailserver::VisibleText(text) == text;
}

SettingOutcome CheckValue(const std::string& key, const std::string& value) {
  const bool is_name = key == "win_domain_short_name" || key == "acc_domain_name";
  if (key.empty() || !IsPlain(key)) {
    return Outcome(SettingResult::kInvalid,
                   key.empty() ? "the key is empty" : "the key is no plain text of one line");
  }
  if (!IsPlain(value)) {
    return Outcome(SettingResult::kInvalid,
                   "the value of " + key + " is no plain text of one line");
  }
  if (key == kType && ConvertAuthType(value) == AUTH_UNKNOWN) {
    return Outcome(SettingResult::kInvalid,
                   "\"" + value + "\" is no account type: local, ldap or win");
  }
  return is_name && !PATHS::IsFileNamePart(value)
             ? Outcome(SettingResult::kInvalid,
                       key + " \"" + value +
                           "\" names a database file: \"/\", \"..\" and control characters "
                           "are not allowed")
             : SettingOutcome();
}

// Whether the value takes the domains out of force, or hands the settings under their indexes to
// others: `text` says what stands where then.
SettingOutcome CheckSwitch(const std::string& key, const std::string& value) {
  std::string from;
  std::string to;
  const bool is_of_source =
      key == kType || key == "win_domain_short_name" || key == "acc_domain_name";
  if (!is_of_source || !GetModelPathWith("", "", from) || !GetModelPathWith(key, value, to) ||
      from == to) {
    return {};
  }
  const std::vector<std::string> domains = ListDomainsOf(from);
  const bool is_empty = ListDomainsOf(to).empty();
  std::vector<std::string> outside;
  if (!domains.empty() && !ListOutsideSettings(outside)) {
    return Outcome(SettingResult::kFailed, "the settings of the domains could not be read");
  }
  if (domains.empty() || (!is_empty && outside.empty())) {
    return {};
  }
  return Outcome(SettingResult::kOtherModel,
                 Consequence(from, domains, to, is_empty, BASE::Join(outside, ", ")));
}

SettingOutcome CheckKey(const std::string& key, const std::string& value) {
  const KeyKind kind = KindOfKey(key);
  bool is_set = true;
  if (kind == KeyKind::kUnknown && !IsKeySet(key, is_set)) {
    return Outcome(SettingResult::kFailed, kUnreadable);
  }
  if (!is_set) {
    return Outcome(SettingResult::kUnknownKey, NoKey(key));
  }
  std::string stored;
  if (kind != KeyKind::kPublished || !HasDomains()) {
    return {};
  }
  if (mailConfGet(key, stored) < 0) {
    return Outcome(SettingResult::kFailed, kUnreadable);
  }
  return stored == value
             ? SettingOutcome()
             : Outcome(SettingResult::kFollows, key +
                                                    " follows from the domains, and the next "
                                                    "publication would set it back");
}

// The database of a directory's accounts is named after the directory's domain: nothing works
// before that domain is set.
std::string MissingKey(const std::string& key, const std::string& value) {
  const std::string wanted = value == "ldap" ? "acc_domain_name" : "win_domain_short_name";
  std::string name;
  const bool is_missing =
      key == kType && value != "local" && mailConfGet(wanted, name) == 0 && name.empty();
  return is_missing ? wanted : "";
}

}  // namespace

KeyKind KindOfKey(const std::string& key) {
  const std::string name = WithoutIndex(key);
  for (const KnownKey& known : kKeys) {
    const bool is_same = name == known.name && (name.back() != '-' || name != key);
    if (is_same) {
      return known.kind;
    }
  }
  return KeyKind::kUnknown;
}

std::vector<std::string> KnownKeys() {
  std::vector<std::string> names;
  for (const KnownKey& known : kKeys) {
    if (std::string_view(known.name).back() != '-') {
      names.emplace_back(known.name);
    }
  }
  return names;
}

std::string NoKey(const std::string& key) {
  const std::string index = key.substr(WithoutIndex(key).size());
  std::vector<std::string> names;
  for (const KnownKey& known : kKeys) {
    const std::string name = known.name;
    names.push_back(name.back() == '-' ? name + index : name);
  }
  return "there is no key \"" + key + "\"" + BASE::DidYouMean(key, names);
}

bool IsKeySet(const std::string& key, bool& is_set) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    LOG_ERROR("Cannot read the mail configuration");
    return false;
  }
  is_set = values.count(key) != 0;
  return true;
}

SettingOutcome SetMailSetting(const std::string& key, const std::string& value, bool by_force) {
  SettingOutcome outcome = CheckValue(key, value);
  if (outcome.result != SettingResult::kDone) {
    return outcome;
  }
  const SettingOutcome other = CheckSwitch(key, value);
  if (other.result == SettingResult::kOtherModel && by_force) {
    outcome.consequence = other.text;
  } else if (other.result != SettingResult::kDone) {
    const bool is_failure = other.result == SettingResult::kFailed;
    return Outcome(other.result, is_failure ? other.text : key + " stays as it is: " + other.text);
  }
  if (!by_force) {
    SettingOutcome checked = CheckKey(key, value);
    if (checked.result != SettingResult::kDone) {
      return checked;
    }
  }
  if (mailConfSet(key, value, true, 0) < 0) {
    return Outcome(SettingResult::kFailed, "the configuration could not be written");
  }
  if (key == kPostmasterKey && !FollowAddresses()) {
    return Outcome(SettingResult::kFailed,
                   "the key was set, but the maps for Postfix could not follow");
  }
  outcome.missing_key = MissingKey(key, value);
  return outcome;
}

}  // namespace MDOMAIN::UTILS
