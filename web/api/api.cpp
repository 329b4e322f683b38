#include "web/api/api.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

#include "web/api/operations.h"
#include "web/model/calls.h"
#include "web/routes.h"
#include "web/view/json_text.h"

namespace mdomain_web {

namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* kRoot = "/api/v1";
constexpr Json::ArrayIndex kLongestPage = 10000;
// Of all domains: a document of more would take more than a quarter of a GiB while it is made.
constexpr Json::UInt64 kMostUsersOfModel = 100000;

struct Refusal {
  int status;
  std::string reason;
  std::string text;
};

int StatusOf(const std::string& reason) {
  static const std::map<std::string, int> kStatuses = {
      {"invalid", 400}, {"refused", 403}, {"not-found", 404},  {"taken", 409},
      {"changed", 412}, {"busy", 503},    {"unpublished", 200}};
  const auto found = kStatuses.find(reason);
  return found == kStatuses.end() ? 500 : found->second;
}

// RFC 9457: what the library tells, under the names of the standard where it has one.
Json::Value ProblemOf(const Json::Value& error) {
  const std::string reason = error["reason"].asString();
  Json::Value problem = error;
  problem.removeMember("text");
  problem["type"] = std::string(kRoot) + "/problems/" + reason;
  problem["title"] = "The call was " + (reason == "failed" ? "not done" : reason);
  problem["status"] = StatusOf(reason);
  problem["detail"] = error["text"];
  return problem;
}

[[noreturn]] void Refuse(int status, const std::string& reason, const std::string& text) {
  throw Refusal{status, reason, text};
}

Json::Value NumberOf(const std::string& name, const std::string& text) {
  if (text.empty() || text.size() > 10 ||
      text.find_first_not_of("0123456789") != std::string::npos ||
      std::stoull(text) > 0xFFFFFFFFULL) {
    Refuse(400, "invalid", "\"" + name + "\" is no number from 0 to 4294967295");
  }
  return static_cast<Json::UInt>(std::stoull(text));
}

Json::Value ValueOf(const Argument& argument, const std::string& text) {
  if (argument.kind == Kind::kNumber) {
    return NumberOf(argument.name, text);
  }
  if (argument.kind == Kind::kFlag) {
    if (text != "true" && text != "false") {
      Refuse(400, "invalid", "\"" + std::string(argument.name) + "\" is neither true nor false");
    }
    return text == "true";
  }
  if (argument.kind == Kind::kNumbers) {
    Json::Value list(Json::arrayValue);
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find(',', begin), text.size());
      list.append(NumberOf(argument.name, text.substr(begin, end - begin)));
      begin = end + 1;
    }
    return list;
  }
  return text;
}

bool IsFlagSet(const Request& request, const std::string& name) {
  const std::string text = request.get_param_value(name);
  if (!text.empty() && text != "true" && text != "false") {
    Refuse(400, "invalid", "\"" + name + "\" is neither true nor false");
  }
  return text == "true";
}

Json::Value BodyOf(const Request& request) {
  if (request.body.empty()) {
    return Json::objectValue;
  }
  const std::string type = request.get_header_value("Content-Type");
  if (type.compare(0, 16, "application/json") != 0) {
    Refuse(415, "invalid", "the body is no application/json");
  }
  Json::Value body;
  try {
    body = FromText(request.body);
  } catch (const std::invalid_argument& error) {
    Refuse(400, "invalid", std::string("the body is no JSON: ") + error.what());
  }
  if (!body.isObject()) {
    Refuse(400, "invalid", "the body is no JSON object");
  }
  return body;
}

// The page of a list that the query asks for.
struct Part {
  Json::ArrayIndex begin = 0;
  Json::ArrayIndex size = kLongestPage;
};

Part PartOf(const Request& request) {
  Part part;
  if (request.has_param("page_size")) {
    const Json::Value size = NumberOf("page_size", request.get_param_value("page_size"));
    part.size = std::clamp<Json::ArrayIndex>(size.asUInt(), 1, kLongestPage);
  }
  if (!request.get_param_value("cursor").empty()) {
    part.begin = NumberOf("cursor", request.get_param_value("cursor")).asUInt();
  }
  return part;
}

