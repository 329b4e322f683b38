// Plans, patterns and settings as JSON.
#include "lib-domain/session/json_record.h"

namespace mdomain::session {

Json::Value JsonOf(const ChangePlan& plan) {
  Json::Value value;
  value["summary"] = plan.summary;
  value["changes"] = Json::Value(Json::arrayValue);
  for (const PlannedChange& change : plan.changes) {
    Json::Value one;
    one["what"] = change.what;
    one["change"] = change.change;
    one["text"] = change.text;
    for (const auto& [name, text] : change.names) {
      one[name] = text;
    }
    if (change.what == "alias") {
      one["had"] = change.had;
      one["has"] = change.has;
    }
    value["changes"].append(one);
  }
  return value;
}

Json::Value JsonOf(const TriedAlias& alias) {
  Json::Value value;
  value["uid"] = alias.uid;
  value["name"] = alias.name;
  value["aliases"] = JsonOf(alias.aliases);
  value["local_part"] = alias.local_part;
  value["from"] = alias.from == TriedAlias::From::kPattern       ? "pattern"
                  : alias.from == TriedAlias::From::kAccountName ? "account"
                                                                 : "none";
  value["why"] = alias.why;
  value["rivals"] = Json::UInt64(alias.rivals);
  value["rival_names"] = JsonOf(alias.rival_names);
  value["is_entry"] = alias.is_entry;
  return value;
}

Json::Value JsonOf(const TriedPattern& tried) {
  Json::Value value;
  value["pattern"] = tried.pattern;
  value["users"] = Json::UInt64(tried.users);
  value["by_pattern"] = Json::UInt64(tried.by_pattern);
  value["by_account_name"] = Json::UInt64(tried.by_account_name);
  value["without_address"] = Json::UInt64(tried.without_address);
  value["colliding"] = Json::UInt64(tried.colliding);
  value["page"] = JsonOf(tried.page);
  return value;
}

Json::Value JsonOf(const Setting& setting) {
  Json::Value value;
  value["key"] = setting.key;
  value["value"] = setting.value;
  value["kind"] = setting.kind == Setting::Kind::kSetting     ? "setting"
                  : setting.kind == Setting::Kind::kPublished ? "published"
                                                              : "unknown";
  value["is_set"] = setting.is_set;
  return value;
}

Json::Value JsonOf(const ChangedSetting& changed) {
  Json::Value value;
  value["setting"] = JsonOf(changed.setting);
  value["consequence"] = changed.consequence;
  value["missing_key"] = changed.missing_key;
  return value;
}

}  // namespace mdomain::session
