// Aliases that people would take for another one.
#ifndef TOOLS_MDOMAIN_LOOK_ALIKE_H
#define TOOLS_MDOMAIN_LOOK_ALIKE_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

namespace mdomain {

// The aliases of a domain as they are when the object is made: those that look like `aliases`.
class LookAlikes {
 public:
  LookAlikes(int domain_idx, const std::vector<std::string>& aliases);

  // For a user's record with "uid" and "aliases", which are among those given: sets "warnings" to a
  // sentence for each alias that the domain had not and that looks like one of somebody else there,
  // and says them on standard error.
  void Warn(Json::Value& user) const;

 private:
  struct Holder {
    unsigned int uid;
    std::string name;
    std::string alias;
  };

  const Holder* _Find(const std::string& alias, unsigned int uid) const;

  std::multimap<std::string, Holder> holders_;  // by what their aliases look like
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOOK_ALIKE_H