void Cut(const Part& part, Json::Value& answer) {
  const Json::Value all = answer["value"];
  answer["value"] = Json::arrayValue;
  const auto begin = std::min(part.begin, all.size());
  const auto end = begin + std::min(part.size, all.size() - begin);
  for (auto at = begin; at < end; ++at) {
    answer["value"].append(all[at]);
  }
  answer["total"] = all.size();
  answer["next"] = end < all.size() ? std::to_string(end) : "";
}

// A change that would replace what somebody else may have changed meanwhile says which version it
// is made from.
void RequireVersion(const Operation& operation, const Json::Value& arguments, bool is_trial) {
  for (const Argument& argument : operation.arguments) {
    const bool is_whole =
        argument.is_needed || (arguments.isMember("aliases") && arguments.isMember("uid"));
    if (argument.kind == Kind::kVersion && is_whole && !arguments.isMember(argument.name) &&
        !is_trial) {
      Refuse(428, "invalid", "If-Match is missing: the version that was read, or *");
    }
  }
}

void RequireSmallModel(const Calls& calls) {
  Json::UInt64 users = 0;
  for (const Json::Value& domain : calls("domains")) {
    users += domain["users"].asUInt64();
  }
  if (users > kMostUsersOfModel) {
    Refuse(403, "refused", "the domains have more than 100,000 users: mdomain export writes them");
  }
}

bool HasBody(const Operation& operation) {
  const std::string method = operation.method;
  return method != "GET" && method != "DELETE";
}

// What is no version is never that of the library, and never none, with which anything is changed.
std::string VersionOf(std::string match) {
  match.erase(std::remove(match.begin(), match.end(), '"'), match.end());
  return match == "*" ? "" : match.empty() ? "none" : match;
}

// A version among the arguments says what it would in the header.
void TakeVersion(const Operation& operation, Json::Value& arguments) {
  for (const Argument& argument : operation.arguments) {
    if (argument.kind == Kind::kVersion && arguments.isMember(argument.name)) {
      Json::Value& version = arguments[argument.name];
      version = VersionOf(version.isString() ? version.asString() : "");
    }
  }
}

// Of several operations at once each has the arguments that it has alone, and its version among
// them. What only reads is no part of a change: the answers to many such calls have no bound.
void RequireVersions(const Operation& of_all, Json::Value& arguments) {
  const bool is_trial = std::as_const(arguments)["dry_run"] == true;
  RequireVersion(of_all, arguments, is_trial);
  if (!std::as_const(arguments)["calls"].isArray()) {
    return;
  }
  for (Json::Value& call : arguments["calls"]) {
    const Json::Value name = call.isObject() ? call["call"] : Json::Value();
    const Operation* operation = name.isString() ? FindOperation(name.asString()) : nullptr;
    if (operation == nullptr || name == "together" || std::string(operation->method) == "GET") {
      Refuse(400, "invalid", "an element of \"calls\" names no operation that changes something");
    }
    Json::Value& given = call["arguments"];
    if ((!given.isObject() && !given.isNull()) || given.isMember("dry_run")) {
      Refuse(400, "invalid", "those are no arguments of \"" + name.asString() + "\"");
    }
    TakeVersion(*operation, given);
    RequireVersion(*operation, given, is_trial);
  }
}

Json::Value ArgumentsOf(const Operation& operation, const Request& request,
                        const std::map<std::string, std::string>& at) {
  Json::Value arguments = HasBody(operation) ? BodyOf(request) : Json::Value(Json::objectValue);
  for (const auto& parameter : request.params) {
    const auto known =
        std::find_if(operation.arguments.begin(), operation.arguments.end(),
                     [&](const Argument& argument) { return argument.name == parameter.first; });
    const bool is_plan =
        (parameter.first == "dry_run" && std::string(operation.method) != "GET") ||
        (IsList(operation) && (parameter.first == "page_size" || parameter.first == "cursor"));
    if (!is_plan && (HasBody(operation) || known == operation.arguments.end())) {
      Refuse(400, "invalid", "\"" + parameter.first + "\" of the query is not known");
    }
    if (!is_plan) {
      arguments[parameter.first] = ValueOf(*known, parameter.second);
    }
  }
  TakeVersion(operation, arguments);
  const bool is_guarded =
      std::any_of(operation.arguments.begin(), operation.arguments.end(),
                  [](const Argument& argument) { return argument.kind == Kind::kVersion; });
  if (request.has_header("If-Match") && !is_guarded && std::string(operation.method) != "GET") {
    Refuse(400, "invalid", "this operation knows no version, and no If-Match");
  }
  for (const Argument& argument : operation.arguments) {
    const auto part = at.find(argument.name);
    if (part != at.end()) {
      arguments[argument.name] = ValueOf(argument, part->second);
    } else if (argument.kind == Kind::kVersion && request.has_header("If-Match")) {
      arguments[argument.name] = VersionOf(request.get_header_value("If-Match"));
    } else if (argument.kind != Kind::kVersion && argument.is_needed &&
               !arguments.isMember(argument.name)) {
      Refuse(400, "invalid", "\"" + std::string(argument.name) + "\" is missing");
    }
  }
  if (IsFlagSet(request, "dry_run")) {
    arguments["dry_run"] = true;
  }
  RequireVersions(operation, arguments);
  return arguments;
}

}  // namespace

