// Disclaimer lists that someone typed, or that a store holds. What passes the check is stored and
// read back as it was, and every enabled disclaimer of it is one that can be judged.
#include <json/value.h>

#include <set>

#include "fuzz/target.h"
#include "lib-domain/api/disclaimer/condition.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"

namespace {

using namespace MDOMAIN::API::INTERNAL;
using fuzz::Require;

void CheckRule(const Json::Value& rule) {
  unsigned int id = 0;
  std::string test;
  Require(rule["pattern_type"] == Json::Value("email")
              ? EmailTest(RuleTarget::kSender, rule["pattern"].asString(), test)
              : PatternAsId(rule["pattern"], id));
}

}  // namespace

void fuzz::Run(const std::string& text) {
  Json::Value stored;
  if (ParseStoredList(text, stored)) {
    Require(IsArrayOfObjects(stored));
  }
  Json::Value list;
  std::string error;
  if (!ParseJson(text, list)) {
    return;
  }
  if (!MimeDefang::CheckDisclaimerList(list, error)) {
    Require(!error.empty());
    return;
  }
  std::set<int> ids;
  for (const Json::Value& disclaimer : list) {
    Require(ids.insert(disclaimer["id"].asInt()).second);
    for (const char* member : {"match_rule_list", "exception_rule_list"}) {
      for (const Json::Value& rule : disclaimer[member]) {
        CheckRule(rule);
      }
    }
  }
  Json::Value again;
  Require(ParseJson(WriteJson(list), again) && again == list);
}
