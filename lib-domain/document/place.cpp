#include "lib-domain/document/place.h"

#include "lib-domain/base/json_text.h"
#include "platform/include/text.h"

namespace MDOMAIN::DOCUMENT {

void Place::RequireMembers(const std::set<std::string>& known) const {
  if (!value_.isObject()) {
    Refuse("must be an object");
  }
  for (const std::string& name : value_.getMemberNames()) {
    if (known.count(name) == 0) {
      Place(value_[name], path_ + "." + name).Refuse("unknown member");
    }
  }
}

Place Place::Member(const std::string& member) const {
  if (!Has(member)) {
    Place(value_, path_ + "." + member).Refuse("is missing");
  }
  return {value_[member], path_ + "." + member};
}

std::vector<Place> Place::Elements() const {
  if (!value_.isArray()) {
    Refuse("must be an array");
  }
  std::vector<Place> elements;
  for (Json::ArrayIndex i = 0; i < value_.size(); ++i) {
    elements.emplace_back(value_[i], path_ + "[" + std::to_string(i) + "]");
  }
  return elements;
}

std::vector<Place> Place::Elements(const std::string& member) const {
  return Has(member) ? Member(member).Elements() : std::vector<Place>();
}

std::string Place::Text() const {
  if (!value_.isString()) {
    Refuse("must be a text");
  }
  std::string text = value_.asString();
  const std::string shown = korvmailserver::VisibleText(text);
  if (shown != text) {
    throw Problem(Problem::kRefused, path_ + " \"" + shown +
                                         (korvmailserver::IsValidUtf8(text)
                                              ? "\" holds control characters or hidden ones"
                                              : "\" is not valid UTF-8"));
  }
  return text;
}

bool Place::Flag() const {
  if (!value_.isBool()) {
    Refuse("must be true or false");
  }
  return value_.asBool();
}

void ParseDocument(const std::string& text, Json::Value& value) {
  if (!korvmailserver::IsValidUtf8(text)) {
    throw Problem(Problem::kRefused, "$: the document is not UTF-8");
  }
  const std::string error = BASE::ParseJson(text, value);
  if (!error.empty()) {
    throw Problem(Problem::kRefused, "$: no JSON: " + error);
  }
}

}  // namespace MDOMAIN::DOCUMENT
