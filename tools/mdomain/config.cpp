// mdomain config: the mail configuration's keys.

#include "lib-domain/base/text.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/config_keys.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

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
  if (value.empty() && KindOfKey(key) == KeyKind::kUnknown && !IsKeySet(key)) {
    throw Failure(kNotFound, NoKey(key), "mdomain config list shows those that are set");
  }
  call.out().Answer(Entry(key, value), value);
}

// The database of a directory's accounts is named after the directory's domain: nothing works
// before that domain is set.
void RemindOfAccountDomain(const std::string& key, const std::string& value) {
  const std::string wanted = value == "ldap" ? "acc_domain_name" : "win_domain_short_name";
  std::string name;
  if (key == "account_type" && value != "local" && mailConfGet(wanted, name) == 0 && name.empty()) {
    Note("next, name the accounts' domain: mdomain config set " + wanted + " NAME");
  }
}

void Set(Call& call) {
  const std::string key = call.Text("KEY");
  const std::string value = call.Text("VALUE");
  RequirePlainText("the key", key);
  RequirePlainText("the value", value);
  if (key.empty()) {
    throw Failure(kRefused, "the key is empty");
  }
  if (key == "account_type" && ConvertAuthType(value) == AUTH_UNKNOWN) {
    throw Failure(kRefused, "\"" + value + "\" is no account type: local, ldap or win");
  }
  RequireSwitchable(call, key, value);
  if (!call.Has("--force")) {
    RequireSettable(key, value);
  }
  if (mailConfSet(key, value, true, 0) < 0) {
    throw Failure(kFailed, "the configuration could not be written");
  }
  if (key == MDOMAIN::UTILS::kPostmasterKey && !MDOMAIN::UTILS::FollowAddresses()) {
    throw Failure(kFailed, "the key was set, but the maps for Postfix could not follow");
  }
  RemindOfAccountDomain(key, value);
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
  for (const std::string& key : call.Has("--all") ? KnownKeys() : std::vector<std::string>()) {
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
