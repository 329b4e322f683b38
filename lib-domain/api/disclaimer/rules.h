// The rules of disclaimers with the users and groups that they name: which tests they become.
#ifndef LIB_DOMAIN_API_DISCLAIMER_RULES_H
#define LIB_DOMAIN_API_DISCLAIMER_RULES_H

#include <json/value.h>

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/api/disclaimer/condition.h"

namespace MDOMAIN::API::INTERNAL {

using AliasesByUid = std::unordered_map<unsigned int, std::vector<std::string>>;

// A domain's disclaimers as they are stored.
struct DomainRules {
  int domain_idx;
  Json::Value list;
};

// Users, groups and aliases as the rules of all domains need them: the users of every domain that
// has such a rule are read at once, each group's members once.
class DisclaimerMembers {
 public:
  // False, with a log line, when the users cannot be read.
  bool Load(const std::vector<DomainRules>& domains);
  // The aliases of a user of the domain; null for anyone else.
  const std::vector<std::string>* AliasesOf(int domain_idx, unsigned int uid) const;
  // The uids of the group's members; null when they cannot be read.
  const std::vector<unsigned int>* MembersOf(unsigned int gid);

 private:
  std::map<int, AliasesByUid> aliases_;
  std::unordered_map<unsigned int, std::vector<unsigned int>> uids_by_gid_;
};

enum class RuleOutcome {
  kBuilt,
  kLeftOut,  // its user or group is gone, or it cannot be written as a test
  kUnknown,  // whether its user or group exists, or who is in it, cannot be told now
};

// Builds the tests of one domain's rules; what the tests of "gid" rules look up goes into
// `gid_username_map`. Both references must outlive the builder.
class RuleBuilder {
 public:
  RuleBuilder(int domain_idx, DisclaimerMembers& members, Json::Value& gid_username_map)
      : domain_idx_(domain_idx), members_(members), gid_username_map_(gid_username_map) {}

  // Fills in "test", "target" and "globs", "aliases" or "gid". Any outcome but kBuilt has a log
  // line that says why.
  RuleOutcome Build(const Json::Value& rule, Json::Value& built);

 private:
  RuleOutcome BuildUser(RuleTarget target, unsigned int uid, Json::Value& built);
  RuleOutcome BuildGroup(RuleTarget target, unsigned int gid, Json::Value& built);
  bool ListAliases(unsigned int uid, std::vector<std::string>& aliases);
  bool AddMembers(unsigned int gid);

  int domain_idx_;
  DisclaimerMembers& members_;
  Json::Value& gid_username_map_;
  AliasesByUid aliases_without_role_;
  std::set<unsigned int> done_gids_;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_RULES_H
