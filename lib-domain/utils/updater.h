// Keeping the mirror in step with the account system, adding accounts automatically, publishing.
//
// The mirror (user_table, group_table and their memberships) is written only here and where users
// and groups are added to a domain. The main safety rule: an answer of the account system that was
// cut short may add and update, but never delete.
#ifndef LIB_DOMAIN_UTILS_UPDATER_H
#define LIB_DOMAIN_UTILS_UPDATER_H

#include <map>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {
class Domain;
}

namespace MDOMAIN::DB::INTERNAL {
class ModelImage;
}

namespace MDOMAIN::UTILS {

namespace INTERNAL {
struct RefreshCounts;
}
class Updater10;

// How many of the mirrored accounts one refresh may delete; users and groups count apart.
struct DeletionLimit {
  size_t number = 0;   // accounts; 0: any number
  size_t percent = 0;  // of the mirrored accounts, but always five of them; 0: any share
};

// A user of a known uid whom the account system calls otherwise now. It is the same account, or
// another person who got the uid: both look alike.
struct RenamedUser {
  unsigned int uid = 0;
  std::string old_name;
  std::string name;
  std::vector<RECORD::DomainUser> keeps;  // role (empty: none) and aliases, by domain
};

// One reason why a refresh failed.
struct RefreshFailure {
  int domain_idx;      // 0: it has nothing to do with one domain
  std::string reason;  // "the users of the account system could not be read"
};

// What one Refresh found and did, for the programs that report it. A refresh that failed leaves
// what it had found by then.
struct MDOMAIN_LAYOUT(v1_1) RefreshSummary {
  bool users_complete = false;   // the account system handed out every user that it holds
  bool groups_complete = false;  // and every group
  size_t users = 0;              // accounts obtained
  size_t groups = 0;
  std::vector<std::string> new_users;  // account names, in the account system's order
  std::vector<std::string> new_groups;
  std::vector<unsigned int> deleted_uids;  // in mirror order; none where the answer was cut short
  std::vector<unsigned int> deleted_gids;
  std::vector<RenamedUser> renamed_users;
  std::vector<std::string> spared_users;  // gone, and not deleted because they are above the limit
  std::vector<std::string> spared_groups;

  bool users_written = false;         // the mirror has what was found
  bool groups_written = false;        // the same of groups
  std::map<int, size_t> added_users;  // by domain index: who got an address
  std::map<int, size_t> added_groups;
  // Account names by domain index: neither the pattern nor the account name gave a local part.
  std::map<int, std::vector<std::string>> without_address;
  std::vector<RefreshFailure> failures;
  std::map<int, std::string> domain_names;  // by index, for what is said above
};

// Use one object for one run: it keeps the accounts that Refresh found to be new for the steps that
// add them to domains. Every operation is true on success; a failure is one error line
// at each level that gives up, and leaves the steps done before it in place.
class MDOMAIN_EXPORT MDOMAIN_LAYOUT(v1_1) Updater {
 public:
  // Brings the mirror up to date (create, then update, then delete), rebuilds the memberships of
  // all groups, flags duplicated aliases anew, adds what is new to the domains that add accounts
  // automatically, and drops auto-added roles that a group gives as well. Publishes nothing:
  // Trigger does that.
  //
  // The account system is asked once, at one point in time, and the database is written in one
  // transaction, which is also committed when a step fails. Accounts that could not be added to a
  // domain are remembered with it, and the next run adds them. A domain that fails, because of its
  // alias pattern say, does not keep the others from being filled; the result is false then.
  //
  // Where accounts are files and neither they nor the model changed since a refresh that found
  // nothing to do, nothing is read: the result and its summary are those of that refresh.
  bool Refresh();

  // Above the limit nobody is deleted, as after an answer that was cut short; the refresh is true
  // nevertheless, and its summary names who was spared. None until it is set.
  void SetDeletionLimit(const DeletionLimit& limit) { deletion_limit_ = limit; }

  // Publishes where the domain database lies and all domain data: "virtual_multiple_domain",
  // "smtp_main_domain" and one "additional_domain-N" per domain; keys of domains that are gone are
  // removed. In a key store that several machines share also every other file that they need
  // (PublishNodeFiles). Values that are published already are not written again. True, with a
  // warning and nothing published, when the key store would not keep it. Which model file the
  // domains came from is remembered under the key "mdomain_model". A model that other processes
  // change meanwhile is published again. After four times they wait for the fifth; the call is
  // false when this process may not write the model, or waits too long to do so.
  //
  // A model without domains empties nothing: when domains are published, or the older settings name
  // a main domain, everything stays as it is published and the call is false, with one line that
  // names the model file. Unless the last domain of this model was deleted, or the caller allows
  // it.
  bool Trigger();

