// Records of sessions as JSON, and the arguments of calls from it.
#ifndef LIB_DOMAIN_SESSION_JSON_RECORD_H
#define LIB_DOMAIN_SESSION_JSON_RECORD_H

#include <json/value.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Before the templates, which take its records, too.
#include "lib-domain/session/json_insight.h"
#include "lib-domain/session/mdomain.hpp"

namespace mdomain::session {

Json::Value RoleJson(Role role);  // null for kNone
const char* WordOf(Copy::Of of);  // "recipient", "sender", "domain"

Json::Value JsonOf(const Nothing& nothing);  // null
Json::Value JsonOf(const std::string& text);
Json::Value JsonOf(const Domain& domain);
Json::Value JsonOf(const Account& account);
Json::Value JsonOf(const AccountGroup& group);
Json::Value JsonOf(const GroupDomain& domain);
Json::Value JsonOf(const ModelDocument& document);
Json::Value JsonOf(const AppliedDocument& applied);
Json::Value JsonOf(const User& user);
Json::Value JsonOf(const Candidate& candidate);
Json::Value JsonOf(const Group& group);
Json::Value JsonOf(const Member& member);
Json::Value JsonOf(const Entry& entry);
Json::Value JsonOf(const Copy& copy);
Json::Value JsonOf(const Disclaimers& disclaimers);
Json::Value JsonOf(const RefreshReport& report);
Json::Value JsonOf(const HistoryEntry& entry);
Json::Value JsonOf(const Error& error);
Json::Value JsonOf(const ChangePlan& plan);
Json::Value JsonOf(const TriedAlias& alias);
Json::Value JsonOf(const TriedPattern& tried);
Json::Value JsonOf(const Setting& setting);
Json::Value JsonOf(const ChangedSetting& changed);
Json::Value JsonOf(const DisclaimerReach& reach);
Json::Value JsonOf(const Progress& progress);
Json::Value JsonOf(const PublishedItem& item);
Json::Value JsonOf(const Publication& publication);

template <typename T>
Json::Value JsonOf(const std::vector<T>& values) {
  Json::Value array(Json::arrayValue);
  for (const T& value : values) {
    array.append(JsonOf(value));
  }
  return array;
}
template <typename T>
Json::Value JsonOf(const std::optional<T>& value) {
  return value ? JsonOf(*value) : Json::Value();
}
template <typename T>
Json::Value JsonOf(const Page<T>& page) {
  Json::Value value;
  value["items"] = JsonOf(page.items);
  value["next"] = page.next;
  value["total"] = Json::UInt64(page.total);
  return value;
}

// The members of an object, each of a given type. One that is missing, of another type, or that
// nobody asks for ends the call with Reason::kInvalid and its name.
class Arguments {
 public:
  // An object, or null for none; `path` stands before the names of its members in errors.
  explicit Arguments(const Json::Value& value, std::string path = "");

  int Int(const char* name);
  int Int(const char* name, int otherwise);
  bool Bool(const char* name, bool otherwise);
  std::string Text(const char* name);
  std::string Text(const char* name, const std::string& otherwise);
  std::uint32_t Id(const char* name);
  std::optional<std::uint32_t> OptionalId(const char* name);
  std::vector<std::string> Texts(const char* name);  // none where it is missing
  std::vector<std::uint32_t> Ids(const char* name);
  std::optional<std::string> OptionalText(const char* name);
  std::optional<bool> OptionalBool(const char* name);
  std::optional<std::vector<std::string>> OptionalTexts(const char* name);
  std::optional<Role> OptionalRole(const char* name);
  std::vector<Copy> Copies(const char* name);
  // Any value; null where it is missing.
  const Json::Value& Any(const char* name);
  // Of a list by name: the one whose word is given, the first where it is missing.
  template <typename Column>
  Column Word(const char* name, const std::vector<std::pair<const char*, Column>>& words) {
    const std::string word = Text(name, words.front().first);
    for (const auto& [known, column] : words) {
      if (word == known) {
        return column;
      }
    }
    _Refuse(name, "is no such word");
  }

  // After the last one.
  void End() const;

 private:
  template <typename T>
  std::vector<T> _List(const char* name, bool (*is)(const Json::Value&),
                       const std::function<T(const Json::Value&)>& as, const char* why);
  const Json::Value* _Find(const char* name);
  [[noreturn]] void _Refuse(const std::string& name, const std::string& why) const;

  const Json::Value& value_;
  std::string path_;
  std::set<std::string> asked_;
};

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_RECORD_H
