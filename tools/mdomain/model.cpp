#include "tools/mdomain/model.h"

#include <algorithm>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/sync/model_in_force.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::UTILS::ModelStanding;

ModelStanding Standing() {
  ModelStanding standing;
  if (!MDOMAIN::UTILS::ReadModelStanding(standing)) {
    throw Failure(kFailed, "the domains could not be read");
  }
  return standing;
}

// What stands under domain indexes, "" when nothing does.
std::string OutsideSettings() {
  std::vector<std::string> settings;
  if (!MDOMAIN::UTILS::ListOutsideSettings(settings)) {
    throw Failure(kFailed, "the settings of the domains could not be read");
  }
  return MDOMAIN::BASE::Join(settings, ", ");
}

std::string ShownNames(const std::vector<std::string>& names) {
  constexpr size_t kShown = 5;
  const std::vector<std::string> first(
      names.begin(), names.begin() + static_cast<long>(std::min(names.size(), kShown)));
  const std::string more = names.size() > kShown ? ", ..." : "";
  return Counted(names.size(), "domain") + " (" + MDOMAIN::BASE::Join(first, ", ") + more + ")";
}

// What a switch from one model file to the other means, in one sentence.
std::string Consequence(const std::string& from, const std::vector<std::string>& domains,
                        const std::string& to, bool is_empty, const std::string& outside) {
  const std::string none = is_empty ? ", which has no domain," : "";
  std::string text = to.empty() ? "no model is in force then"
                                : "the model file " + to + none + " is in force then";
  text += "; " + from + " keeps " + ShownNames(domains);
  if (!outside.empty()) {
    text +=
        "; what stands under their indexes stays theirs, and is not used until it is removed by "
        "mdomain publish --force or the account source is set back: " +
        outside;
  }
  return text;
}

}  // namespace

void RequirePublishable(const Call& call) {
  const ModelStanding standing = Standing();
  if (call.Has("--force") || !standing.WouldEmpty()) {
    return;
  }
  std::string advice = "run mdomain init";
  if (standing.IsOther()) {
    advice = "set the account source back";
  } else if (standing.IsLost()) {
    advice = "restore that file";
  }
  throw Failure(kRefused, "nothing is published: " + standing.Reason() + ". Next: " + advice +
                              ", or give --force to publish no domain");
}

std::string WhyOnlyMirrored(const Call& call) {
  const ModelStanding standing = Standing();
  return !call.Has("--force") && standing.WouldEmpty() && standing.IsOther() ? standing.Reason()
                                                                             : "";
}

void RequireOwnModel(const Call& call) {
  if (call.Has("--force")) {
    DiscardForeignSettings();
    return;
  }
  const ModelStanding standing = Standing();
  if (standing.IsLost()) {
    throw Failure(kRefused,
                  standing.Reason() + ". Next: restore that file, or give --force to start anew");
  }
  RequireOwnSettings("give --force to have them removed");
}

void RequireOwnSettings(const std::string& advice) {
  const ModelStanding standing = Standing();
  const std::string outside = standing.IsOther() ? OutsideSettings() : "";
  if (!outside.empty()) {
    throw Failure(kRefused, "settings under domain indexes belong to the domains of " +
                                standing.published_file + ": " + outside +
                                ". Next: set the account source back, or " + advice);
  }
}

void RequireSettledSettings() {
  RequireOwnSettings();
  if (!MDOMAIN::CONTROL::INTERNAL::FinishDepartures()) {
    throw Failure(kFailed, "the settings of accounts that left could not be removed");
  }
}

void DiscardForeignSettings() {
  if (Standing().IsOther() && !MDOMAIN::UTILS::DiscardOutsideSettings()) {
    throw Failure(kFailed, "the settings of another model's domains could not be removed");
  }
}

void RequireSwitchable(const Call& call, const std::string& key, const std::string& value) {
  const bool is_name = key == "win_domain_short_name" || key == "acc_domain_name";
  if (is_name && !MDOMAIN::PATHS::IsFileNamePart(value)) {
    throw Failure(kRefused, key + " \"" + value +
                                "\" names a database file: \"/\", \"..\" and control characters "
                                "are not allowed");
  }
  std::string from;
  std::string to;
  if ((!is_name && key != "account_type") || !MDOMAIN::UTILS::GetModelPathWith("", "", from) ||
      !MDOMAIN::UTILS::GetModelPathWith(key, value, to) || from == to) {
    return;
  }
  const std::vector<std::string> domains = MDOMAIN::UTILS::ListDomainsOf(from);
  const bool is_empty = MDOMAIN::UTILS::ListDomainsOf(to).empty();
  const std::string outside = domains.empty() ? "" : OutsideSettings();
  if (domains.empty() || (!is_empty && outside.empty())) {
    return;
  }
  const std::string consequence = Consequence(from, domains, to, is_empty, outside);
  if (!call.Has("--force")) {
    throw Failure(kRefused, key + " stays as it is: " + consequence +
                                ". Next: give --force to change it all the same");
  }
  Note(consequence);
}

}  // namespace mdomain
