// A request of somebody who is signed in, and what is answered.
#ifndef MDOMAIN_WEB_ASKED_H
#define MDOMAIN_WEB_ASKED_H

#include <httplib.h>
#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "web/identity/tokens.h"
#include "web/identity/visits.h"
#include "web/model/calls.h"
#include "web/model/refresher.h"

namespace mdomain_web {

struct Asked {
  const httplib::Request& request;
  std::map<std::string, std::string> at;  // the parts of the path that the route names
  Person person;
  Calls calls;
  Tokens& tokens;
  Refresher& refresher;

  // A number of the path; throws NotFound for what is none.
  std::uint32_t Number(const std::string& name) const;
  // The same of a parameter of the query or a field of the form.
  std::uint32_t NumberOf(const std::string& name) const;
  // A parameter of the query or a field of the form, the first of its name; "" without one.
  std::string Text(const std::string& name) const;
  bool Has(const std::string& name) const { return request.has_param(name); }
  // A field in which each line is one text; spaces around them and empty lines do not count.
  std::vector<std::string> Lines(const std::string& name) const;
};

// A number of at most 32 bits in decimal digits; none for any other text.
std::optional<std::uint32_t> NumberIn(const std::string& text);

// Forms end lines with CR LF; everything else with LF.
std::string WithLineEnds(std::string text);

// There is no such page, or it is not the person's to see: nobody learns which.
struct NotFound {};

// A page, or where to go instead.
struct Shown {
  std::string name;  // of the template
  Json::Value data = Json::Value(Json::objectValue);
  int status = 200;
  std::string go_to = "";
};

Shown GoTo(const std::string& path);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_ASKED_H
