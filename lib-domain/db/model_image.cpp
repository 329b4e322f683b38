// Sorted lists of numbers in place of rows: a million aliases take some tens of megabytes, and what
// a pass looks for is found by walking two lists side by side.
#include "lib-domain/db/model_image.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <numeric>
#include <string_view>

#include "lib-domain/db/database.h"
#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

constexpr const char* kAliases =
    "SELECT domain_idx, uid, is_duplicated, account_alias FROM domain_user_alias_table";
constexpr const char* kOwnRoles =
    "SELECT domain_idx, uid, role IS NOT NULL, is_auto_added IS NOT 0 FROM domain_user_role_table";
constexpr const char* kDomainGroups =
    "SELECT domain_idx, gid, role IS NOT NULL, role FROM domain_group_role_table";
constexpr const char* kRemovals =
    "SELECT domain_idx, gid, uid FROM domain_group_removed_user_table";
constexpr const char* kGroups =
    "SELECT gid, group_name IS NOT NULL AND group_name <> '' FROM group_table";

constexpr int kUidBits = 32;

// Calls `use` with each row until it answers false; whether all were read and used.
template <typename Use>
bool ReadRows(const char* sql, const Use& use) {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  bool is_used = true;
  const auto use_row = [&](const Cells& row) { is_used = is_used && use(row); };
  return handler != nullptr && Database(handler, 0).TryForEachRow(Sql(sql), use_row) && is_used;
}

template <typename Value>
void SortOnce(std::vector<Value>& values) {
  if (!std::is_sorted(values.begin(), values.end())) {
    std::sort(values.begin(), values.end());
  }
  values.erase(std::unique(values.begin(), values.end()), values.end());
}

uint64_t PlaceOf(int domain_idx, unsigned int uid) {
  return static_cast<uint64_t>(domain_idx) << kUidBits | uid;
}
int DomainOf(uint64_t place) {
  return static_cast<int>(place >> kUidBits);
}
unsigned int UidOf(uint64_t place) {
  return static_cast<unsigned int>(place);
}

uint64_t Mix(uint64_t number) {
  number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31U);
}

// Equal for what is equal without ASCII case in one domain.
uint64_t HashOf(int domain_idx, std::string_view alias) {
  uint64_t hash = Mix(static_cast<uint64_t>(domain_idx) + 1);
  for (const char c : alias) {
    const auto byte = static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    hash = (hash ^ byte) * 0x100000001B3U;
  }
  return Mix(hash);
}

// As SortOnce, for many numbers that differ in a few of their bytes only.
template <typename Number>
void SortNumbersOnce(std::vector<Number>& numbers) {
  if (std::is_sorted(numbers.begin(), numbers.end())) {
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return;
  }
  constexpr unsigned kByteBits = 8;
  constexpr size_t kValues = 256;
  Number differing = 0;
  for (const Number number : numbers) {
    differing |= number ^ numbers.front();
  }
  std::vector<Number> sorted(numbers.size());
  for (unsigned shift = 0; shift < std::numeric_limits<Number>::digits; shift += kByteBits) {
    if ((differing >> shift) % kValues == 0) {
      continue;
    }
    std::array<size_t, kValues + 1> begins{};
    for (const Number number : numbers) {
      ++begins[(number >> shift) % kValues + 1];
    }
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    for (const Number number : numbers) {
      sorted[begins[(number >> shift) % kValues]++] = number;
    }
    numbers.swap(sorted);
  }
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
}

// A set of bits by hash, as many as keep those few apart that have no twin.
class BitSet {
 public:
  BitSet(size_t count, size_t bits_per_value) {
    while (words_.size() * kBits < count * bits_per_value) {
      words_.resize(words_.size() * 2);
    }
  }
  bool Has(uint64_t hash) const { return (words_[_WordOf(hash)] >> (hash % kBits) & 1U) != 0; }
  // Whether it was there before.
  bool Set(uint64_t hash) {
    const bool was_there = Has(hash);
    words_[_WordOf(hash)] |= uint64_t{1} << (hash % kBits);
    return was_there;
  }

 private:
  static constexpr size_t kBits = 64;
  size_t _WordOf(uint64_t hash) const { return hash / kBits & (words_.size() - 1); }
  std::vector<uint64_t> words_ = std::vector<uint64_t>(1);
};

