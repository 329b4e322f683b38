// The text of one map: every key once, with the destination of the first rule for it.
//
// The mail transfer agent takes one address per key: several on a line would be read as one address
// that does not exist. So later rules for the same key are left out and reported.
#ifndef LIB_DOMAIN_API_BCC_MAP_TEXT_H
#define LIB_DOMAIN_API_BCC_MAP_TEXT_H

#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "lib-domain/api/bcc.h"
#include "platform/include/export.h"

namespace MDOMAIN::API::INTERNAL {

struct LeftOut {
  std::string key;  // the key that the rule does not get; empty when it has none
  std::string rule;
  std::string destination;
  std::string reason;
};

class MDOMAIN_EXPORT MapText {
 public:
  void Add(const BccMapEntry& entry);

  const std::string& text() const { return text_; }
  size_t size() const { return rules_by_key_.size(); }
  // In the order in which they came, each rule once for each reason.
  const std::vector<LeftOut>& left_out() const { return left_out_; }
  // Rules, by name, whose destination is an address of a domain of ours that nobody has.
  const std::set<std::pair<std::string, std::string>>& unknown_destinations() const {
    return unknown_destinations_;
  }

 private:
  struct Owner {
    const BccInfo* rule;  // only compared: the rule is gone before the map is
    std::string name;
    std::string value;
  };

  void AddAccount(const BccMapEntry& entry);
  void Put(const std::string& key, const BccMapEntry& entry);
  void LeaveOut(const std::string& key, const BccMapEntry& entry, const std::string& reason);

  std::string text_;
  std::unordered_map<std::string, Owner> rules_by_key_;  // by folded key
  std::vector<LeftOut> left_out_;
  std::set<std::pair<std::string, std::string>> unknown_destinations_;
  std::set<std::pair<const BccInfo*, std::string>> reported_;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_MAP_TEXT_H
