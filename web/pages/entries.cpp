#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

Json::Value EntryArgument(const Asked& asked, const std::string& name) {
  Json::Value arguments = DomainArgument(asked);
  arguments["name"] = name;
  return arguments;
}

Change OfEntry(const Asked& asked, const std::string& call, const std::string& name,
               const std::string& done) {
  Change change{call, EntryArgument(asked, name), DomainPath(asked, "/entries"), done};
  for (const char* kind : {"users", "groups", "addresses"}) {
    change.arguments[kind] = JsonOf(asked.Lines(kind));
  }
  return change;
}

}  // namespace

Shown Entries(const Asked& asked) {
  Shown shown = OfDomain(asked, "entries", "entries");
  shown.data["entries"] = PartOf(asked, asked.calls("entries", DomainArgument(asked)), shown);
  for (Json::Value& entry : shown.data["entries"]) {
    entry["in_path"] = Encoded(entry["name"].asString());
  }
  // The form of a new one is that of an entry without members.
  for (const char* kind : {"users", "groups", "addresses"}) {
    shown.data["entry"][kind] = Json::arrayValue;
  }
  return shown;
}

Shown EntryPage(const Asked& asked) {
  Shown shown = OfDomain(asked, "entry", "entries");
  shown.data["entry"] = asked.calls("find_entry", EntryArgument(asked, asked.at.at("name")));
  if (shown.data["entry"].isNull()) {
    throw NotFound();
  }
  shown.data["entry"]["in_path"] = Encoded(asked.at.at("name"));
  shown.data["made_from"] = MadeFrom(EntryNow(asked));
  return shown;
}

Json::Value EntryNow(const Asked& asked) {
  const Json::Value entry = asked.calls("find_entry", EntryArgument(asked, asked.at.at("name")));
  Json::Value now;
  for (const char* kind : {"users", "groups", "addresses"}) {
    now[kind] = TextOf(entry[kind]);
  }
  if (entry.isNull()) {
    now["page"] = now["anew"] = DomainPath(asked, "/entries");
    return now;
  }
  now["version"] = entry["version"];
  now["page"] = DomainPath(asked, "/entries/" + Encoded(asked.at.at("name")));
  return now;
}

Change CreateEntry(const Asked& asked) {
  return OfEntry(asked, "create_entry", asked.Text("name"), Tr("The address is created."));
}

Change SetEntry(const Asked& asked) {
  Change change = OfEntry(asked, "set_entry", asked.at.at("name"), Tr("The change is saved."));
  change.arguments["version"] = asked.Text("version");
  return change;
}

Change DeleteEntry(const Asked& asked) {
  Change change{"delete_entry", EntryArgument(asked, asked.at.at("name")),
                DomainPath(asked, "/entries"), Tr("The address is deleted.")};
  change.arguments["version"] = asked.Text("version");
  return change;
}

}  // namespace mdomain_web::pages
