// What names without a domain stand for in one domain: an alias entry, an account, or nothing.
#ifndef LIB_DOMAIN_API_BCC_LOCAL_PARTS_H
#define LIB_DOMAIN_API_BCC_LOCAL_PARTS_H

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace MDOMAIN::API::INTERNAL {

// Answers as GetBccToConfigValue does, for many names: the domain's aliases are read once, when the
// first name needs them.
class LocalPartFinder {
 public:
  LocalPartFinder(int domain_id, std::unordered_set<std::string> alias_entries)
      : domain_id_(domain_id), alias_entries_(std::move(alias_entries)) {}

  // The local parts under which mail reaches `name` in the domain: an alias entry's own name, an
  // account's aliases in stored order, or else the name itself. Null when they cannot be read.
  const std::vector<std::string>* LocalParts(const std::string& name);

 private:
  bool Load();
  std::vector<std::string> AccountAliases(const std::string& name) const;

  int domain_id_;
  std::unordered_set<std::string> alias_entries_;
  bool loaded_ = false;
  std::unordered_map<std::string, std::vector<std::string>> aliases_by_user_;
  std::unordered_map<std::string, std::vector<std::string>> known_;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_LOCAL_PARTS_H
