// Keeping the mirror in step with the account system, adding accounts automatically, publishing.
#ifndef LIB_DOMAIN_UTILS_UPDATER_H
#define LIB_DOMAIN_UTILS_UPDATER_H

#include <string>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/group.h"

namespace MDOMAIN::UTILS {

// What one Refresh found and did, for the programs that report it.
struct RefreshSummary {
  bool users_complete = false;
  bool groups_complete = false;
  size_t users = 0;  // accounts obtained
  size_t groups = 0;
  std::vector<std::string> new_users;
  std::vector<std::string> new_groups;
  std::vector<unsigned int> deleted_uids;
  std::vector<unsigned int> deleted_gids;
};

class Updater {
 public:
  bool Refresh();
  bool Trigger();
  bool InitDBIfNotExists();
  bool AutoAddNewUsers(const std::vector<int>& domain_idxs);
  bool RemoveUnnecessaryAutoAddedUserRole();
  const RefreshSummary& GetSummary() const { return summary_; }

 private:
  bool _RefreshUsers();
  bool _RefreshGroups();
  bool _UpdateDomainUsersGroups();
  bool _AutoAddNewUsers(const std::vector<int>& domain_idxs);
  bool _AutoAddNewGroups(const std::vector<int>& domain_idxs);
  bool _ToRedis();
  bool _DomainsToRedis(const std::vector<std::string>& entries);
  bool _PrimaryDomainToRedis(const std::string& name);
  bool _DomainAdditionalDomainsToRedis(int domain_idx);
  bool _RemoveUnusedRedisKey(const std::vector<std::string>& keep_keys);

  std::unordered_set<unsigned int> new_uids_;
  std::vector<RECORD::Group> new_groups_;
  RefreshSummary summary_;
};

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_UPDATER_H
