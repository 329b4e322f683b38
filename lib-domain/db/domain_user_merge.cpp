// One user per domain out of one row per alias.
#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "lib-domain/db/domain_user.h"

#include "lib-domain/db/domain_user_internal.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

uint64_t KeyOf(const RECORD::DomainUser& user) {
  return (static_cast<uint64_t>(static_cast<uint32_t>(user.GetDomainIdx())) << 32) | user.GetUID();
}

}  // namespace

bool _CompareAliasDuplicatedPairByIsDuplicated(const std::pair<std::string, bool>& a,
                                               const std::pair<std::string, bool>& b) {
  return a.second && !b.second;
}

void _MergeDomainUsers(const std::vector<RECORD::DomainUser>& rows,
                       std::vector<RECORD::DomainUser>& users) {
  std::unordered_map<uint64_t, size_t> position_by_key;
  std::vector<std::vector<std::pair<std::string, bool>>> pairs_by_position;
  for (const RECORD::DomainUser& user : users) {
    position_by_key.emplace(KeyOf(user), pairs_by_position.size());
    pairs_by_position.push_back(user.GetAliasDuplicatedPairs());
  }
  for (const RECORD::DomainUser& row : rows) {
    const auto [found, is_new] = position_by_key.emplace(KeyOf(row), pairs_by_position.size());
    if (is_new) {
      users.push_back(row);
      pairs_by_position.emplace_back();
    }
    auto& pairs = pairs_by_position[found->second];
    for (auto& pair : row.GetAliasDuplicatedPairs()) {
      pairs.push_back(std::move(pair));
    }
  }
  for (size_t i = 0; i < users.size(); ++i) {
    std::stable_sort(pairs_by_position[i].begin(), pairs_by_position[i].end(),
                     _CompareAliasDuplicatedPairByIsDuplicated);
    users[i].SetAliasDuplicatedPairs(pairs_by_position[i]);
  }
}

}  // namespace MDOMAIN::DB::INTERNAL
