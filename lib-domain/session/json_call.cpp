#include "lib-domain/session/json_call.h"

#include <algorithm>

#include "lib-domain/session/json_calls.h"
#include "lib-domain/session/turn.h"

namespace mdomain::session {

namespace {

constexpr const char* kTogether = "together";
constexpr const char* kDryRun = "dry_run";
constexpr std::size_t kLongestCommand = 1000;  // of a list that shows a hundred of them

// "calls" are objects with "call" and "arguments"; the value is the array of their values.
Json::Value Together(Session& session, Arguments& with) {
  const std::string command = with.Text("command");
  const Json::Value& calls = with.Any("calls");
  with.End();
  if (!calls.isArray()) {
    Refuse(Reason::kInvalid, "argument \"calls\" is no array");
  }
  if (command.size() > kLongestCommand) {
    Refuse(Reason::kInvalid, "argument \"command\" is longer than 1000 bytes");
  }
  Json::Value values(Json::arrayValue);
  Json::Value error;
  const auto result = session.Together(command, [&](Session& within) {
    for (const Json::Value& call : calls) {
      Arguments one(call, "calls[].");
      const std::string name = one.Text("call");
      const Json::Value answer = CallByName(within, name, one.Any("arguments"));
      one.End();
      if (answer.isMember("error")) {
        error = answer["error"];
        return false;
      }
      values.append(answer["value"]);
    }
    return true;
  });
  Json::Value answer = Answer(result);
  if (result) {
    answer["value"] = values;
  } else if (!error.isNull()) {
    if (answer["error"]["text"].asString().find(kNotTakenBack) != std::string::npos) {
      error["text"] = error["text"].asString() + kNotTakenBack;
    }
    answer["error"] = error;
  }
  return answer;
}

// The value is the plan of the call; a refusal is that of the call.
Json::Value DryRun(Session& session, const std::string& name, Json::Value arguments) {
  Json::Value is_asked_for;
  arguments.removeMember(kDryRun, &is_asked_for);
  if (!is_asked_for.isBool()) {
    Refuse(Reason::kInvalid, "argument \"dry_run\" is neither true nor false");
  }
  if (!is_asked_for.asBool()) {
    return CallByName(session, name, arguments);
  }
  Json::Value refused;
  const Result<ChangePlan> plan = session.DryRun([&](Session& trial) -> Result<Nothing> {
    const Json::Value answer = CallByName(trial, name, arguments);
    if (answer.isMember("value")) {
      return Nothing();
    }
    refused = answer;
    return Error();
  });
  return refused.isNull() ? Answer(plan) : refused;
}

}  // namespace

Json::Value CallByName(Session& session, const std::string& name, const Json::Value& arguments) {
  try {
    const auto found = Calls().find(name);
    const Run run = name == kTogether ? Together : found == Calls().end() ? nullptr : found->second;
    if (run == nullptr) {
      Refuse(Reason::kInvalid, "there is no call \"" + name + "\"");
    }
    if (arguments.isObject() && arguments.isMember(kDryRun)) {
      return DryRun(session, name, arguments);
    }
    Arguments with(arguments);
    return run(session, with);
  } catch (const Stop& stop) {
    return Answer(Result<Nothing>(stop.error));
  }
}

std::vector<std::string> CallNames() {
  std::vector<std::string> names;
  for (const auto& call : Calls()) {
    names.push_back(call.first);
  }
  names.insert(std::lower_bound(names.begin(), names.end(), kTogether), kTogether);
  return names;
}

}  // namespace mdomain::session
