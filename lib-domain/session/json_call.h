// Calls of a session by name, with JSON in and out: for interfaces of other languages.
#ifndef LIB_DOMAIN_SESSION_JSON_CALL_H
#define LIB_DOMAIN_SESSION_JSON_CALL_H

#include <json/value.h>

#include <string>
#include <vector>

#include "lib-domain/session/mdomain.hpp"

namespace mdomain::session {

// {"value": ..., "published": true}, or {"error": {...}}; both where something is not published.
Json::Value CallByName(Session& session, const std::string& name, const Json::Value& arguments);

// The names of all calls, ascending.
std::vector<std::string> CallNames();

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_CALL_H
