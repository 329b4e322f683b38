// Who gets what in a domain: its groups, some of the people of each, their addresses. However many
// there are, a page has ten groups with five people each, and the ways to all others.
#include "web/pages/pages.h"

namespace mdomain_web::pages {

namespace {

constexpr int kGroups = 10;
constexpr int kPeople = 5;

Json::Value Some(const Asked& asked, Json::Value query, const std::string& domain) {
  query["domain"] = asked.Number("domain");
  query["page_size"] = kPeople;
  Json::Value people = asked.calls("list_users", query);
  for (Json::Value& user : people["items"]) {
    for (Json::Value& alias : user["aliases"]) {
      alias["address"] = alias["local_part"].asString() + "@" + domain;
    }
  }
  const auto shown = people["items"].size();
  if (people["total"].asUInt() > shown) {
    people["others"] = people["total"].asUInt() - shown;
  }
  return people;
}

}  // namespace

Shown Picture(const Asked& asked) {
  Shown shown = OfDomain(asked, "picture", "picture");
  const std::string name = shown.data["domain"]["name"].asString();
  Json::Value arguments = DomainArgument(asked);
  arguments["cursor"] = asked.Text("cursor");
  arguments["page_size"] = kGroups;
  Json::Value groups = asked.calls("list_groups", arguments);
  for (Json::Value& group : groups["items"]) {
    Json::Value query;
    query["gid"] = group["gid"];
    group["people"] = Some(asked, query, name);
    group["is_administrator"] = group["role"].asString() == "domain_admin";
  }
  shown.data["groups"] = groups;
  shown.data["next"] = NextPage(groups);
  if (asked.Text("cursor").empty()) {
    Json::Value query;
    query["has_own_role"] = true;
    shown.data["by_themselves"] = Some(asked, query, name);
  }
  return shown;
}

}  // namespace mdomain_web::pages
