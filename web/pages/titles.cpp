// What the window of a page is called, so that several of them are told apart.
#include <map>
#include <utility>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

std::string TitleOfPage(const std::string& page) {
  const std::map<std::string, std::string> titles = {
      {"copies", Tr("Copies")},
      {"disclaimer", Tr("New disclaimer")},
      {"disclaimers", Tr("Disclaimers")},
      {"doctor", Tr("Findings")},
      {"domain", Tr("Overview")},
      {"domain_new", Tr("New domain")},
      {"domains", Tr("Domains")},
      {"entries", Tr("Shared addresses")},
      {"explain", Tr("Whose address?")},
      {"groups", Tr("Groups")},
      {"history", Tr("History")},
      {"own", Tr("My addresses")},
      {"pattern", Tr("Try a pattern")},
      {"people", Tr("People")},
      {"people_add", Tr("Add people")},
      {"picture", Tr("Who gets what")},
      {"plan", Tr("What will change")},
      {"published", Tr("What mail services read")},
      {"refresh", Tr("Bring in new accounts")},
      {"sign_in", Tr("Sign in")},
      {"tokens", Tr("Tokens for programs")},
  };
  const auto found = titles.find(page);
  return found == titles.end() ? "" : found->second;
}

}  // namespace

std::string TitleOf(const Shown& shown) {
  // Of what it is about, in the first of these that says so.
  static const std::pair<const char*, const char*> kNames[] = {
      {"user", "name"}, {"entry", "name"}, {"group", "name"}, {"disclaimer", "title"}};
  const Json::Value& data = shown.data;
  if (data["title"].isString()) {
    return data["title"].asString();
  }
  for (const auto& [of, name] : kNames) {
    if (data[of].isObject() && !data[of][name].asString().empty()) {
      return data[of][name].asString();
    }
  }
  if (shown.name == "pattern" && data["is_drift"].asBool()) {
    return Tr("Drift");
  }
  return shown.name == "history_entry" ? Tr("Change") + " " + data["id"].asString()
                                       : TitleOfPage(shown.name);
}

}  // namespace mdomain_web::pages
