#include "tools/mdomain/model.h"

#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/sync/model_in_force.h"
#include "tools/mdomain/status.h"

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

}  // namespace mdomain
