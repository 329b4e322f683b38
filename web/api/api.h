// The HTTP interface below /api/v1: the calls of the library as resources, for programs with a
// token. Failures are problem documents (RFC 9457).
#ifndef MDOMAIN_WEB_API_API_H
#define MDOMAIN_WEB_API_API_H

#include <httplib.h>
#include <json/value.h>

#include <functional>
#include <optional>
#include <string>

#include "web/identity/tokens.h"
#include "web/identity/visits.h"
#include "web/model/first_come.h"

namespace mdomain_web {

class Api final {
 public:
  // `find` tells who an account is today; none when it is gone.
  using Find = std::function<std::optional<Person>(const std::string& account)>;

  Api(Tokens& tokens, FirstCome& first_come, Find find)
      : tokens_(tokens), first_come_(first_come), find_(std::move(find)) {}

  static bool IsAsked(const httplib::Request& request);
  // May be called by several threads at once.
  void Answer(const httplib::Request& request, httplib::Response& response);

  // The whole interface as OpenAPI 3.1 tells it.
  static Json::Value Description();

 private:
  Json::Value _Answer(const httplib::Request& request, httplib::Response& response);

  Tokens& tokens_;
  FirstCome& first_come_;
  const Find find_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_API_API_H
