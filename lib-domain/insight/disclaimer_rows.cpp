#include "lib-domain/insight/disclaimer_rows.h"

#include <algorithm>
#include <vector>

#include "lib-domain/base/text.h"
#include "lib-domain/insight/address_pattern.h"

namespace MDOMAIN::INSIGHT {

namespace {

// One end of a message as the filter takes it apart, in small letters.
struct End {
  explicit End(std::string text) {
    text = BASE::ToLowerAscii(text);
    text.erase(0, text.compare(0, 1, "<") == 0 ? 1 : 0);
    text.erase(text.size() - (text.empty() || text.back() != '>' ? 0 : 1));
    const size_t at = text.rfind('@');
    address = text;
    name = text.substr(0, at);
    domain = at == std::string::npos ? "" : text.substr(at + 1);
  }

  std::string address;
  std::string name;
  std::string domain;
};

class Message {
 public:
  Message(const Json::Value& config, const std::string& from, const std::string& to)
      : config_(config), from_(from), to_(to) {}

  bool IsToLocal() const { return config_["local_domain_map"].isMember(to_.domain); }

  bool Holds(const Json::Value& test) const {
    const End& end = test["target"] == "sender" ? from_ : to_;
    const auto any = [&test](const char* list, const auto& is_meant) {
      return std::any_of(test[list].begin(), test[list].end(), [&](const Json::Value& text) {
        return is_meant(BASE::ToLowerAscii(text.asString()));
      });
    };
    if (test.isMember("globs")) {
      return any("globs", [&end](const std::string& glob) { return Fits(glob, end.address); });
    }
    if (!config_["all_domain_map"].isMember(end.domain)) {
      return false;
    }
    return test.isMember("gid")
               ? config_["gid_username_map"][test["gid"].asString()].isMember(end.name)
               : any("aliases", [&end](const std::string& alias) { return alias == end.name; });
  }

  Json::Value HoldingOf(const Json::Value& tests) const {
    Json::Value indexes(Json::arrayValue);
    for (const Json::Value& test : tests) {
      if (Holds(test)) {
        indexes.append(test["index"]);
      }
    }
    return indexes;
  }

 private:
  const Json::Value& config_;
  const End from_;
  const End to_;
};

std::string RuleList(const char* list, const Json::Value& indexes) {
  std::vector<std::string> names;
  for (const Json::Value& index : indexes) {
    names.push_back(std::string(list) + "[" + index.asString() + "]");
  }
  return BASE::Join(names, ", ");
}

std::string Reason(const Json::Value& row, const Json::Value& answer) {
  std::string reason;
  if (answer["local_recipient"].asBool()) {
    reason = "disabled for local recipients";
  } else if (!answer["excepted"].empty()) {
    reason = RuleList("exception_rule_list", answer["excepted"]);
  } else {
    reason = answer["matched"].empty() ? "no match rule holds"
                                       : RuleList("match_rule_list", answer["matched"]);
  }
  const bool lost = row["op"] == Json::Value("and") && !row["match_left_out"].empty();
  return lost ? reason + " (without " + RuleList("match_rule_list", row["match_left_out"]) + ")"
              : reason;
}

Json::Value RowOf(const Json::Value& disclaimer) {
  Json::Value row(Json::objectValue);
  row["id"] = disclaimer["id"];
  row["name"] = disclaimer["name"];
  row["op"] = disclaimer["op"];
  row["applies"] = false;
  row["reason"] = disclaimer["enabled"] == Json::Value(true) ? "invalid, left out" : "disabled";
  for (const char* list : {"matched", "excepted", "match_left_out", "exceptions_left_out"}) {
    row[list] = Json::arrayValue;
  }
  return row;
}

}  // namespace

Json::Value AnswersOf(const Json::Value& config, const std::string& from, const std::string& to) {
  const Message message(config, from, to);
  Json::Value answers(Json::arrayValue);
  for (const Json::Value& built : config["disclaimer_list"]) {
    const bool is_off = built["disabled_for_local_recipient"].asBool() && message.IsToLocal();
    Json::Value answer;
    answer["matched"] = message.HoldingOf(built["match"]);
    answer["excepted"] = message.HoldingOf(built["exceptions"]);
    answer["local_recipient"] = is_off;
    const bool fits = built["op"] == "and" ? answer["matched"].size() == built["match"].size()
                                           : !answer["matched"].empty();
    answer["applies"] = fits && answer["excepted"].empty() && !is_off;
    answers.append(answer);
  }
  return answers;
}

std::string LeftOutRules(const Json::Value& row) {
  const std::string matches = RuleList("match_rule_list", row["match_left_out"]);
  const std::string exceptions = RuleList("exception_rule_list", row["exceptions_left_out"]);
  return matches + (matches.empty() || exceptions.empty() ? "" : ", ") + exceptions;
}

Json::Value DisclaimerRows(const Json::Value& list, const Json::Value& config,
                           const Json::Value& answers) {
  Json::Value rows(Json::arrayValue);
  for (const Json::Value& disclaimer : list) {
    rows.append(RowOf(disclaimer));
  }
  for (Json::ArrayIndex i = 0; i < answers.size(); ++i) {
    const Json::Value& built = config["disclaimer_list"][i];
    Json::Value& row = rows[built["place"].asUInt()];
    row["applies"] = answers[i]["applies"];
    row["match_left_out"] = built["match_left_out"];
    row["exceptions_left_out"] = built["exceptions_left_out"];
    row["reason"] = Reason(row, answers[i]);
    row["matched"] = answers[i]["matched"];
    row["excepted"] = answers[i]["excepted"];
  }
  return rows;
}

}  // namespace MDOMAIN::INSIGHT
