#include "web/view/json_text.h"

#include <stdexcept>

#include "lib-domain/base/json_text.h"

namespace mdomain_web {

std::string ToText(const Json::Value& value) {
  return MDOMAIN::BASE::JsonText(value);
}

Json::Value FromText(const std::string& text) {
  Json::Value value;
  const std::string problem = MDOMAIN::BASE::ParseJson(text, value);
  if (!problem.empty()) {
    throw std::invalid_argument(problem);
  }
  return value;
}

}  // namespace mdomain_web
