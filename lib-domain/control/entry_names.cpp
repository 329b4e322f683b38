#include "lib-domain/control/entry_names.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/alias.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::CONTROL::INTERNAL {

using korvmailserver::FoldMapKey;

bool EntryNames::Read() {
  std::set<std::pair<int, std::string>> names;
  if (Alias(PATHS::AliasDb()).listNames(names) < 0) {
    LOG_ERROR("Failed to list the names of entries");
    return false;
  }
  for (const auto& [domain_idx, name] : names) {
    names_[domain_idx].insert(FoldMapKey(name));
  }
  return true;
}

bool EntryNames::Has(int domain_idx, const std::string& alias) const {
  const auto names = names_.find(domain_idx);
  return names != names_.end() && names->second.count(FoldMapKey(alias)) != 0;
}

void EntryNames::Flag(std::vector<RECORD::DomainUserAlias>& aliases) const {
  for (RECORD::DomainUserAlias& alias : aliases) {
    if (Has(alias.GetDomainIdx(), alias.GetAccountAlias())) {
      alias.SetIsDuplicated(true);
    }
  }
}

void EntryNames::Flag(RECORD::DomainUser& user) const {
  if (names_.count(user.GetDomainIdx()) == 0) {
    return;
  }
  auto pairs = user.GetAliasDuplicatedPairs();
  for (auto& [alias, is_duplicated] : pairs) {
    is_duplicated = is_duplicated || Has(user.GetDomainIdx(), alias);
  }
  user.SetAliasDuplicatedPairs(pairs);
}

bool EntryNames::AddHolders(std::vector<unsigned int>& uids) const {
  for (const auto& [domain_idx, names] : names_) {
    std::vector<std::string> aliases(names.begin(), names.end());
    std::vector<RECORD::DomainUser> holders;
    if (!AddSameAddresses(domain_idx, aliases) ||
        !DB::INTERNAL::ListHoldersOf(domain_idx, aliases, holders)) {
      return false;
    }
    for (const RECORD::DomainUser& holder : holders) {
      uids.push_back(holder.GetUID());
    }
  }
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return true;
}

bool AddSameAddresses(int domain_idx, std::vector<std::string>& aliases) {
  std::vector<std::string> others;
  if (!DB::INTERNAL::ListNonAsciiAliases(domain_idx, others)) {
    return false;
  }
  std::map<std::string, std::vector<std::string>> by_key;
  for (const std::string& other : others) {
    by_key[FoldMapKey(other)].push_back(other);
  }
  for (size_t i = 0, count = aliases.size(); i < count; ++i) {
    const std::string key = FoldMapKey(aliases[i]);
    if (key != BASE::ToLowerAscii(aliases[i])) {
      aliases.push_back(key);
    }
    const std::vector<std::string>& same = by_key[key];
    aliases.insert(aliases.end(), same.begin(), same.end());
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
