#include <utility>

#include "web/pages/pages.h"

namespace mdomain_web::pages {

// Who administers nothing sees himself.
Shown Home(const Asked& asked) {
  Shown shown{"domains"};
  shown.data["domains"] = asked.calls("domains");
  if (shown.data["domains"].empty() && !asked.person.is_host_administrator) {
    return GoTo("/own");
  }
  shown.data["domains"] = PartOf(asked, std::as_const(shown.data["domains"]), shown);
  return shown;
}

Shown Own(const Asked& asked) {
  Shown shown{"own"};
  Json::Value who;
  who["uid"] = asked.person.uid;
  Json::Value own = asked.calls("of", who);
  own["has_taken"] = !own["taken"].empty();
  own["has_copies"] = !own["copies"].empty();
  for (Json::Value& copy : own["copies"]) {
    copy["of_" + copy["of"].asString()] = true;
  }
  shown.data["own"] = own;
  return shown;
}

}  // namespace mdomain_web::pages
