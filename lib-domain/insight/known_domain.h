// A domain by its names.
#ifndef LIB_DOMAIN_INSIGHT_KNOWN_DOMAIN_H
#define LIB_DOMAIN_INSIGHT_KNOWN_DOMAIN_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

struct KnownDomain {
  int idx;
  std::string name;
  bool is_primary;
  std::vector<std::string> additional_names;  // as stored

  bool HasName(const std::string& other) const;  // in either spelling
  // "2 (example.org)", for messages.
  MDOMAIN_EXPORT std::string Title() const;
};

// Every domain, the primary one first. No user is counted for it.
MDOMAIN_EXPORT std::vector<KnownDomain> ListKnownDomains();

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_KNOWN_DOMAIN_H