  // Whether the last Trigger of this object published.
  bool IsPublished() const { return is_published_; }

  // Whether Trigger may replace published domains by none. Not allowed until it is set.
  void AllowEmptyPublication(bool allowed) { empty_publication_allowed_ = allowed; }

  // Creates the first domain from the older single-domain settings: named "smtp_main_domain",
  // primary, with the further names of those settings and every group of the account system; then
  // refreshes. Further names that are taken already are skipped. True and nothing done when there
  // is a domain already, or when the setting is empty or "localdomain". Throws LogException 3002 or
  // 3003 when the name cannot be a domain's. A failure after the domain was created leaves it.
  bool InitDBIfNotExists();

  // Gives an address in each domain to the mirrored users who are new in this run, remembered by an
  // earlier one, or members of a group of the domain, unless they are users of the domain already
  // or were removed from it. Those who are members of no group get the role "normal", marked as
  // added automatically.
  bool AutoAddNewUsers(const std::vector<int>& domain_idxs);

  // Deletes auto-added roles of users who belong to a group of that domain: their role comes from
  // the group from now on. Domains without groups keep all roles.
  bool RemoveUnnecessaryAutoAddedUserRole();

  // What the last Refresh of this object found.
  const RefreshSummary& GetSummary() const { return summary_; }

 private:
  friend class Updater10;

  // Accounts of several account domains may share a short name, and so may an account that was
  // created again under another id while the old one has not been deleted.
  using UsersByShortName = std::vector<std::pair<std::string, RECORD::User>>;  // ascending

  bool _ReportUnchanged(const INTERNAL::RefreshCounts& counts);
  void _NameDomains();
  bool _IsModelSettled() const;
  bool _RefreshAll();
  bool _RefreshSteps();
  bool _RefreshUsers();
  bool _RefreshGroups();
  bool _UpdateDomainUsersGroups();
  bool _MendUsers(DB::INTERNAL::ModelImage& image);
  bool _ListUnfinished();
  bool _RememberUnfinished(bool is_unfinished_known);
  // Of one domain, ascending.
  struct Standing {
    std::vector<unsigned int> covered;  // members of its groups
    std::vector<unsigned int> present;  // have an address and a role
    std::vector<unsigned int> removed;
    bool is_read = false;
  };
  bool _AutoAddNewUsers(const std::vector<int>& domain_idxs, const DB::INTERNAL::ModelImage& image);
  bool _ReadStandings(const std::vector<int>& domain_idxs, const DB::INTERNAL::ModelImage& image,
                      std::map<int, Standing>& standings);
  bool _AutoAddNewUsersTo(int domain_idx, const Standing& standing,
                          const UsersByShortName& candidates);
  bool _GetCandidates(int domain_idx, const Standing& standing, std::vector<RECORD::User>& mirrored,
                      UsersByShortName& candidates);
  std::vector<unsigned int> _UsersToAdd(int domain_idx, bool is_domain_empty);
  bool _AutoAddNewGroups(const std::vector<int>& domain_idxs);
  bool _GroupsToAdd(int domain_idx, std::vector<RECORD::Group>& groups);
  bool _Fail(int domain_idx, const std::string& reason);
  bool _PublishNewest(const std::string& path, bool is_known, std::string version);
  bool _PublishModel(const std::string& path);
  bool _ToRedis();
  bool _SetKeysOneByOne(const std::vector<RECORD::Domain>& domains,
                        const std::vector<std::string>& entries, const std::string& primary_name);
  bool _DomainsToRedis(const std::vector<std::string>& entries);
  bool _PrimaryDomainToRedis(const std::string& name);
  bool _DomainAdditionalDomainsToRedis(int domain_idx);
  bool _RemoveUnusedRedisKey(const std::vector<std::string>& keep_keys);

  DeletionLimit deletion_limit_;
  std::unordered_set<unsigned int> new_uids_;
  std::vector<RECORD::Group> new_groups_;
  // By domain, what earlier runs could not finish; the domains where this one did.
  std::map<int, std::set<unsigned int>> unfinished_uids_;
  std::map<int, std::set<unsigned int>> unfinished_gids_;
  std::unordered_set<int> domains_with_users_;
  std::unordered_set<int> domains_with_groups_;
  RefreshSummary summary_;
  size_t mirrored_users_ = 0;  // before the refresh
  size_t mirrored_groups_ = 0;
  bool empty_publication_allowed_ = false;
  bool is_published_ = false;
  bool has_candidates_ = false;  // for an address, whether or not they got one
  std::string settings_owner_;   // model file whose domains the settings outside belong to
};

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_UPDATER_H
