// mdomain config: the mail configuration's keys.
#include "lib-domain/sync/mail_settings.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::UTILS::KeyKind;
using MDOMAIN::UTILS::KindOfKey;
using MDOMAIN::UTILS::SettingResult;

Json::Value Entry(const std::string& key, const std::string& value) {
  Json::Value entry;
  entry["key"] = key;
  entry["value"] = value;
  return entry;
}

void Get(Call& call) {
  const std::string key = call.Text("KEY");
  std::string value;
  if (mailConfGet(key, value) < 0) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  bool is_set = true;
  if (value.empty() && KindOfKey(key) == KeyKind::kUnknown &&
      !MDOMAIN::UTILS::IsKeySet(key, is_set)) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  if (!is_set) {
    throw Failure(kNotFound, MDOMAIN::UTILS::NoKey(key),
                  "mdomain config list shows those that are set");
  }
  call.out().Answer(Entry(key, value), value);
}

// What to do about a refusal.
std::string NextOf(SettingResult result) {
  switch (result) {
    case SettingResult::kUnknownKey:
      return "look at its spelling, or give --force for a key of another program";
    case SettingResult::kFollows:
      return "change the domains, run mdomain publish where it is wrong, or give --force";
    case SettingResult::kOtherModel:
      return "give --force to change it all the same";
    default:
      return "";
  }
}

void Set(Call& call) {
  const std::string key = call.Text("KEY");
  const std::string value = call.Text("VALUE");
  RequirePlainText("the key", key);
  RequirePlainText("the value", value);
  const auto outcome = MDOMAIN::UTILS::SetMailSetting(key, value, call.Has("--force"));
  if (outcome.result != SettingResult::kDone) {
    throw Failure(outcome.result == SettingResult::kFailed ? kFailed : kRefused, outcome.text,
                  NextOf(outcome.result));
  }
  if (!outcome.consequence.empty()) {
    Note(outcome.consequence);
  }
  if (!outcome.missing_key.empty()) {
    Note("next, name the accounts' domain: mdomain config set " + outcome.missing_key + " NAME");
  }
  call.out().Done(Entry(key, value), key + " = " + value);
}

// The beginning of a long value, and how long it is.
std::string Shortened(const std::string& value) {
  constexpr size_t kShown = 60;
  size_t characters = 0;
  size_t cut = value.size();
  ForEachCharacter(value, [&](char32_t /*character*/, size_t at, size_t /*length*/) {
    cut = characters++ == kShown ? at : cut;
  });
  return characters <= kShown
             ? value
             : value.substr(0, cut) + "... (" + Counted(value.size(), "byte") + ")";
}

void List(Call& call) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  for (const std::string& key :
       call.Has("--all") ? MDOMAIN::UTILS::KnownKeys() : std::vector<std::string>()) {
    values.emplace(key, "");
  }
  Json::Value object(Json::objectValue);
  Json::Value rows(Json::arrayValue);
  for (const auto& [key, value] : values) {
    object[key] = value;
    rows.append(Entry(key, call.Has("--full") ? value : Shortened(value)));
  }
  if (call.out().json()) {
    call.out().Record(object, {});
  } else {
    call.out().List(rows, {{"key", "KEY"}, {"value", "VALUE"}});
  }
}

const Register kConfig({
    "config",
    "Keys of the mail configuration",
    {
        {"get",
         "Show a key's value",
         "A known key that was never set has the empty value or a default. One that nobody knows "
         "and nobody set ends it with 4.",
         Effect::kReads,
         {One("KEY", "The key's name")},
         Get},
        {"set",
         "Set a key",
         "Switch the account source with account_type: local, ldap or win. A value that puts a "
         "model without domains in force in place of one that has some is refused, and one that "
         "would give the settings of these domains to others. So is a key that nobody knows, and, "
         "where there are domains, a new value of one that publishing writes "
         "(virtual_multiple_domain, smtp_main_domain, additional_domain-N and others).",
         Effect::kChanges,
         {One("KEY", "The key's name"), One("VALUE", "Its new value, which may be empty"),
          ForceFlag("Set it although another model comes into force, and say what stands where; "
                    "also a key that nobody knows or that publishing writes")},
         Set},
        {"list",
         "List all keys that are set",
         "As text, long values are cut.",
         Effect::kReads,
         {Flag("--full", "Whole values"),
          Flag("--all", "Also the keys of every host that are known and not set")},
         List},
    },
});

}  // namespace
}  // namespace mdomain
