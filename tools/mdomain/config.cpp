// mdomain config: the mail configuration's keys.
#include <iostream>

#include "lib-domain/base/text.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/model.h"
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
  call.out().Done(Entry(key, value), value);
}

// The database of a directory's accounts is named after the directory's domain: nothing works
// before that domain is set.
void RemindOfAccountDomain(const std::string& key, const std::string& value) {
  const std::string wanted = value == "ldap" ? "acc_domain_name" : "win_domain_short_name";
  std::string name;
  if (key == "account_type" && value != "local" && mailConfGet(wanted, name) == 0 && name.empty()) {
    std::cerr << "mdomain: next, name the accounts' domain: mdomain config set " << wanted
              << " NAME\n";
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
  if (mailConfSet(key, value, true, 0) < 0) {
    throw Failure(kFailed, "the configuration could not be written");
  }
  if (key == MDOMAIN::UTILS::kPostmasterKey && !MDOMAIN::UTILS::FollowAddresses()) {
    throw Failure(kFailed, "the key was set, but the maps for Postfix could not follow");
  }
  RemindOfAccountDomain(key, value);
  call.out().Done(Entry(key, value), key + " = " + value);
}

void List(Call& call) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  Json::Value object(Json::objectValue);
  Json::Value rows(Json::arrayValue);
  for (const auto& [key, value] : values) {
    object[key] = value;
    rows.append(Entry(key, value));
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
         "A key that was never set has the empty value or a default.",
         Effect::kReads,
         {One("KEY", "The key's name")},
         Get},
        {"set",
         "Set a key",
         "The next publication overwrites the keys that publishing writes. Switch the account "
         "source with account_type: local, ldap or win. A value that puts a model without domains "
         "in "
         "force in place of one that has some is refused, and one that would give the settings of "
         "these domains to others.",
         Effect::kChanges,
         {One("KEY", "The key's name"), One("VALUE", "Its new value, which may be empty"),
          ForceFlag("Set it although another model comes into force, and say what stands where")},
         Set},
        {"list", "List all keys that are set", "", Effect::kReads, {}, List},
    },
});

}  // namespace
}  // namespace mdomain
