// Changes as a person reads them: who gets or loses which address, which domain changes how.
#ifndef LIB_DOMAIN_HISTORY_PLAN_H
#define LIB_DOMAIN_HISTORY_PLAN_H

#include <json/value.h>

#include <string>

#include "lib-domain/history/model_changes.h"
#include "platform/include/export.h"

namespace MDOMAIN::HISTORY {

struct Plan {
  // Objects with "what" ("domain", "name", "primary", "account", "group", "member", "role",
  // "group_role", "alias", "taken_out", "entry", "entry_member", "copy", "mail_settings",
  // "setting", "disclaimers", "keys", "other"), "change" ("added", "removed", "changed"), "text"
  // (one sentence) and what the sentence names: "domain", "account", "group", "alias", "address",
  // "before", "after", ... Ordered by "what" as above.
  Json::Value entries = Json::Value(Json::arrayValue);
  std::string
      summary;  // "2 people get 3 addresses, 1 person loses 1 address"; empty without entries
};

// Names are those of the model in force, if there is one, and of the changed rows. What other rows
// decide, like an account's new owner, is read from the model as it is now. False with one log
// line.
MDOMAIN_EXPORT bool MakePlan(const Changes& changes, Plan& plan);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_PLAN_H
