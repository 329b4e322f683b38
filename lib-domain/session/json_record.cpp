#include "lib-domain/session/json_record.h"

#include <algorithm>
#include <iterator>

#include "lib-domain/session/access.h"
#include "platform/include/text.h"

namespace mdomain::session {

namespace {

const char* WordOf(Reason reason) {
  switch (reason) {
    case Reason::kInvalid:
      return "invalid";
    case Reason::kTaken:
      return "taken";
    case Reason::kNotFound:
      return "not-found";
    case Reason::kRefused:
      return "refused";
    case Reason::kChanged:
      return "changed";
    case Reason::kBusy:
      return "busy";
    case Reason::kUnpublished:
      return "unpublished";
    default:
      return "failed";
  }
}

// Escapes of JSON make texts that no name may be, and that end early for others.
bool IsText(const Json::Value& value) {
  return value.isString() && korvmailserver::IsValidUtf8(value.asString()) &&
         value.asString().find('\0') == std::string::npos;
}

const std::pair<const char*, Copy::Of> kCopyWords[] = {{"recipient", Copy::Of::kMailTo},
                                                       {"sender", Copy::Of::kMailFrom},
                                                       {"domain", Copy::Of::kWholeDomain}};

}  // namespace

Json::Value RoleJson(Role role) {
  return role == Role::kNone ? Json::Value() : Json::Value(TextOf(role));
}

const char* WordOf(Copy::Of of) {
  const auto* found = std::find_if(std::begin(kCopyWords), std::end(kCopyWords),
                                   [of](const auto& word) { return word.second == of; });
  return found->first;
}

Json::Value JsonOf(const Nothing& /*nothing*/) {
  return {};
}

Json::Value JsonOf(const std::string& text) {
  return {text};
}

Json::Value JsonOf(const Domain& domain) {
  Json::Value value;
  value["idx"] = domain.idx;
  value["name"] = domain.name;
  value["names"] = JsonOf(domain.names);
  value["description"] = domain.description;
  value["pattern"] = domain.pattern;
  value["adds_accounts"] = domain.adds_accounts;
  value["is_primary"] = domain.is_primary;
  value["has_collisions"] = domain.has_collisions;
  value["users"] = Json::UInt64(domain.users);
  value["version"] = domain.version;
  return value;
}

Json::Value JsonOf(const Account& account) {
  Json::Value value;
  value["id"] = account.id;
  value["name"] = account.name;
  return value;
}

Json::Value JsonOf(const GroupDomain& domain) {
  Json::Value value;
  value["domain"] = JsonOf(domain.domain);
  value["role"] = RoleJson(domain.role);
  return value;
}

Json::Value JsonOf(const AccountGroup& group) {
  Json::Value value;
  value["gid"] = group.gid;
  value["name"] = group.name;
  value["description"] = group.description;
  value["members"] = Json::UInt64(group.members);
  value["domains"] = JsonOf(group.domains);
  return value;
}

Json::Value JsonOf(const ModelDocument& document) {
  Json::Value value;
  value["json"] = document.json;
  value["version"] = document.version;
  return value;
}

Json::Value JsonOf(const AppliedDocument& applied) {
  Json::Value value;
  value["left_out"] = JsonOf(applied.left_out);
  value["warnings"] = JsonOf(applied.warnings);
  return value;
}

Json::Value JsonOf(const User& user) {
  Json::Value value;
  value["uid"] = user.uid;
  value["name"] = user.name;
  value["role"] = RoleJson(user.role);
  value["has_own_role"] = user.has_own_role;
  value["group_role"] = RoleJson(user.group_role);
  value["aliases"] = Json::Value(Json::arrayValue);
  for (const UserAlias& alias : user.aliases) {
    Json::Value record;
    record["local_part"] = alias.local_part;
    record["is_taken"] = alias.is_taken;
    record["owner"] = alias.owner.empty() ? Json::Value() : Json::Value(alias.owner);
    value["aliases"].append(record);
  }
  value["version"] = user.version;
  return value;
}

Json::Value JsonOf(const Candidate& candidate) {
  Json::Value value;
  value["uid"] = candidate.uid;
  value["name"] = candidate.name;
  value["local_part"] =
      candidate.local_part.empty() ? Json::Value() : Json::Value(candidate.local_part);
  value["is_taken"] = candidate.is_taken;
  return value;
}

Json::Value JsonOf(const Group& group) {
  Json::Value value;
  value["gid"] = group.gid;
  value["name"] = group.name;
  value["description"] = group.description;
  value["role"] = RoleJson(group.role);
  return value;
}

Json::Value JsonOf(const Member& member) {
  Json::Value value;
  value["uid"] = member.uid;
  value["name"] = member.name;
  value["status"] = member.status == Member::Status::kHasAddress ? "has-address"
                    : member.status == Member::Status::kRemoved  ? "removed"
                                                                 : "no-address";
  return value;
}

Json::Value JsonOf(const Entry& entry) {
  Json::Value value;
  value["name"] = entry.name;
  value["users"] = JsonOf(entry.users);
  value["groups"] = JsonOf(entry.groups);
  value["addresses"] = JsonOf(entry.addresses);
  value["version"] = entry.version;
  return value;
}

Json::Value JsonOf(const Copy& copy) {
  Json::Value value;
  value["of"] = WordOf(copy.of);
  value["name"] = copy.name;
  value["to"] = copy.to;
  return value;
}

Json::Value JsonOf(const Disclaimers& disclaimers) {
  Json::Value value;
  value["json"] = disclaimers.json;
  value["version"] = disclaimers.version;
  return value;
}

Json::Value JsonOf(const RefreshReport& report) {
  Json::Value value;
  value["is_complete"] = report.is_complete;
  value["users"] = Json::UInt64(report.users);
  value["groups"] = Json::UInt64(report.groups);
  value["new_users"] = JsonOf(report.new_users);
  value["new_groups"] = JsonOf(report.new_groups);
  value["deleted_users"] = Json::UInt64(report.deleted_users);
  value["deleted_groups"] = Json::UInt64(report.deleted_groups);
  value["spared_users"] = JsonOf(report.spared_users);
  value["spared_groups"] = JsonOf(report.spared_groups);
  return value;
}

Json::Value JsonOf(const HistoryEntry& entry) {
  Json::Value value;
  value["id"] = Json::Int64(entry.id);
  value["time"] = Json::Int64(entry.time);
  value["person"] = entry.person;
  value["command"] = entry.command;
  value["summary"] = entry.summary;
  value["state"] = entry.state;
  value["why_kept"] = entry.why_kept;
  return value;
}

Json::Value JsonOf(const Error& error) {
  Json::Value value;
  value["reason"] = WordOf(error.reason);
  value["number"] = error.number;
  value["text"] = error.text;
  value["advice"] = error.advice;
  value["refused"] = Json::Value(Json::arrayValue);
  for (const Refused& refused : error.refused) {
    Json::Value record;
    record["what"] = refused.what;
    record["value"] = refused.value;
    record["why"] = refused.why;
    value["refused"].append(record);
  }
  value["log"] = JsonOf(error.log);
  return value;
}

Arguments::Arguments(const Json::Value& value, std::string path)
    : value_(value), path_(std::move(path)) {
  if (!value.isObject() && !value.isNull()) {
    Refuse(Reason::kInvalid, "the arguments are no object");
  }
}

const Json::Value* Arguments::_Find(const char* name) {
  asked_.insert(name);
  return value_.isObject() && value_.isMember(name) ? &value_[name] : nullptr;
}

void Arguments::_Refuse(const std::string& name, const std::string& why) const {
  Refuse(Reason::kInvalid, "argument \"" + path_ + name + "\" " + why);
}

int Arguments::Int(const char* name) {
  const Json::Value* value = _Find(name);
  if (value == nullptr || !value->isInt() || value->asInt() < 0) {
    _Refuse(name, "is no number from 0 to 2147483647");
  }
  return value->asInt();
}

int Arguments::Int(const char* name, int otherwise) {
  return _Find(name) == nullptr ? otherwise : Int(name);
}

bool Arguments::Bool(const char* name, bool otherwise) {
  return OptionalBool(name).value_or(otherwise);
}

std::string Arguments::Text(const char* name) {
  const Json::Value* value = _Find(name);
  if (value == nullptr || !IsText(*value)) {
    _Refuse(name, "is no text");
  }
  return value->asString();
}

std::string Arguments::Text(const char* name, const std::string& otherwise) {
  return _Find(name) == nullptr ? otherwise : Text(name);
}

std::uint32_t Arguments::Id(const char* name) {
  const Json::Value* value = _Find(name);
  if (value == nullptr || !value->isUInt()) {
    _Refuse(name, "is no uid or gid");
  }
  return value->asUInt();
}

std::optional<std::uint32_t> Arguments::OptionalId(const char* name) {
  return _Find(name) == nullptr ? std::nullopt : std::make_optional(Id(name));
}

template <typename T>
std::vector<T> Arguments::_List(const char* name, bool (*is)(const Json::Value&),
                                const std::function<T(const Json::Value&)>& as, const char* why) {
  std::vector<T> list;
  const Json::Value& values = Any(name);
  if (_Find(name) != nullptr && !values.isArray()) {
    _Refuse(name, why);
  }
  for (const Json::Value& value : values) {
    if (!is(value)) {
      _Refuse(name, why);
    }
    list.push_back(as(value));
  }
  return list;
}

std::vector<std::string> Arguments::Texts(const char* name) {
  return _List<std::string>(
      name, IsText, [](const Json::Value& text) { return text.asString(); },
      "is no array of texts");
}

std::vector<std::uint32_t> Arguments::Ids(const char* name) {
  return _List<std::uint32_t>(
      name, [](const Json::Value& id) { return id.isUInt(); },
      [](const Json::Value& id) { return id.asUInt(); }, "is no array of uids or gids");
}

std::optional<std::string> Arguments::OptionalText(const char* name) {
  return _Find(name) == nullptr ? std::nullopt : std::make_optional(Text(name));
}

std::optional<bool> Arguments::OptionalBool(const char* name) {
  const Json::Value* value = _Find(name);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (!value->isBool()) {
    _Refuse(name, "is neither true nor false");
  }
  return value->asBool();
}

std::optional<std::vector<std::string>> Arguments::OptionalTexts(const char* name) {
  return _Find(name) == nullptr ? std::nullopt : std::make_optional(Texts(name));
}

// null leaves the role to the groups.
std::optional<Role> Arguments::OptionalRole(const char* name) {
  const Json::Value* value = _Find(name);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (value->isNull()) {
    return Role::kNone;
  }
  const Role role = value->isString() ? RoleOf(value->asString()) : Role::kNone;
  if (role == Role::kNone) {
    _Refuse(name, "is no role: \"normal\", \"domain_admin\", or null for that of the groups");
  }
  return role;
}

std::vector<Copy> Arguments::Copies(const char* name) {
  std::vector<Copy> copies;
  const Json::Value& list = Any(name);
  if (!list.isNull() && !list.isArray()) {
    _Refuse(name, "is no array");
  }
  for (const Json::Value& value : list) {
    Arguments copy(value, path_ + name + "[].");
    Copy one;
    one.of = copy.Word<Copy::Of>("of", {std::begin(kCopyWords), std::end(kCopyWords)});
    one.name = copy.Text("name");
    one.to = copy.Text("to");
    copy.End();
    copies.push_back(std::move(one));
  }
  return copies;
}

const Json::Value& Arguments::Any(const char* name) {
  const Json::Value* value = _Find(name);
  return value == nullptr ? Json::Value::nullSingleton() : *value;
}

void Arguments::End() const {
  for (const std::string& name :
       value_.isObject() ? value_.getMemberNames() : Json::Value::Members()) {
    if (asked_.count(name) == 0) {
      _Refuse(name, "is not known");
    }
  }
}

}  // namespace mdomain::session