bool Api::IsAsked(const Request& request) {
  return request.path.compare(0, 5, "/api/") == 0;
}

void Api::Answer(const Request& request, Response& response) {
  Json::Value answer;
  const int unread = response.status;  // the parser's own answer
  response.status = 200;
  try {
    if (unread >= 400) {
      Refuse(
          unread, unread >= 500 ? "failed" : "invalid",
          unread >= 500 ? "this went wrong here; the log has more" : "the request cannot be read");
    }
    answer = _Answer(request, response);
  } catch (const Refusal& refusal) {
    answer["error"] = ErrorOf(refusal.reason, refusal.text);
    response.status = refusal.status;
  } catch (const CallFailed& failed) {
    answer["error"] = failed.error;
  }
  const bool is_problem = !answer.isMember("value") && answer.isMember("error");
  if (is_problem) {
    const Json::Value problem = ProblemOf(answer["error"]);
    response.status = response.status == 200 ? problem["status"].asInt() : response.status;
    answer = problem;
    answer["status"] = response.status;
  } else if (answer.isMember("error")) {
    answer["problem"] = ProblemOf(answer["error"]);
    answer.removeMember("error");
  }
  if (response.status == 401) {
    response.set_header("WWW-Authenticate", "Bearer");
  }
  if (response.status == 503) {
    response.set_header("Retry-After", "1");
  }
  const Json::Value& value = std::as_const(answer)["value"];
  if (value.isObject() && value.isMember("version")) {
    response.set_header("ETag", "\"" + value["version"].asString() + "\"");
  }
  response.set_content(ToText(answer),
                       is_problem ? "application/problem+json" : "application/json");
}

Json::Value Api::_Answer(const Request& request, Response& response) {
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  if (request.path == std::string(kRoot) + "/openapi.json" && method == "GET") {
    return Description();
  }
  const std::string authorization = request.get_header_value("Authorization");
  const auto token = authorization.compare(0, 7, "Bearer ") == 0
                         ? tokens_.Find(authorization.substr(7))
                         : std::nullopt;
  std::optional<FirstCome::Place> place;
  if (token) {
    place.emplace(first_come_, token->account);
  }
  const auto person = token ? find_(token->account) : std::nullopt;
  if (!person || person->uid != token->uid) {
    Refuse(401, "refused", "a token that counts is needed");
  }
  std::string allowed;
  for (const Operation& operation : Operations()) {
    const auto at = Match(std::string(kRoot) + operation.path, request.target);
    if (!at || method != operation.method) {
      allowed += at ? (allowed.empty() ? "" : ", ") + std::string(operation.method) : "";
      continue;
    }
    if (method != "GET" && !token->may_change) {
      Refuse(403, "refused", "this token may read only");
    }
    const Calls calls =
        person->is_host_administrator ? Calls::OfHost(person->name) : Calls::As(person->uid);
    if (std::string(operation.call) == "export") {
      RequireSmallModel(calls);
    }
    Json::Value answer = calls.Answer(operation.call, ArgumentsOf(operation, request, *at));
    if (IsList(operation) && answer["value"].isArray()) {
      Cut(PartOf(request), answer);
    }
    const bool may_be_null = std::string(operation.result).find('?') != std::string::npos ||
                             std::string(operation.result) == "Nothing";
    if (answer.isMember("value") && answer["value"].isNull() && !may_be_null) {
      Refuse(404, "not-found", "there is none");
    }
    return answer;
  }
  if (allowed.empty()) {
    Refuse(404, "not-found", "there is no such path");
  }
  response.set_header("Allow", allowed);
  Refuse(405, "invalid", "the path has no such method");
}

}  // namespace mdomain_web
