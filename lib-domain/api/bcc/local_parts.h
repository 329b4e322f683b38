// What names without a domain stand for in one domain: an alias entry, an account, or nothing.
#ifndef LIB_DOMAIN_API_BCC_LOCAL_PARTS_H
#define LIB_DOMAIN_API_BCC_LOCAL_PARTS_H

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace MDOMAIN::API::INTERNAL {

// The addresses of a name, without their domain.
struct LocalParts {
  std::vector<std::string> parts;
  std::string reason;  // why there are none; empty when there are some
};

// Answers for many names: the domain's aliases are read once, when the first name needs them.
class LocalPartFinder {
 public:
  LocalPartFinder(int domain_id, std::unordered_set<std::string> alias_entries)
      : domain_id_(domain_id), alias_entries_(std::move(alias_entries)) {}

  // The local parts under which mail reaches `name` in the domain: an alias entry's own name, an
  // account's aliases that are not flagged in stored order, or else the name itself. Null when they
  // cannot be read.
  const LocalParts* Find(const std::string& name);

  // Whether an alias entry or an alias of a user makes `local_part`, ASCII case ignored, an address
  // of the domain. False when they cannot be read.
  bool HasAddress(const std::string& local_part, bool& has);

 private:
  bool Load();
  LocalParts PartsOf(const std::string& name) const;
  LocalParts PartsOfAccount(const std::string& account, const std::string& name) const;

  int domain_id_;
  std::unordered_set<std::string> alias_entries_;
  bool loaded_ = false;
  std::unordered_map<std::string, std::vector<std::string>> aliases_by_user_;
  std::unordered_map<std::string, std::vector<std::string>> users_by_folded_name_;
  std::unordered_set<std::string> addresses_;  // local parts in lower case
  std::unordered_map<std::string, LocalParts> known_;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_LOCAL_PARTS_H
