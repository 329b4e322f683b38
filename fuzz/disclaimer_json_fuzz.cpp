// Disclaimer lists that someone typed, or that a store holds. What passes the check is stored and
// read back as it was, and every enabled disclaimer of it is one that can be judged.
#include <json/value.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "lib-domain/api/disclaimer/condition.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"

namespace {

using namespace MDOMAIN::API::INTERNAL;

void Require(bool held) {
  if (!held) {
    std::abort();
  }
}

void CheckRule(const Json::Value& rule) {
  unsigned int id = 0;
  std::string test;
  Require(rule["pattern_type"] == Json::Value("email")
              ? EmailTest(RuleTarget::kSender, rule["pattern"].asString(), test)
              : PatternAsId(rule["pattern"], id));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Json::Value stored;
  if (ParseStoredList(text, stored)) {
    Require(IsArrayOfObjects(stored));
  }
  Json::Value list;
  std::string error;
  if (!ParseJson(text, list)) {
    return 0;
  }
  if (!MimeDefang::CheckDisclaimerList(list, error)) {
    Require(!error.empty());
    return 0;
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
  return 0;
}
