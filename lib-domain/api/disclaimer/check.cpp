// Whether a disclaimer list that someone typed has the members and the values it must have.
#include <set>

#include "lib-domain/api/disclaimer/condition.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"

using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

struct Member {
  const char* name;
  Json::ValueType type;
  bool required;
};

constexpr Member kDisclaimerMembers[] = {
    {"id", Json::intValue, true},
    {"name", Json::stringValue, true},
    {"enabled", Json::booleanValue, true},
    {"disabled_for_local_recipient", Json::booleanValue, false},
    {"op", Json::stringValue, true},
    {"match_rule_list", Json::arrayValue, true},
    {"exception_rule_list", Json::arrayValue, false},
    {"content_html", Json::stringValue, false},
    {"content_txt", Json::stringValue, false},
};

const char* TypeName(Json::ValueType type) {
  switch (type) {
    case Json::intValue:
      return "an integer";
    case Json::booleanValue:
      return "true or false";
    case Json::arrayValue:
      return "an array";
    default:
      return "a text";
  }
}

bool HasType(const Json::Value& value, Json::ValueType type) {
  return type == Json::intValue ? value.isInt() : value.type() == type;
}

bool Fail(std::string& error, const std::string& path, const std::string& what) {
  error = path + ": " + what;
  return false;
}

std::string Inside(const std::string& path, const std::string& member) {
  return std::string(path).append(".").append(member);
}

bool CheckRule(const Json::Value& rule, const std::string& path, std::string& error) {
  if (!rule.isObject()) {
    return Fail(error, path, "must be an object");
  }
  for (const std::string& name : rule.getMemberNames()) {
    if (name != "target" && name != "pattern_type" && name != "pattern") {
      return Fail(error, Inside(path, name), "unknown member");
    }
  }
  const Json::Value& target = rule["target"];
  if (target != Json::Value("sender") && target != Json::Value("recipient")) {
    return Fail(error, path + ".target", "must be \"sender\" or \"recipient\"");
  }
  const Json::Value& type = rule["pattern_type"];
  const Json::Value& pattern = rule["pattern"];
  unsigned int id = 0;
  if (type == Json::Value("email")) {
    std::string test;
    return (pattern.isString() && EmailTest(RuleTarget::kSender, pattern.asString(), test)) ||
           Fail(error, path + ".pattern", "must be an address pattern");
  }
  if (type == Json::Value("uid") || type == Json::Value("gid")) {
    return PatternAsId(pattern, id) ||
           Fail(error, path + ".pattern", "must be a " + type.asString());
  }
  return Fail(error, path + ".pattern_type", R"(must be "email", "uid" or "gid")");
}

bool CheckMembers(const Json::Value& disclaimer, const std::string& path, std::string& error) {
  std::set<std::string> known;
  for (const Member& member : kDisclaimerMembers) {
    known.insert(member.name);
    const std::string where = Inside(path, member.name);
    if (!disclaimer.isMember(member.name)) {
      if (member.required) {
        return Fail(error, where, "is missing");
      }
      continue;
    }
    if (!HasType(disclaimer[member.name], member.type)) {
      return Fail(error, where, std::string("must be ") + TypeName(member.type));
    }
  }
  for (const std::string& name : disclaimer.getMemberNames()) {
    if (known.count(name) == 0) {
      return Fail(error, Inside(path, name), "unknown member");
    }
  }
  return true;
}

bool CheckDisclaimer(const Json::Value& disclaimer, const std::string& path, std::string& error) {
  if (!disclaimer.isObject()) {
    return Fail(error, path, "must be an object");
  }
  if (!CheckMembers(disclaimer, path, error)) {
    return false;
  }
  if (disclaimer["name"].asString().empty()) {
    return Fail(error, path + ".name", "must not be empty");
  }
  const std::string op = disclaimer["op"].asString();
  if (op != "and" && op != "or") {
    return Fail(error, path + ".op", R"(must be "and" or "or")");
  }
  for (const char* member : {"match_rule_list", "exception_rule_list"}) {
    const Json::Value& rules = disclaimer[member];
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
      if (!CheckRule(rules[i], path + "." + member + "[" + std::to_string(i) + "]", error)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

bool MimeDefang::CheckDisclaimerList(const Json::Value& list, std::string& error) {
  if (!list.isArray()) {
    return Fail(error, "[]", "must be an array of disclaimers");
  }
  std::set<int> ids;
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    const std::string path = "[" + std::to_string(i) + "]";
    if (!CheckDisclaimer(list[i], path, error)) {
      return false;
    }
    if (!ids.insert(list[i]["id"].asInt()).second) {
      return Fail(error, path + ".id", "is used twice");
    }
  }
  return true;
}
