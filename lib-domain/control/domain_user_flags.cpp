// Whoever has an alias that collides, with everybody who has one of theirs: nobody else's flags can
// be wrong.
#include "lib-domain/control/domain_user_flags.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/look_up.h"

namespace MDOMAIN::CONTROL::INTERNAL {

bool SettleFlags(std::vector<RECORD::DomainUser> users) {
  EntryNames entries;
  if (!users.empty() && !entries.Read()) {
    return false;
  }
  const std::vector<bool> changed = RecomputeFlags(users, entries);
  std::vector<RECORD::DomainUserAlias> aliases;
  std::vector<unsigned int> uids;
  for (size_t i = 0; i < users.size(); ++i) {
    if (changed[i]) {
      uids.push_back(users[i].GetUID());
      const std::vector<RECORD::DomainUserAlias> own = users[i].ExtractDomainUserAliases();
      aliases.insert(aliases.end(), own.begin(), own.end());
    }
  }
  if (!aliases.empty() && !DB::DomainUser().SetUsersAliases(aliases)) {
    LOG_ERROR("Failed to SetUsersAliases");
    return false;
  }
  // Whoever inherits an address that somebody else gave up, and whoever loses one.
  if (!Announce(uids)) {
    LOG_ERROR("Failed to NotifySMTPChangedUIDs");
  }
  return true;
}

bool ListAliasesOf(int domain_idx, const std::vector<unsigned int>& uids,
                   std::vector<RECORD::DomainUserAlias>& aliases) {
  std::vector<std::string> texts;
  if (!DB::INTERNAL::ListAliases(domain_idx, uids, texts)) {
    return false;
  }
  for (std::string& text : texts) {
    aliases.emplace_back(domain_idx, 0, std::move(text), false);
  }
  return true;
}

bool UpdateFlags(const std::vector<int>& domain_idxs,
                 const std::vector<RECORD::DomainUserAlias>& aliases) {
  DB::INTERNAL::HolderSearch search(domain_idxs);
  std::vector<RECORD::DomainUser> users;
  if (!search.AddFlagged() || !search.AddHolders(aliases) || !search.AddConnected() ||
      !search.List(users)) {
    LOG_ERROR("Failed to ListDomainUsersAliases");
    return false;
  }
  return SettleFlags(std::move(users));
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
