// mdomain pattern: what an alias pattern gives the users of a domain.
#include "tools/mdomain/pattern.h"

#include "lib-domain/base/text.h"
#include "lib-domain/control/pattern_trial.h"
#include "lib-domain/record/domain.h"
#include "lib-domain/utils/domain_utils.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::CONTROL::INTERNAL::TriedAlias;

constexpr size_t kLongestLocalPart = 64;

// Refuses the length of a placeholder that no number holds.
void RequireReachable(const std::string& length, const std::string& pattern) {
  int number = 0;
  if (!length.empty() && !MDOMAIN::BASE::ConvertToInt(length, number)) {
    throw Failure(kRefused, "\"" + pattern + "\": no value is " + length + " bytes long");
  }
}

// Why the alias is not what the pattern made; empty when it is.
std::string Reason(const TriedAlias& tried) {
  if (tried.is_from_pattern) {
    return "";
  }
  if (!tried.missing.empty()) {
    return "no value for " + tried.missing;
  }
  if (tried.made.empty()) {
    return "the pattern gives nothing";
  }
  if (tried.made.size() > kLongestLocalPart) {
    return "the pattern gives " + Counted(tried.made.size(), "byte") + ", more than " +
           std::to_string(kLongestLocalPart);
  }
  return "\"" + tried.made + "\" is no local part";
}

Json::Value TriedJson(const TriedAlias& tried) {
  Json::Value record = AccountJson(tried.user.GetUID(), tried.user.GetUserName());
  record["alias"] = tried.alias;
  record["from"] = tried.is_from_pattern ? "pattern" : tried.alias.empty() ? "none" : "account";
  record["reason"] = Reason(tried);
  record["collision"]["users"] = static_cast<Json::UInt64>(tried.rivals);
  record["collision"]["names"] = JsonTexts(tried.rival_names);
  record["collision"]["entry"] = tried.is_entry;
  record["aliases"] = Json::Value(Json::arrayValue);
  for (const auto& pair : tried.user.GetAliasDuplicatedPairs()) {
    record["aliases"].append(pair.first);
  }
  return record;
}

std::string WriteCollision(const Json::Value& collision) {
  std::string text = collision["entry"].asBool() ? "an address with several members" : "";
  for (const Json::Value& name : collision["names"]) {
    text += (text.empty() ? "" : ", ") + name.asString();
  }
  const Json::UInt64 unnamed = collision["users"].asUInt64() - collision["names"].size();
  return unnamed == 0 ? text : text + " and " + std::to_string(unnamed) + " more";
}

struct Counts {
  size_t users = 0;
  size_t from_account = 0;
  size_t without_address = 0;
  size_t colliding = 0;

  void Add(const TriedAlias& tried) {
    ++users;
    from_account += !tried.is_from_pattern && !tried.alias.empty() ? 1 : 0;
    without_address += tried.alias.empty() ? 1 : 0;
    colliding += tried.Collides() ? 1 : 0;
  }
  std::string Sentence() const {
    return std::to_string(users - from_account - without_address) + " by the pattern, " +
           std::to_string(from_account) + " by the account name, " +
           std::to_string(without_address) + " without an address; " + std::to_string(colliding) +
           " colliding";
  }
};

std::vector<TriedAlias> Try(const KnownDomain& domain, const std::string& pattern) {
  std::vector<TriedAlias> tried;
  if (!MDOMAIN::CONTROL::INTERNAL::TryPattern(domain.idx, pattern, tried)) {
    throw Failure(kFailed, "the aliases for domain " + domain.Title() + " could not be made");
  }
  return tried;
}

void TryTyped(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::string pattern = call.Text("PATTERN");
  RequirePlainText("the pattern", pattern);
  RequireUsablePattern(pattern);
  if (!MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid(pattern)) {
    throw NoPattern(pattern);
  }
  Counts counts;
  Listing listing(call.out(), {{"uid", "UID"},
                               {"name", "NAME"},
                               {"alias", "ALIAS"},
                               {"collision", "COLLIDES WITH", WriteCollision},
                               {"reason", "WHY NOT BY THE PATTERN"}});
  for (const TriedAlias& tried : Try(domain, pattern)) {
    counts.Add(tried);
    listing.Add(TriedJson(tried));
  }
  listing.End();
  call.out().Line(Counted(counts.users, "user") + ": " + counts.Sentence());
}

void Drift(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::string pattern = DomainRecords({domain.idx}).front().GetDefaultAliasPattern();
  size_t users = 0;
  Counts drifted;
  Listing listing(call.out(), {{"uid", "UID"},
                               {"name", "NAME"},
                               {"aliases", "ALIASES"},
                               {"alias", "NOW BY THE PATTERN"},
                               {"collision", "COLLIDES WITH", WriteCollision},
                               {"reason", "WHY NOT BY THE PATTERN"}});
  for (const TriedAlias& tried : Try(domain, pattern)) {
    ++users;
    if (!MDOMAIN::CONTROL::INTERNAL::HasTriedAlias(tried)) {
      drifted.Add(tried);
      listing.Add(TriedJson(tried));
    }
  }
  listing.End();
  call.out().Line(std::to_string(drifted.users) + " of " + Counted(users, "user") +
                  " without what " + pattern + " gives now: " + drifted.Sentence());
}

const Register kPattern({
    "pattern",
    "What alias patterns give",
    {
        {"try",
         "Show what a pattern would give the users of a domain, without saving it",
         "Aliases that exist stay as they are when a pattern is saved; this shows what everybody "
         "would get who is added again. An account that has no value for a placeholder gets the "
         "account name, and so does one for which the pattern makes no local part. An alias "
         "collides with those of others, with what the pattern would give others, and with "
         "addresses that have several members; at most ten of the others are named.",
         Effect::kReads,
         {DomainArgument(), One("PATTERN", "Text with placeholders such as <a>, <1g>.<s>")},
         TryTyped},
        {"drift",
         "List the users of a domain who do not have what its own pattern gives now",
         "Because the pattern or the account changed since, or the alias was given by hand. "
         "Nobody is listed for whom neither pattern nor account name gives an alias.",
         Effect::kReads,
         {DomainArgument()},
         Drift},
    },
});

}  // namespace

Failure NoPattern(const std::string& pattern) {
  return {kRefused,
          "\"" + pattern + "\" is not an alias pattern: it needs a placeholder such as <a>"};
}

void RequireUsablePattern(const std::string& pattern) {
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
    RequireReachable(length, pattern);
    sample += pattern.substr(begin, open - begin) + "a";
    begin = close + 1;
  }
  sample += pattern.substr(begin);
  if (begin != 0 && !MDOMAIN::UTILS::IsAccountAliasValid(sample)) {
    throw Failure(kRefused, "\"" + pattern + "\" makes no local parts of addresses");
  }
}

}  // namespace mdomain
