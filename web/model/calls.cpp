#include "web/model/calls.h"

#include "lib-domain/session/mdomain.h"

#include "web/model/long_call.h"
#include "web/view/json_text.h"

namespace mdomain_web {

CallFailed::CallFailed(const Json::Value& that)
    : std::runtime_error(that["text"].asString()), error(that) {}

Json::Value ErrorOf(const std::string& reason, const std::string& text, const std::string& advice) {
  Json::Value error;
  error["reason"] = reason;
  error["number"] = 117;
  error["text"] = text;
  error["advice"] = advice;
  error["refused"] = Json::arrayValue;
  error["log"] = Json::arrayValue;
  return error;
}

Calls::Calls(mdomain_session* session) : session_(session, mdomain_close) {
  if (session == nullptr) {
    throw std::bad_alloc();
  }
}

Calls Calls::OfHost(const std::string& person) {
  Json::Value options;
  options["person"] = person;
  return Calls(mdomain_open(ToText(options).c_str()));
}

Calls Calls::As(std::uint32_t uid) {
  const Calls host = OfHost("");
  return Calls(mdomain_as(host.session_.get(), uid));
}

Json::Value Calls::Answer(const std::string& name, const Json::Value& arguments) const {
  const LongCall turn(name);
  const std::unique_ptr<char, void (*)(char*)> answer(
      mdomain_call(session_.get(), name.c_str(), ToText(arguments).c_str()), mdomain_free);
  if (answer == nullptr) {
    throw std::bad_alloc();
  }
  return FromText(answer.get());
}

Json::Value Calls::operator()(const std::string& name, const Json::Value& arguments) const {
  Json::Value answer = Answer(name, arguments);
  if (!answer.isMember("value")) {
    throw CallFailed(answer["error"]);
  }
  return answer["value"];
}

}  // namespace mdomain_web
