#include <set>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

constexpr int kPeopleOfAPage = 100;

Json::Value PersonArgument(const Asked& asked) {
  Json::Value arguments = DomainArgument(asked);
  arguments["uid"] = asked.Number("uid");
  return arguments;
}

std::string PersonPath(const Asked& asked) {
  return DomainPath(asked, "/people/" + std::to_string(asked.Number("uid")));
}

// Names and numbers of accounts, as people write them; each must be one.
Json::Value Ids(const Asked& asked, const std::string& field, const std::string& call) {
  Json::Value ids(Json::arrayValue);
  std::set<std::string> seen;
  for (const std::string& line : asked.Lines(field)) {
    if (!seen.insert(line).second) {
      continue;
    }
    Json::Value arguments;
    arguments["text"] = line;
    const Json::Value found = asked.calls(call, arguments);
    if (found.isNull()) {
      Fail("not-found", Tr("There is no such account or group:"), line);
    }
    ids.append(found["id"]);
  }
  return ids;
}

// Whom alone the list shows, as arguments of the call and as parameters of the next page's link.
std::string Narrow(const Asked& asked, Json::Value& arguments, Json::Value& data) {
  std::string parameters;
  for (const char* box : {"collides", "drifts", "by_group", "own_role"}) {
    if (asked.Has(box)) {
      parameters += Parameter(box, "1");
      data["only"][box] = true;
    }
  }
  for (const char* flag : {"collides", "drifts"}) {
    arguments[flag] = asked.Has(flag);
  }
  if (asked.Has("by_group") || asked.Has("own_role")) {
    arguments["has_own_role"] = asked.Has("own_role");
  }
  if (asked.Has("gid")) {
    arguments["gid"] = asked.NumberOf("gid");
    data["gid"] = arguments["gid"];
    parameters += Parameter("gid", asked.Text("gid"));
  }
  return parameters;
}

}  // namespace

std::string NameOf(const Asked& asked, std::uint32_t id, const char* list) {
  Json::Value arguments;
  arguments["id"] = id;
  return asked.calls(list, arguments)["items"][0]["name"].asString();
}

Shown People(const Asked& asked) {
  Shown shown = OfDomain(asked, "people", "people");
  Json::Value arguments = DomainArgument(asked);
  arguments["text"] = asked.Text("text");
  arguments["page_size"] = kPeopleOfAPage;
  arguments["cursor"] = asked.Text("cursor");
  for (const char* column : {"name", "alias", "role"}) {
    const bool is_by = asked.Text("by") == column;
    shown.data["by"][column] = is_by;
    if (is_by) {
      arguments["by"] = column;
    }
  }
  const bool is_descending = asked.Has("descending");
  arguments["is_descending"] = is_descending;
  const std::string chosen = Narrow(asked, arguments, shown.data);
  shown.data["list"] = asked.calls("list_users", arguments);
  for (Json::Value& user : shown.data["list"]["items"]) {
    user["role"] = InWords(user["role"].asString());
  }
  shown.data["text"] = asked.Text("text");
  shown.data["descending"] = is_descending;
  shown.data["next"] = NextPage(shown.data["list"], Parameter("text", asked.Text("text")) +
                                                        Parameter("by", asked.Text("by")) + chosen +
                                                        (is_descending ? "&descending=1" : ""));
  return shown;
}

Shown AddPeoplePage(const Asked& asked) {
  return OfDomain(asked, "people_add", "people");
}

Change AddPeople(const Asked& asked) {
  Change change{"add_members", DomainArgument(asked), DomainPath(asked, "/people"),
                Tr("They are in the domain.")};
  change.arguments["uids"] = Ids(asked, "people", "find_account");
  change.arguments["gids"] = Ids(asked, "groups", "find_account_group");
  change.arguments["aliases"] = JsonOf(asked.Lines("aliases"));
  return change;
}

Shown PersonPage(const Asked& asked) {
  Shown shown = OfDomain(asked, "person", "people");
  shown.data["user"] = asked.calls("find_user", PersonArgument(asked));
  if (shown.data["user"].isNull()) {
    throw NotFound();
  }
  shown.data["user"]["role"] = InWords(shown.data["user"]["role"].asString());
  shown.data["made_from"] = MadeFrom(PersonNow(asked));
  // Accounts of a directory are named as "anna@example.com" or "EXAMPLE\\anna".
  const std::string name = shown.data["user"]["name"].asString();
  const std::string behind = name.substr(name.rfind('\\') + 1);
  shown.data["user"]["short_name"] = behind.substr(0, behind.find('@'));
  Json::Value who;
  who["uid"] = asked.Number("uid");
  shown.data["person"] = asked.calls("explain_user", who);
  for (Json::Value& address : shown.data["person"]["addresses"]) {
    const std::string owner = address["owner"].asString();
    address["is_of_other"] = !owner.empty() && owner != name;
  }
  return shown;
}

Json::Value PersonNow(const Asked& asked) {
  const Json::Value user = asked.calls("find_user", PersonArgument(asked));
  if (user.isNull()) {
    throw NotFound();
  }
  Json::Value now;
  Json::Value aliases(Json::arrayValue);
  for (const Json::Value& alias : user["aliases"]) {
    aliases.append(alias["local_part"]);
  }
  now["aliases"] = TextOf(aliases);
  now["role"] = user["has_own_role"].asBool() ? user["role"].asString() : "none";
  now["version"] = user["version"];
  now["page"] = PersonPath(asked);
  return now;
}

Change SetPerson(const Asked& asked) {
  Change change{"set_user", PersonArgument(asked), PersonPath(asked), Tr("The change is saved.")};
  change.arguments["version"] = asked.Text("version");
  // An alias gives way to another one: so a collision is solved.
  for (const char* name : {"aliases", "add_aliases", "remove_aliases"}) {
    if (asked.Has(name)) {
      change.arguments[name] = JsonOf(asked.Lines(name));
    }
  }
  if (!asked.Text("role").empty()) {
    // Null is that of the groups.
    change.arguments["role"] =
        asked.Text("role") == "none" ? Json::Value() : Json::Value(asked.Text("role"));
  }
  return change;
}

Change RemovePerson(const Asked& asked) {
  Change change{"remove_users", DomainArgument(asked), DomainPath(asked, "/people"),
                Tr("The account is taken out of the domain.")};
  change.arguments["uids"].append(asked.Number("uid"));
  change.arguments["version"] = asked.Text("version");
  return change;
}

}  // namespace mdomain_web::pages
