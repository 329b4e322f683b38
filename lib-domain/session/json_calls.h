// The calls of a session by name.
#ifndef LIB_DOMAIN_SESSION_JSON_CALLS_H
#define LIB_DOMAIN_SESSION_JSON_CALLS_H

#include <json/value.h>

#include <map>
#include <string>

#include "lib-domain/session/json_record.h"

namespace mdomain::session {

using Run = Json::Value (*)(Session& session, Arguments& with);

// All but "together", which makes several of them.
const std::map<std::string, Run>& Calls();

// Arguments are read before the call: what is left over then is known to nobody.
template <typename T>
Json::Value Answer(const Result<T>& result) {
  Json::Value answer;
  if (result) {
    answer["value"] = JsonOf(*result);
    answer["published"] = result.IsPublished();
  }
  if (!result.IsPublished()) {
    answer["error"] = JsonOf(result.GetError());
  }
  return answer;
}

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_CALLS_H
