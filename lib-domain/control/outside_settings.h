// What hangs on a domain's index outside the domain database, as a list: each kind can tell which
// indexes have some of it, and can remove it.
//
// A new domain, the deletion of a domain and the reconcile step use the same list, so what is added
// here is neither inherited nor left behind.
#ifndef LIB_DOMAIN_CONTROL_OUTSIDE_SETTINGS_H
#define LIB_DOMAIN_CONTROL_OUTSIDE_SETTINGS_H

#include <set>
#include <string>
#include <vector>

#include "lib-domain/control/policy_hooks.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

struct OutsideSetting {
  const char* name;  // plural, for messages
  // The file or folder in which they stand; that of a key store is named by its own log lines.
  std::string (*place)();
  // Adds the indexes from 1 up that are asked about and have some. Reads only. False with a log
  // line.
  bool (*list)(const IndexFilter& is_asked, std::set<int>& domain_idxs);
  // Removes those of an index. False when some may be left; the reason is logged where it fails.
  bool (*clear)(int domain_idx);
  // Somebody decided on it; otherwise each domain is given it when it is created.
  bool is_made_by_hand;

  // Removes those of all these indexes; each that fails is one log line that names it, the index
  // and the place.
  bool Clear(const std::set<int>& domain_idxs) const;
};

const std::vector<OutsideSetting>& OutsideSettings();

// The number behind the prefix; -1 when the text is something else. What follows a "." is left out.
int IndexBehind(const std::string& prefix, const std::string& text);

// Removes whatever stands under the index, and what is recorded about it. Every kind is tried; each
// that fails or cannot be told is one log line. Costs a look at each kind when there is nothing.
bool ClearIndex(int domain_idx);
// The same for the index of a domain that is about to be created. The first domain of a model keeps
// what stands there when it bears the name of the published main domain: it is that domain, whose
// older settings or whose lost model are being replaced. True also without a settings database, by
// which the creation fails later, if nothing is on record for the index.
bool ClearNewIndex(int domain_idx, const std::string& domain_name, bool is_first);

// Adds what stands under the index, each as "BCC rules (PATH)"; nothing where it belongs to another
// model's domains. False with a log line when it cannot be told.
MDOMAIN_EXPORT bool ListUnderIndex(int domain_idx, std::vector<std::string>& kinds);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_OUTSIDE_SETTINGS_H
