// mdomain init, refresh, publish: keeping database, account system and published keys in step.
#include "lib-domain/api/domain.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/sync/preview.h"
#include "platform/include/key_store.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"

namespace mdomain {
namespace {

using MDOMAIN::UTILS::RefreshSummary;

template <typename Id>
Json::Value Numbers(const std::vector<Id>& ids) {
  Json::Value array(Json::arrayValue);
  for (const Id id : ids) {
    array.append(id);
  }
  return array;
}

Json::Value SummaryJson(const RefreshSummary& summary, bool dry_run) {
  Json::Value json;
  json["complete"] = summary.users_complete && summary.groups_complete;
  json["dry_run"] = dry_run;
  json["users"] = Json::UInt64(summary.users);
  json["groups"] = Json::UInt64(summary.groups);
  json["new_users"] = JsonTexts(summary.new_users);
  json["new_groups"] = JsonTexts(summary.new_groups);
  json["deleted_users"] = Numbers(summary.deleted_uids);
  json["deleted_groups"] = Numbers(summary.deleted_gids);
  return json;
}

// "3012: anna, ben, ... and 3002 more": a first refresh finds everybody new.
std::string WriteSome(const Json::Value& items) {
  constexpr Json::ArrayIndex kShown = 10;
  std::string text = items.empty() ? "0" : std::to_string(items.size()) + ":";
  for (Json::ArrayIndex i = 0; i < items.size() && i < kShown; ++i) {
    text += (i == 0 ? " " : ", ") + items[i].asString();
  }
  return items.size() <= kShown ? text
                                : text + " and " + std::to_string(items.size() - kShown) + " more";
}

void Refresh(Call& call) {
  const bool dry_run = call.Has("--dry-run");
  if (!dry_run) {
    RequirePublishable(call);
  }
  RefreshSummary summary;
  bool done = false;
  {
    const Progress progress;
    MDOMAIN::API::Updater updater;
    done = dry_run ? MDOMAIN::UTILS::PreviewRefresh(summary) : updater.Refresh();
    if (!dry_run) {
      summary = updater.GetSummary();
    }
    if (!done && updater.GetErrorCode() != 0) {
      throw ApiFailure(updater.GetErrorCode(), "the refresh");
    }
  }
  if (!done) {
    throw Failure(kFailed, "the refresh failed");
  }
  call.out().Record(
      SummaryJson(summary, dry_run),
      {{"complete", "complete"},
       {"users", "users"},
       {"groups", "groups"},
       {"new_users", dry_run ? "users that would be created" : "new users", WriteSome},
       {"new_groups", dry_run ? "groups that would be created" : "new groups", WriteSome},
       {"deleted_users", dry_run ? "uids that would be deleted" : "deleted uids", WriteSome},
       {"deleted_groups", dry_run ? "gids that would be deleted" : "deleted gids", WriteSome}});
}

void Publish(Call& call) {
  // A change succeeds although the store is not healthy; a command that only publishes has failed.
  if (!KORV::POSTARA_SERVER::KORVMailNodeCluster::isClusterHealth(1)) {
    throw Failure(kFailed, "the key store is not healthy, nothing was published");
  }
  RequirePublishable(call);
  MDOMAIN::API::Updater updater;
  updater.AllowEmptyPublication(call.Has("--force"));
  if (!updater.Trigger()) {
    throw Failure(kFailed, "publishing failed");
  }
  Json::Value done;
  done["published"] = true;
  call.out().Done(done, "published");
}

void Init(Call& call) {
  RequireOwnModel(call);
  const size_t before = Domains().all().size();
  MDOMAIN::API::Updater updater;
  if (!updater.InitDBIfNotExists()) {
    throw ApiFailure(updater.GetErrorCode(), "creating the first domain");
  }
  const Domains domains;
  const bool created = domains.all().size() > before;
  Json::Value done;
  done["created"] = created;
  done["domain"] = domains.all().empty() ? Json::Value() : DomainJson(domains.all().front());
  std::string sentence = "nothing to do: smtp_main_domain names no domain";
  if (!domains.all().empty()) {
    sentence = (created ? "created domain " : "nothing to do, the primary domain is ") +
               domains.all().front().Title();
  }
  call.out().Done(done, sentence);
}

const Register kInit({
    "init",
    "Create the first domain from the older single-domain settings",
    {{"",
      "Create the first domain from the older single-domain settings",
      "Takes smtp_main_domain and the further names from the older settings; every group of the "
      "account system becomes a group of the domain. Does nothing when there is a domain.",
      Effect::kChanges,
      {ForceFlag("Also where the published domains, or settings under domain indexes, are those of "
                 "another or a lost model")},
      Init}},
});

const Register kRefresh({
    "refresh",
    "Bring the mirror of the accounts up to date",
    {{"",
      "Bring the mirror of the accounts up to date",
      "New accounts are added to the domains that add them automatically, accounts that are gone "
      "are deleted with their addresses, and everything is published. Nobody is deleted when the "
      "account system answers only in part.",
      Effect::kChanges,
      {Flag("--dry-run", "Show what would be created and deleted, and change nothing")},
      Refresh}},
});

const Register kPublish({
    "publish",
    "Publish all domain data to the key store",
    {{"",
      "Publish all domain data to the key store",
      "Refused when the model has no domain while domains are published, or while the older "
      "settings "
      "name one: the model file may have been lost, or be that of another account domain.",
      Effect::kChanges,
      {ForceFlag("Publish also a model without domains, which empties what is published")},
      Publish}},
});

}  // namespace
}  // namespace mdomain
