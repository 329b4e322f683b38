// The rules are those of the preview: an alias that is no local part gives way to the account name,
// and a user for whom that is none either gets no address.
#include "lib-domain/control/pattern_trial.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/user_choice.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"
#include "platform/include/eai.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

// Folded aliases with everybody who has one today or would get it, by uid.
using Claims = std::unordered_map<std::string, std::map<unsigned int, std::string>>;

bool ReadUsers(int domain_idx, std::vector<TriedAlias>& tried, Claims& claims) {
  const DB::ReadScope of_one_moment;
  std::vector<RECORD::DomainUser> users;
  std::vector<RECORD::DomainUser> holders;
  DB::DomainUser store;
  if (!store.List(domain_idx, users) || !store.ListHolders({domain_idx}, holders)) {
    LOG_ERROR("Failed to list the users of domain_id: [%d]", domain_idx);
    return false;
  }
  for (const RECORD::DomainUser& holder : holders) {
    for (const auto& pair : holder.GetAliasDuplicatedPairs()) {
      claims[BASE::ToLowerAscii(pair.first)].emplace(holder.GetUID(), holder.GetUserName());
    }
  }
  std::sort(users.begin(), users.end(),
            [](const auto& a, const auto& b) { return a.GetUID() < b.GetUID(); });
  for (RECORD::DomainUser& user : users) {
    tried.emplace_back();
    tried.back().user = std::move(user);
  }
  return true;
}

bool MakeAliases(const std::string& pattern, std::vector<TriedAlias>& tried) {
  std::vector<std::string> short_names;
  short_names.reserve(tried.size());
  for (const TriedAlias& one : tried) {
    short_names.push_back(TrimDomainName(one.user.GetUserName()));
  }
  std::map<std::string, std::string> aliases;
  std::map<std::string, std::string> missing;
  if (!UTILS::DefaultAliasGetter(pattern).GetAliasFromUserShortNames(short_names, aliases,
                                                                     missing)) {
    LOG_ERROR("Failed to GetAliasFromUserShortNames");
    return false;
  }
  for (size_t i = 0; i < tried.size(); ++i) {
    TriedAlias& one = tried[i];
    const auto token = missing.find(short_names[i]);
    if (token != missing.end()) {
      one.missing = "<" + token->second + ">";
    } else {
      one.made = aliases[short_names[i]];
      one.is_from_pattern = UTILS::IsAccountAliasValid(one.made);
    }
    one.alias =
        one.is_from_pattern ? one.made : KORV::POSTARA_SERVER::StripInvalidEaiChars(short_names[i]);
    if (!UTILS::IsAccountAliasValid(one.alias)) {
      one.alias.clear();
    }
  }
  return true;
}

}  // namespace

bool TryPattern(int domain_idx, const std::string& pattern, std::vector<TriedAlias>& tried) {
  Claims claims;
  EntryNames entries;
  std::vector<TriedAlias> all;
  if (!ReadUsers(domain_idx, all, claims) || !entries.Read() || !MakeAliases(pattern, all)) {
    return false;
  }
  for (const TriedAlias& one : all) {
    claims[BASE::ToLowerAscii(one.alias)].emplace(one.user.GetUID(), one.user.GetUserName());
  }
  for (TriedAlias& one : all) {
    if (!one.alias.empty()) {
      const auto& claimants = claims[BASE::ToLowerAscii(one.alias)];
      one.rivals = claimants.size() - 1;  // without the user
      for (auto it = claimants.begin();
           it != claimants.end() && one.rival_names.size() < kNamedRivals; ++it) {
        if (it->first != one.user.GetUID()) {
          one.rival_names.push_back(it->second);
        }
      }
      one.is_entry = entries.Has(domain_idx, one.alias);
    }
    tried.push_back(std::move(one));
  }
  return true;
}

// Whoever else has an alias does not matter here: a fifth of what TryPattern takes.
bool ListDrifting(int domain_idx, const std::string& pattern, std::vector<unsigned int>& uids) {
  std::vector<RECORD::DomainUser> users;
  if (!DB::INTERNAL::ListWithAliases(domain_idx, users)) {
    LOG_ERROR("Failed to list the users of domain_id: [%d]", domain_idx);
    return false;
  }
  std::vector<TriedAlias> tried(users.size());
  for (size_t i = 0; i < users.size(); ++i) {
    tried[i].user = std::move(users[i]);
  }
  if (!MakeAliases(pattern, tried)) {
    return false;
  }
  for (const TriedAlias& one : tried) {
    if (!HasTriedAlias(one)) {
      uids.push_back(one.user.GetUID());
    }
  }
  return true;
}

bool HasTriedAlias(const TriedAlias& tried) {
  const auto pairs = tried.user.GetAliasDuplicatedPairs();
  return tried.alias.empty() || std::any_of(pairs.begin(), pairs.end(), [&](const auto& pair) {
           return BASE::EqualsIgnoreCase(pair.first, tried.alias);
         });
}

std::string WhyNotByPattern(const TriedAlias& tried) {
  constexpr size_t kLongestLocalPart = 64;
  if (tried.is_from_pattern) {
    return "";
  }
  if (!tried.missing.empty()) {
    return "no value for " + tried.missing;
  }
  if (tried.made.empty()) {
    return "the pattern gives nothing";
  }
  return tried.made.size() > kLongestLocalPart
             ? "the pattern gives " + std::to_string(tried.made.size()) + " bytes, more than " +
                   std::to_string(kLongestLocalPart)
             : "\"" + tried.made + "\" is no local part";
}

// The text around the placeholders has to be allowed in a local part.
std::string WhyUselessPattern(const std::string& pattern) {
  std::string sample;
  size_t begin = 0;
  while (begin < pattern.size()) {
    const size_t open = pattern.find('<', begin);
    const size_t close = open == std::string::npos ? open : pattern.find('>', open);
    if (close == std::string::npos) {
      break;
    }
    const std::string token = pattern.substr(open + 1, close - open - 1);
    const std::string length = token.substr(0, token.find_first_not_of("0123456789"));
    int number = 0;
    if (!length.empty() && !BASE::ConvertToInt(length, number)) {
      return " asks for a value that is " + length + " bytes long, and there is none";
    }
    sample += pattern.substr(begin, open - begin) + "a";
    begin = close + 1;
  }
  sample += pattern.substr(begin);
  return begin == 0 || UTILS::IsAccountAliasValid(sample) ? ""
                                                          : " makes no local parts of addresses";
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
