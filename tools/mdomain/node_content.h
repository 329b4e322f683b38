// What two copies of the published content, this machine's and the store's, have and lack.
#ifndef TOOLS_MDOMAIN_NODE_CONTENT_H
#define TOOLS_MDOMAIN_NODE_CONTENT_H

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

#include "platform/include/nodes.h"

namespace mdomain {

struct Content {
  korvmailserver::PublishedContent published;
  std::set<std::string> domains;  // main names
};

// kFailed, with nothing changed, when it cannot be read.
Content OwnContent();
Content StoreContent();

// The domains of this machine, of its model and of the list that it has.
std::set<std::string> OwnDomains();

// Names of domains, keys and published files. Keys and files that follow from the model are not
// among them.
struct Difference {
  std::vector<std::string> domains;
  std::vector<std::string> keys;
  std::vector<std::string> files;

  bool IsEmpty() const { return domains.empty() && keys.empty() && files.empty(); }
  // "domains a.example, b.example; keys k and 3 more".
  std::string Text() const;
  Json::Value Json() const;
};

// What `has` has and `lacks` does not.
Difference OnlyIn(const Content& has, const Content& lacks);
// Keys and files that both have, with another value or content.
Difference Different(const Content& one, const Content& other);
// One after the other.
Difference Joined(Difference one, const Difference& other);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_NODE_CONTENT_H