// Calls `use(i)` for each hash that stands there more than once. A table of all
// would be ten times as large: bits tell which few may have a twin, and these are looked for.
template <typename Use>
void ForEachTwin(const std::vector<uint64_t>& hashes, const Use& use) {
  BitSet seen(hashes.size(), 16);
  std::vector<uint64_t> repeated;
  for (const uint64_t hash : hashes) {
    if (seen.Set(hash)) {
      repeated.push_back(hash);
    }
  }
  std::sort(repeated.begin(), repeated.end());
  BitSet suspected(repeated.size(), 64);
  for (const uint64_t hash : repeated) {
    suspected.Set(hash >> 32U);
  }
  std::vector<std::pair<uint64_t, size_t>> found;
  for (size_t i = 0; i < hashes.size(); ++i) {
    if (suspected.Has(hashes[i] >> 32U) &&
        std::binary_search(repeated.begin(), repeated.end(), hashes[i])) {
      found.emplace_back(hashes[i], i);
    }
  }
  std::sort(found.begin(), found.end());
  for (size_t i = 0; i < found.size(); ++i) {
    if ((i > 0 && found[i - 1].first == found[i].first) ||
        (i + 1 < found.size() && found[i + 1].first == found[i].first)) {
      use(found[i].second);
    }
  }
}

}  // namespace

ModelImage ModelImage::Read() {
  ModelImage image;
  image.is_known_ = image._ReadGroups() && image._ReadDomainGroups() && image._ReadRoles() &&
                    image._ReadAliases();
  return image;
}

bool ModelImage::_ReadAliases() {
  std::vector<uint64_t> hashes;
  const bool is_read = ReadRows(kAliases, [&](const Cells& row) {
    int domain_idx = 0;
    unsigned int uid = 0;
    if (!ReadPlainId(row, 0, domain_idx) || !ReadPlainId(row, 1, uid)) {
      return false;
    }
    if (!row.IsInteger(2) || row.Int64(2) != 0) {
      in_question_.push_back(uid);
    }
    hashes.push_back(HashOf(domain_idx, row.View(3)));
    holders_.push_back(PlaceOf(domain_idx, uid));
    return true;
  });
  // Two texts of one hash only look like equal ones, which costs a look at their users.
  ForEachTwin(hashes, [this](size_t alias) { in_question_.push_back(UidOf(holders_[alias])); });
  SortNumbersOnce(holders_);
  SortOnce(in_question_);
  return is_read;
}

bool ModelImage::_ReadRoles() {
  const bool is_read = ReadRows(kOwnRoles, [&](const Cells& row) {
    int domain_idx = 0;
    unsigned int uid = 0;
    const bool is_plain = ReadPlainId(row, 0, domain_idx) && ReadPlainId(row, 1, uid);
    own_roles_.push_back({PlaceOf(domain_idx, uid), row.Int64(2) != 0, row.Int64(3) != 0});
    return is_plain;
  });
  std::sort(own_roles_.begin(), own_roles_.end(),
            [](const OwnRole& a, const OwnRole& b) { return a.place < b.place; });
  return is_read;
}

bool ModelImage::_ReadGroups() {
  const auto keep = [this](const Cells& row) {
    unsigned int gid = 0;
    const bool is_plain = ReadPlainId(row, 0, gid);
    gids_[gid] = row.Int64(1) != 0;
    return is_plain;
  };
  return ReadRows(kGroups, keep) && TryListMemberships(members_);
}

// A group that is not mirrored gives a role, too, and is none of the domain's; nor is one without a
// name, or with a role that is none.
bool ModelImage::_ReadDomainGroups() {
  const bool is_read =
      ReadRows(kDomainGroups,
               [this](const Cells& row) {
                 int domain_idx = 0;
                 unsigned int gid = 0;
                 const bool is_plain = ReadPlainId(row, 0, domain_idx) && ReadPlainId(row, 1, gid);
                 const auto group = gids_.find(gid);
                 if (!is_plain || group == gids_.end()) {
                   return false;
                 }
                 groups_[domain_idx].push_back(
                     {gid, row.Int64(2) != 0, group->second && UTILS::CheckRoleValid(row.Text(3))});
                 return true;
               }) &&
      ReadRows(kRemovals, [this](const Cells& row) {
        int domain_idx = 0;
        Removal removal = {};
        const bool is_plain = ReadPlainId(row, 0, domain_idx) && ReadPlainId(row, 1, removal.gid) &&
                              ReadPlainId(row, 2, removal.uid);
        removals_[domain_idx].push_back(removal);
        return is_plain;
      });
  for (auto& [domain_idx, removals] : removals_) {
    std::sort(removals.begin(), removals.end());
  }
  return is_read;
}

void ModelImage::_AppendMembers(unsigned int gid, Uids& uids) const {
  for (auto member = std::lower_bound(members_.begin(), members_.end(), std::make_pair(gid, 0U));
       member != members_.end() && member->first == gid; ++member) {
    uids.push_back(member->second);
  }
}

const Uids& ModelImage::MembersOfGroups(int domain_idx) const {
  const auto [known, is_new] = members_of_groups_.try_emplace(domain_idx, nullptr);
  if (is_new) {
    known->second = &_WorkOutMembers(domain_idx);
  }
  return *known->second;
}

