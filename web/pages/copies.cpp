#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

namespace {

Change OfCopy(const Asked& asked, const std::string& call, const std::string& done) {
  Change change{call, DomainArgument(asked), DomainPath(asked, "/copies"), done};
  Json::Value copy;
  for (const char* name : {"of", "name", "to"}) {
    copy[name] = asked.Text(name);
  }
  change.arguments["copies"].append(copy);
  return change;
}

}  // namespace

Shown Copies(const Asked& asked) {
  Shown shown = OfDomain(asked, "copies", "copies");
  shown.data["copies"] = PartOf(asked, asked.calls("copies", DomainArgument(asked)), shown);
  for (Json::Value& copy : shown.data["copies"]) {
    copy["of_" + copy["of"].asString()] = true;
  }
  return shown;
}

Change AddCopy(const Asked& asked) {
  return OfCopy(asked, "add_copies", Tr("The copy is added."));
}

Change RemoveCopy(const Asked& asked) {
  return OfCopy(asked, "remove_copies", Tr("The copy is removed."));
}

}  // namespace mdomain_web::pages
