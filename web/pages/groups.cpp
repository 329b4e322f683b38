#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

Change OfGroup(const Asked& asked, const std::string& call, const std::string& done) {
  const std::string gid = std::to_string(asked.Number("gid"));
  return {call, DomainArgument(asked), DomainPath(asked, "/groups/" + gid), done};
}

// The role that the group gives in the domain of the page.
std::string RoleOf(const Asked& asked, const Json::Value& group) {
  for (const Json::Value& domain : group["domains"]) {
    if (domain["domain"]["idx"].asUInt() == asked.Number("domain")) {
      return domain["role"].asString();
    }
  }
  return "";
}

}  // namespace

Shown Groups(const Asked& asked) {
  Shown shown = OfDomain(asked, "groups", "groups");
  Json::Value arguments = DomainArgument(asked);
  arguments["text"] = asked.Text("text");
  arguments["cursor"] = asked.Text("cursor");
  shown.data["list"] = asked.calls("list_groups", arguments);
  for (Json::Value& group : shown.data["list"]["items"]) {
    group["role"] = InWords(group["role"].asString());
  }
  shown.data["text"] = asked.Text("text");
  shown.data["next"] = NextPage(shown.data["list"], Parameter("text", asked.Text("text")));
  return shown;
}

Shown GroupPage(const Asked& asked) {
  Shown shown = OfDomain(asked, "group", "groups");
  Json::Value arguments = DomainArgument(asked);
  arguments["gid"] = asked.Number("gid");
  shown.data["members"] = PartOf(asked, asked.calls("group_members", arguments), shown);
  for (Json::Value& member : shown.data["members"]) {
    member["has_address"] = member["status"].asString() == "has-address";
    member["status"] = InWords(member["status"].asString());
  }
  shown.data["gid"] = asked.Number("gid");
  Json::Value who;
  who["gid"] = asked.Number("gid");
  shown.data["group"] = asked.calls("explain_group", who);
  shown.data["is_administrator"] = RoleOf(asked, shown.data["group"]) == "domain_admin";
  return shown;
}

Change SetGroup(const Asked& asked) {
  Change change = OfGroup(asked, "set_group_role", Tr("The change is saved."));
  change.arguments["gids"].append(asked.Number("gid"));
  change.arguments["role"] = asked.Text("role");
  return change;
}

Change RemoveGroup(const Asked& asked) {
  Change change = OfGroup(asked, "remove_groups", Tr("The group is taken out of the domain."));
  change.arguments["gids"].append(asked.Number("gid"));
  change.go_to = DomainPath(asked, "/groups");
  return change;
}

Change RestoreMembers(const Asked& asked) {
  Change change = OfGroup(asked, "restore_members", Tr("They are in the domain again."));
  change.arguments["gid"] = asked.Number("gid");
  return change;
}

}  // namespace mdomain_web::pages