const Uids& ModelImage::_WorkOutMembers(int domain_idx) const {
  Uids gids;
  const auto groups = groups_.find(domain_idx);
  if (groups != groups_.end()) {
    for (const DomainGroup& group : groups->second) {
      if (group.is_listed) {
        gids.push_back(group.gid);
      }
    }
  }
  SortOnce(gids);
  const auto [members, is_new] = members_by_gids_.try_emplace(gids);
  if (is_new) {
    for (const unsigned int gid : gids) {
      _AppendMembers(gid, members->second);
    }
    SortNumbersOnce(members->second);
  }
  return members->second;
}

// Whom the roles of groups reach who have none of their own.
const Uids& ModelImage::_UsersOfGroupRoles(int domain_idx) const {
  const auto [known, is_new] = reached_.try_emplace(domain_idx);
  if (is_new) {
    known->second = _WorkOutReached(domain_idx);
  }
  return known->second ? *known->second : MembersOfGroups(domain_idx);
}

// Nothing where all members are reached.
std::optional<Uids> ModelImage::_WorkOutReached(int domain_idx) const {
  const auto groups = groups_.find(domain_idx);
  const auto removed = removals_.find(domain_idx);
  if (groups == groups_.end() ||
      (removed == removals_.end() &&
       std::all_of(groups->second.begin(), groups->second.end(),
                   [](const DomainGroup& group) { return group.has_role && group.is_listed; }))) {
    return std::nullopt;
  }
  const std::vector<Removal> none;
  const std::vector<Removal>& removals = removed == removals_.end() ? none : removed->second;
  Uids reached;
  for (const DomainGroup& group : groups->second) {
    Uids members;
    if (group.has_role) {
      _AppendMembers(group.gid, members);
    }
    std::copy_if(
        members.begin(), members.end(), std::back_inserter(reached), [&](unsigned int uid) {
          return !std::binary_search(removals.begin(), removals.end(), Removal{group.gid, uid});
        });
  }
  SortNumbersOnce(reached);
  return reached;
}

// Calls `use(place, has_role)` for whoever has aliases, from `first` on, until it answers false.
// Roles and holders are in one order.
template <typename Use>
void ModelImage::_WalkHolders(Place first, const Use& use) const {
  auto own = std::lower_bound(own_roles_.begin(), own_roles_.end(), first,
                              [](const OwnRole& role, Place place) { return role.place < place; });
  auto holder = std::lower_bound(holders_.begin(), holders_.end(), first);
  while (holder != holders_.end()) {
    const int domain_idx = DomainOf(*holder);
    const Uids& reached = _UsersOfGroupRoles(domain_idx);
    auto member = std::lower_bound(reached.begin(), reached.end(), UidOf(*holder));
    for (; holder != holders_.end() && DomainOf(*holder) == domain_idx; ++holder) {
      while (own != own_roles_.end() && own->place < *holder) {
        ++own;
      }
      while (member != reached.end() && *member < UidOf(*holder)) {
        ++member;
      }
      const bool has_role = own != own_roles_.end() && own->place == *holder
                                ? own->has_role
                                : member != reached.end() && *member == UidOf(*holder);
      if (!use(*holder, has_role)) {
        return;
      }
    }
  }
}

bool ModelImage::HasUsersWithoutRole() const {
  bool have_all = true;
  _WalkHolders(0, [&](Place /*holder*/, bool has_role) { return have_all = has_role; });
  return !have_all;
}

bool ModelImage::HasRolesThatGroupsGive() const {
  return std::any_of(own_roles_.begin(), own_roles_.end(), [this](const OwnRole& role) {
    if (!role.may_be_auto_added) {
      return false;
    }
    const Uids& covered = MembersOfGroups(DomainOf(role.place));
    return std::binary_search(covered.begin(), covered.end(), UidOf(role.place));
  });
}

Uids ModelImage::UsersOf(int domain_idx) const {
  Uids uids;
  _WalkHolders(PlaceOf(domain_idx, 0), [&](Place holder, bool has_role) {
    if (has_role && DomainOf(holder) == domain_idx) {
      uids.push_back(UidOf(holder));
    }
    return DomainOf(holder) == domain_idx;
  });
  return uids;
}

Uids ModelImage::RemovedFrom(int domain_idx) const {
  Uids uids;
  const auto removals = removals_.find(domain_idx);
  if (removals != removals_.end()) {
    for (const Removal& removal : removals->second) {
      uids.push_back(removal.uid);
    }
  }
  SortOnce(uids);
  return uids;
}

}  // namespace MDOMAIN::DB::INTERNAL
