// Aliases that several want: one of them owns it, as the rules say that every change and every
// refresh follow, and the others have it flagged. A collision is nothing wrong.
#include <algorithm>
#include <map>
#include <utility>

#include "lib-domain/base/sentence.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/insight/doctor.h"

namespace MDOMAIN::INSIGHT::INTERNAL {

namespace {

using CONTROL::INTERNAL::EntryNames;
using RECORD::DomainUser;

struct Wrong {
  std::string alias;                // as somebody has it
  std::vector<std::string> owners;  // who have it unflagged
  std::string owner;                // who should; empty where it is an entry's
};
using WrongAliases = std::map<std::pair<int, std::string>, Wrong>;  // domain, folded alias

// Everybody whose flags can be wrong, with all who have one of their aliases.
bool ReadSharers(const std::vector<int>& domain_idxs, EntryNames& entries,
                 std::vector<DomainUser>& users) {
  std::vector<std::pair<int, unsigned int>> sharers;
  std::vector<unsigned int> uids;
  const DB::ReadScope of_one_moment;
  if (!entries.Read() || !entries.AddHolders(uids) || !DB::INTERNAL::ListSharers(sharers)) {
    return false;
  }
  for (const int domain_idx : domain_idxs) {
    for (const unsigned int uid : uids) {
      sharers.emplace_back(domain_idx, uid);
    }
  }
  DB::INTERNAL::HolderSearch search(domain_idxs);
  return sharers.empty() || (search.AddUsers(sharers) && search.List(users));
}

WrongAliases FindWrong(const std::vector<DomainUser>& users, const EntryNames& entries) {
  WrongAliases wrong;
  std::vector<DomainUser> right = users;
  const std::vector<bool> is_changed = CONTROL::INTERNAL::RecomputeFlags(right, entries);
  const auto for_each_alias = [&](const auto& use) {
    for (size_t i = 0; i < users.size(); ++i) {
      const auto stored = users[i].GetAliasDuplicatedPairs();
      const auto wanted = right[i].GetAliasDuplicatedPairs();
      for (size_t pair = 0; pair < stored.size(); ++pair) {
        use(i, stored[pair], wanted[pair].second,
            std::pair(users[i].GetDomainIdx(), BASE::ToLowerAscii(stored[pair].first)));
      }
    }
  };
  for_each_alias([&](size_t i, const auto& stored, bool is_flagged, const auto& key) {
    if (is_changed[i] && stored.second != is_flagged) {
      wrong[key].alias = stored.first;
    }
  });
  for_each_alias([&](size_t i, const auto& stored, bool is_flagged, const auto& key) {
    const auto found = wrong.find(key);
    if (found == wrong.end()) {
      return;
    }
    if (!stored.second) {
      found->second.owners.push_back(users[i].GetUserName());
    }
    if (!is_flagged) {
      found->second.owner = users[i].GetUserName();
    }
  });
  return wrong;
}

std::string TextOf(Wrong wrong) {
  std::sort(wrong.owners.begin(), wrong.owners.end());
  const std::string now = wrong.owners.empty() ? " is flagged for everybody who has it"
                          : wrong.owners.size() == 1
                              ? " is " + wrong.owners.front() + "'s"
                              : " is that of " + std::to_string(wrong.owners.size()) +
                                    " people at once: " + BASE::FirstOf(wrong.owners);
  return now + (wrong.owner.empty() ? ", and an address with several members"
                                    : "; by the rules it is " + wrong.owner + "'s");
}

}  // namespace

void CheckFlags(const std::vector<KnownDomain>& domains, Findings& findings) {
  std::map<int, std::string> names;
  std::vector<int> idxs;
  for (const KnownDomain& domain : domains) {
    idxs.push_back(domain.idx);
    names[domain.idx] = domain.name;
  }
  EntryNames entries;
  std::vector<DomainUser> users;
  if (!ReadSharers(idxs, entries, users)) {
    findings.push_back(
        {"flags", true, "whose the colliding aliases are cannot be told", "look at the messages"});
    return;
  }
  size_t told = 0;
  const WrongAliases all = FindWrong(users, entries);
  for (const auto& [key, wrong] : all) {
    if (told++ == BASE::kFirst) {
      findings.push_back({"flags", true,
                          "so are " + std::to_string(all.size() - BASE::kFirst) + " more aliases",
                          "mdomain refresh"});
      break;
    }
    findings.push_back({"flags", true, wrong.alias + "@" + names[key.first] + TextOf(wrong),
                        "mdomain refresh", key.first});
  }
}

}  // namespace MDOMAIN::INSIGHT::INTERNAL
