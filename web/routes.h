// Which page answers which path.
#ifndef MDOMAIN_WEB_ROUTES_H
#define MDOMAIN_WEB_ROUTES_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "web/asked.h"

namespace mdomain_web {

using Page = Shown (*)(const Asked&);

// What a call of the library is about, for a form that changes something.
struct Change {
  std::string call;
  Json::Value arguments;
  std::string go_to;           // afterwards
  std::string done;            // the notice then
  bool in_background = false;  // a refresh, which `go_to` tells of
};
using Form = Change (*)(const Asked&);

struct Route {
  const char* method;
  const char* path;  // "/domains/{domain}/people": a part in braces is any one part
  Page page;         // the answer; of POST only for what is no change of the model
  Form form;         // else: first what it would change is shown, then it is done
  // What the form asks for, by the names of its fields with spaces between, so that it can be shown
  // again where its change was not made.
  const char* fields = "";
  // What stands in those fields now, their "version" and the "page" that shows it; null for a form
  // without a version.
  Json::Value (*now)(const Asked&) = nullptr;
};

const std::vector<Route>& Routes();

// The parts in braces when the path of the request is of that kind. It is taken apart before its
// parts are decoded (RFC 3986), so that a name may hold a "/"; what stands behind "?" does not
// count.
std::optional<std::map<std::string, std::string>> Match(const std::string& route,
                                                        const std::string& target);
// A text as a part of a path or of a query.
std::string Encoded(const std::string& text);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_ROUTES_H
