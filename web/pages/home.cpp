#include "web/pages/pages.h"

namespace mdomain_web::pages {

// Who administers nothing sees himself.
Shown Home(const Asked& asked) {
  Shown shown{"domains"};
  shown.data["domains"] = asked.calls("domains");
  if (shown.data["domains"].empty() && !asked.person.is_host_administrator) {
    return GoTo("/own");
  }
  return shown;
}

Shown Own(const Asked& asked) {
  Shown shown{"own"};
  Json::Value who;
  who["uid"] = asked.person.uid;
  shown.data["own"] = asked.calls("of", who);
  return shown;
}

}  // namespace mdomain_web::pages
