// mdomain pattern: what an alias pattern gives the users of a domain.
#include "tools/mdomain/pattern.h"

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
using MDOMAIN::CONTROL::INTERNAL::TriedCounts;

Json::Value TriedJson(const TriedAlias& tried) {
  Json::Value record = AccountJson(tried.user.GetUID(), tried.user.GetUserName());
  record["alias"] = tried.alias;
  record["from"] = tried.is_from_pattern ? "pattern" : tried.alias.empty() ? "none" : "account";
  record["reason"] = MDOMAIN::CONTROL::INTERNAL::WhyNotByPattern(tried);
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

std::string SentenceOf(const TriedCounts& counts) {
  return std::to_string(counts.FromPattern()) + " by the pattern, " +
         std::to_string(counts.from_account) + " by the account name, " +
         std::to_string(counts.without_address) + " without an address; " +
         std::to_string(counts.colliding) + " colliding";
}

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
  TriedCounts counts;
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
  call.out().Line(Counted(counts.users, "user") + ": " + SentenceOf(counts));
}

void Drift(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::string pattern = DomainRecords({domain.idx}).front().GetDefaultAliasPattern();
  size_t users = 0;
  TriedCounts drifted;
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
                  " without what " + pattern + " gives now: " + SentenceOf(drifted));
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
  const std::string why = MDOMAIN::CONTROL::INTERNAL::WhyUselessPattern(pattern);
  if (!why.empty()) {
    throw Failure(kRefused, "\"" + pattern + "\"" + why);
  }
}

}  // namespace mdomain
