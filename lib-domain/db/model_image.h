// The ids of all tables about users of domains, read once: which pass of a refresh has nothing to
// do.
//
// It never says so where the pass would change a row or fail: what is odd (a number that is no id,
// a table that cannot be read) makes an image that knows nothing, and the passes run as they stand.
// It is of the moment when it was read: whoever writes after that asks it no more, but for what the
// rows written do not touch.
#ifndef LIB_DOMAIN_DB_MODEL_IMAGE_H
#define LIB_DOMAIN_DB_MODEL_IMAGE_H

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "lib-domain/db/mirror_batch.h"

namespace MDOMAIN::DB::INTERNAL {

using Uids = std::vector<unsigned int>;  // here ascending, each once

class ModelImage {
 public:
  // Logs nothing: a table that cannot be read is reported by the pass that reads it.
  static ModelImage Read();
  ModelImage(ModelImage&& other) = default;
  ModelImage& operator=(ModelImage&& other) = default;

  // Whether it knows anything; everything else is asked only then.
  bool IsKnown() const { return is_known_; }

  // The users (of any domain) whose aliases may get other flags: those with an alias that is
  // flagged, or that stands twice in its domain, ASCII case ignored. A few too many, never one too
  // few.
  const Uids& UidsWithFlagsInQuestion() const { return in_question_; }
  // How many (domain, user) have aliases.
  size_t CountOfHolders() const { return holders_.size(); }
  // Whether anybody has aliases in a domain and no role there.
  bool HasUsersWithoutRole() const;
  // Whether a role that was given automatically is one that a group gives as well.
  bool HasRolesThatGroupsGive() const;
  // Who is a member of at least one group of the domain, taken out of it or not.
  const Uids& MembersOfGroups(int domain_idx) const;
  // Who has aliases and a role in the domain.
  Uids UsersOf(int domain_idx) const;
  // Who was taken out of a group of the domain.
  Uids RemovedFrom(int domain_idx) const;

 private:
  ModelImage() = default;

  // Domain and user as one number, which orders them.
  using Place = uint64_t;
  struct OwnRole {
    Place place;
    bool has_role;
    bool may_be_auto_added;
  };
  struct DomainGroup {
    unsigned int gid;
    bool has_role;
    bool is_listed;  // as one of the domain's
  };
  struct Removal {
    unsigned int gid;
    unsigned int uid;
    bool operator<(const Removal& other) const {
      return std::make_pair(gid, uid) < std::make_pair(other.gid, other.uid);
    }
  };

  bool _ReadAliases();
  bool _ReadRoles();
  bool _ReadGroups();
  bool _ReadDomainGroups();
  void _AppendMembers(unsigned int gid, Uids& uids) const;
  const Uids& _WorkOutMembers(int domain_idx) const;
  std::optional<Uids> _WorkOutReached(int domain_idx) const;
  const Uids& _UsersOfGroupRoles(int domain_idx) const;
  template <typename Use>
  void _WalkHolders(Place first, const Use& use) const;

  bool is_known_ = false;
  std::vector<Place> holders_;
  Uids in_question_;
  std::vector<OwnRole> own_roles_;
  std::map<int, std::vector<DomainGroup>> groups_;
  std::map<int, std::vector<Removal>> removals_;
  std::unordered_map<unsigned int, bool> gids_;  // of the mirrored groups: whether it has a name
  Memberships members_;
  // Worked out when asked for; domains mostly have the same groups.
  mutable std::map<Uids, Uids> members_by_gids_;
  mutable std::map<int, const Uids*> members_of_groups_;
  mutable std::map<int, std::optional<Uids>> reached_;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_MODEL_IMAGE_H
