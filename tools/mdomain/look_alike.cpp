// Two texts look alike when they have one skeleton (Unicode Technical Standard 39, section 4),
// which ICU makes. Letter case counts for the eye (I and l) and not for the mail server, so each
// alias is known by its skeleton as written and by that of its small letters. ICU is loaded where a
// text is beyond ASCII.
#include "tools/mdomain/look_alike.h"

#include <algorithm>
#include <set>

#include "lib-domain/db/look_up.h"
#include "platform/include/text.h"
#include "tools/mdomain/alias_walk.h"
#include "tools/mdomain/ascii_skeleton.h"
#include "tools/mdomain/icu_library.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using korvmailserver::EqualsIgnoreAsciiCase;
using korvmailserver::ToLowerAscii;

// The text itself when ICU cannot answer: then only equal texts are alike.
std::string Skeleton(const std::string& text) {
  if (IsAscii(text)) {
    return AsciiSkeleton(text);
  }
  std::string why;
  if (!icu_library.Load(why)) {
    return text;
  }
  UErrorCode error = U_ZERO_ERROR;
  static USpoofChecker* const checker = uspoof_open(&error);  // for the life of the process
  std::string skeleton(text.size() * 8 + 64, '\0');
  const int32_t length =
      uspoof_getSkeletonUTF8(checker, 0, text.data(), static_cast<int32_t>(text.size()),
                             skeleton.data(), static_cast<int32_t>(skeleton.size()), &error);
  if (U_FAILURE(error) != 0 || static_cast<size_t>(length) > skeleton.size()) {
    return text;
  }
  skeleton.resize(static_cast<size_t>(length));
  return skeleton;
}

std::set<std::string> Skeletons(const std::string& alias) {
  return {Skeleton(alias), Skeleton(ToLowerAscii(alias))};
}

// Users with a role, those who have an alias that looks like one of these among them.
std::vector<MDOMAIN::RECORD::DomainUser> ListLookAlikes(int domain_idx,
                                                        const std::vector<std::string>& aliases) {
  constexpr size_t kMostWalked = 2000;
  if (aliases.size() > kMostWalked || !MDOMAIN::DB::INTERNAL::CanLookUp()) {
    MDOMAIN::DB::DomainDBFilter filter;
    filter.SetLimit(-1);
    return ListDomainUsers(domain_idx, filter);
  }
  std::set<std::string> skeletons;
  for (const std::string& alias : aliases) {
    skeletons.merge(Skeletons(alias));
  }
  std::vector<MDOMAIN::RECORD::DomainUser> users;
  if (!MDOMAIN::DB::INTERNAL::ListHoldersOf(domain_idx, AliasWalk(Skeleton, skeletons).Find(),
                                            users)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  users.erase(std::remove_if(users.begin(), users.end(),
                             [](const auto& user) { return user.GetRole().empty(); }),
              users.end());
  return users;
}

}  // namespace

LookAlikes::LookAlikes(int domain_idx, const std::vector<std::string>& aliases) {
  for (const auto& user : ListLookAlikes(domain_idx, aliases)) {
    for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
      for (const std::string& skeleton : Skeletons(alias)) {
        holders_.emplace(skeleton, Holder{user.GetUID(), user.GetUserName(), alias});
      }
    }
  }
}

void LookAlikes::Warn(Json::Value& user) const {
  user["warnings"] = Json::Value(Json::arrayValue);
  for (const Json::Value& entry : user["aliases"]) {
    const std::string alias = entry["alias"].asString();
    const Holder* holder = _Find(alias, user["uid"].asUInt());
    if (holder == nullptr) {
      continue;
    }
    const std::string warning =
        "alias \"" + alias + "\" looks like \"" + holder->alias + "\" of " + holder->name;
    user["warnings"].append(warning);
    Note("warning: " + warning);
  }
}

// Somebody else's alias that looks like this one; null too when the domain had this one already.
const LookAlikes::Holder* LookAlikes::_Find(const std::string& alias, unsigned int uid) const {
  const Holder* found = nullptr;
  for (const std::string& skeleton : Skeletons(alias)) {
    const auto [begin, end] = holders_.equal_range(skeleton);
    for (auto holder = begin; holder != end; ++holder) {
      if (EqualsIgnoreAsciiCase(holder->second.alias, alias)) {
        return nullptr;
      }
      found = holder->second.uid == uid ? found : &holder->second;
    }
  }
  return found;
}

}  // namespace mdomain
