// mdomain init, refresh, publish: keeping database, account system and published keys in step.
#include <sys/stat.h>

#include <set>
#include <utility>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/stored_state.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::BASE::Join;
using MDOMAIN::UTILS::DeletionLimit;
using MDOMAIN::UTILS::RefreshFailure;
using MDOMAIN::UTILS::RefreshSummary;
using MDOMAIN::UTILS::RenamedUser;

template <typename Id>
Json::Value Numbers(const std::vector<Id>& ids) {
  Json::Value array(Json::arrayValue);
  for (const Id id : ids) {
    array.append(id);
  }
  return array;
}

std::string DomainTitle(const RefreshSummary& summary, int idx) {
  const auto name = summary.domain_names.find(idx);
  return name == summary.domain_names.end() ? std::to_string(idx) : name->second;
}

Json::Value RenamedJson(const RefreshSummary& summary) {
  Json::Value users(Json::arrayValue);
  for (const RenamedUser& user : summary.renamed_users) {
    Json::Value json;
    json["uid"] = user.uid;
    json["name"] = user.name;
    json["was"] = user.old_name;
    json["keeps"] = Json::Value(Json::arrayValue);
    for (const auto& record : user.keeps) {
      Json::Value domain;
      domain["domain"] = DomainTitle(summary, record.GetDomainIdx());
      domain["role"] = record.GetRole();
      domain["aliases"] = Json::Value(Json::arrayValue);
      for (const auto& [alias, duplicated] : record.GetAliasDuplicatedPairs()) {
        domain["aliases"].append(alias);
      }
      json["keeps"].append(domain);
    }
    users.append(json);
  }
  return users;
}

Json::Value WithoutAddressJson(const RefreshSummary& summary) {
  Json::Value domains(Json::arrayValue);
  for (const auto& [idx, names] : summary.without_address) {
    Json::Value json;
    json["domain"] = DomainTitle(summary, idx);
    json["users"] = JsonTexts(names);
    domains.append(json);
  }
  return domains;
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
  json["renamed_users"] = RenamedJson(summary);
  json["spared_users"] = JsonTexts(summary.spared_users);
  json["spared_groups"] = JsonTexts(summary.spared_groups);
  json["without_address"] = WithoutAddressJson(summary);
  return json;
}

// "3012: anna, ben, ... and 3002 more": a first refresh finds everybody new.
std::string WriteSome(const Json::Value& items, const std::string& separator) {
  std::vector<std::string> texts;
  for (const Json::Value& item : items) {
    texts.push_back(item.asString());
  }
  return std::to_string(texts.size()) + (texts.empty() ? "" : ": " + FirstOf(texts, separator));
}

std::string WriteSome(const Json::Value& items) {
  return WriteSome(items, ", ");
}

// "carl was anna: aliases anna, boss; domain_admin of example.com"
std::string WriteRenamedUser(const Json::Value& user) {
  std::set<std::string> aliases;
  std::vector<std::string> domains;
  for (const Json::Value& domain : user["keeps"]) {
    for (const Json::Value& alias : domain["aliases"]) {
      aliases.insert(alias.asString());
    }
    if (domain["role"] == "domain_admin") {
      domains.push_back(domain["domain"].asString());
    }
  }
  std::string text = user["name"].asString() + " was " + user["was"].asString();
  if (!aliases.empty()) {
    text += ": aliases " + Join(std::vector<std::string>(aliases.begin(), aliases.end()), ", ");
  }
  return domains.empty() ? text : text + "; domain_admin of " + Join(domains, ", ");
}

std::string WriteRenamed(const Json::Value& users) {
  Json::Value texts(Json::arrayValue);
  for (const Json::Value& user : users) {
    texts.append(WriteRenamedUser(user));
  }
  return WriteSome(texts, " | ");
}

// "example.com 2: anna, ben"
std::string WriteWithoutAddress(const Json::Value& domains) {
  std::vector<std::string> texts;
  for (const Json::Value& domain : domains) {
    texts.push_back(domain["domain"].asString() + " " + WriteSome(domain["users"]));
  }
  return Join(texts, "; ");
}

std::vector<Column> SummaryColumns(const RefreshSummary& summary, bool dry_run) {
  std::vector<Column> columns = {
      {"complete", "complete"},
      {"users", "users"},
      {"groups", "groups"},
      {"new_users", dry_run ? "users that would be created" : "new users", WriteSome},
      {"new_groups", dry_run ? "groups that would be created" : "new groups", WriteSome},
      {"deleted_users", dry_run ? "uids that would be deleted" : "deleted uids", WriteSome},
      {"deleted_groups", dry_run ? "gids that would be deleted" : "deleted gids", WriteSome}};
  if (!summary.renamed_users.empty()) {
    columns.push_back(
        {"renamed_users", dry_run ? "users that would be renamed" : "renamed users", WriteRenamed});
  }
  if (!summary.without_address.empty()) {
    columns.push_back({"without_address", "without address", WriteWithoutAddress});
  }
  return columns;
}

// The limit that holds when none is typed.
constexpr int kDeletionLimit = 500;
constexpr int kDeletionPercent = 10;

DeletionLimit TypedLimit(const Call& call) {
  DeletionLimit limit;
  if (!call.Has("--force")) {
    limit.number = static_cast<size_t>(call.Int("--deletion-limit", kDeletionLimit));
    limit.percent = static_cast<size_t>(call.Int("--deletion-percent", kDeletionPercent));
  }
  return limit;
}

// What a failed refresh wrote, for its last line.
std::string Written(const RefreshSummary& summary) {
  std::vector<std::string> parts;
  if (summary.users_written) {
    parts.push_back("users (" + std::to_string(summary.new_users.size()) + " new, " +
                    std::to_string(summary.renamed_users.size()) + " renamed, " +
                    std::to_string(summary.deleted_uids.size()) + " deleted)");
  }
  if (summary.groups_written) {
    parts.push_back("groups (" + std::to_string(summary.new_groups.size()) + " new, " +
                    std::to_string(summary.deleted_gids.size()) + " deleted)");
  }
  for (const auto& [idx, count] : summary.added_users) {
    parts.push_back(Counted(count, "user") + " added to domain " + DomainTitle(summary, idx));
  }
  return parts.empty() ? "nothing was written" : "written: " + Join(parts, ", ");
}

Failure RefreshFailed(const RefreshSummary& summary) {
  std::vector<std::string> reasons;
  for (const RefreshFailure& failure : summary.failures) {
    const std::string domain =
        failure.domain_idx == 0 ? "" : "domain " + DomainTitle(summary, failure.domain_idx) + ": ";
    reasons.push_back(domain + failure.reason);
  }
  if (reasons.empty()) {
    reasons.emplace_back("what follows from the model could not be published or settled");
  }
  return {kFailed, "the refresh failed: " + Join(reasons, "; ") + "; " + Written(summary)};
}

// Ends the command after its output when somebody was spared.
void RequireNobodySpared(const RefreshSummary& summary, bool dry_run) {
  std::vector<std::string> spared;
  for (const auto& [noun, names] :
       {std::pair{"users", summary.spared_users}, std::pair{"groups", summary.spared_groups}}) {
    if (!names.empty()) {
      spared.push_back(std::string(noun) + " " + WriteSome(JsonTexts(names)));
    }
  }
  if (!spared.empty()) {
    throw Failure(kSpared, std::string("more accounts are gone than one refresh may delete; ") +
                               (dry_run ? "it would not delete " : "not deleted: ") +
                               Join(spared, "; ") +
                               " (--force deletes them, --deletion-limit and --deletion-percent "
                               "change the limit)");
  }
}

RefreshSummary RunRefresh(Call& call, const DeletionLimit& limit, bool only_mirrors) {
  if (!only_mirrors) {
    RequirePublishable(call);
  }
  const Progress progress(call.ShowsProgress(), "reading users");
  MDOMAIN::API::Updater updater;
  updater.SetDeletionLimit(limit);
  updater.AllowEmptyPublication(call.Has("--force"));
  if (!(only_mirrors ? updater.MDOMAIN::UTILS::Updater::Refresh() : updater.Refresh())) {
    if (updater.GetErrorCode() != 0 &&
        updater.GetErrorCode() != MDOMAIN::BASE::kApiErrorUnpublished) {
      throw ApiFailure(updater.GetErrorCode(), "the refresh");
    }
    throw RefreshFailed(updater.GetSummary());
  }
  return updater.GetSummary();
}

// Whether what was found is worth a word where nothing was written.
bool HasNews(const RefreshSummary& summary) {
  return !summary.users_complete || !summary.groups_complete || !summary.new_users.empty() ||
         !summary.new_groups.empty() || !summary.deleted_uids.empty() ||
         !summary.deleted_gids.empty() || !summary.renamed_users.empty() ||
         !summary.spared_users.empty() || !summary.spared_groups.empty();
}

void Refresh(Call& call) {
  const bool dry_run = call.Has("--dry-run");
  const bool quiet = call.IsQuiet() && !call.out().json();
  const DeletionLimit limit = TypedLimit(call);
  const std::string before = quiet ? StoredState() : "";
  const std::string why_only_mirrored = WhyOnlyMirrored(call);
  const RefreshSummary summary = RunRefresh(call, limit, !why_only_mirrored.empty());
  // For doctor: a refresh that changes nothing leaves no other trace.
  korvmailserver::ReplaceFile(MDOMAIN::PATHS::LastRefresh(), "",
                              S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
  if (dry_run) {
    call.TellOfTrial(SummaryJson(summary, true), SummaryColumns(summary, true));
  } else if (!quiet || HasNews(summary) || StoredState() != before) {
    call.out().Speak();
    call.out().Record(SummaryJson(summary, false), SummaryColumns(summary, false));
    call.out().Flush();  // before the message, and whole although the command fails
  }
  RequireNobodySpared(summary, dry_run);
  if (!why_only_mirrored.empty()) {
    throw Failure(kUnpublished, "the accounts are read, nothing is published: " + why_only_mirrored,
                  "mdomain apply or domain create makes domains of this account source");
  }
}

void Publish(Call& call) {
  // A change succeeds although the store is not healthy; a command that only publishes has failed.
  if (!KORV::POSTARA_SERVER::KORVMailNodeCluster::isClusterHealth(1)) {
    throw Failure(kFailed, "the key store is not healthy, nothing was published");
  }
  RequirePublishable(call);
  if (call.Has("--force")) {
    DiscardForeignSettings();
  }
  MDOMAIN::API::Updater updater;
  updater.AllowEmptyPublication(call.Has("--force"));
  if (!updater.Trigger()) {
    throw Failure(kFailed, "publishing failed");
  }
  const std::string why = call.EndPublication();
  if (!why.empty()) {
    throw Failure(kFailed, "nothing was published: " + why);
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
      {ForceFlag(
          "Also in a lost model, or where settings under domain indexes are those of another "
          "model's domains: these are removed")},
      Init}},
});

const Register kRefresh({
    "refresh",
    "Bring the mirror of the accounts up to date",
    {{"",
      "Bring the mirror of the accounts up to date",
      "New accounts are added to the domains that add them automatically, accounts that are gone "
      "are deleted with their addresses, and everything is published. Nobody is deleted when the "
      "account system answers only in part, or when more accounts are gone than the limit allows: "
      "the refresh then ends with status 5 and names them. A known uid under another name stays "
      "the same user, who keeps addresses and roles; who that is is shown. What could not be added "
      "to a domain is added by the next refresh. With --quiet nothing is printed when nothing "
      "changed, for a timer.",
      Effect::kChanges,
      {Number("--deletion-limit", "Delete at most N users and N groups (500); 0 for any number"),
       Number(
           "--deletion-percent",
           "Delete at most N per cent of the users, and of the groups, that were known (10), but "
           "always five; 0 for any share"),
       ForceFlag("Delete whoever is gone, however many they are, and publish also a model without "
                 "domains")},
      Refresh}},
});

const Register kPublish({
    "publish",
    "Publish all domain data to the key store",
    {{"",
      "Publish all domain data to the key store",
      "Refused when the model has no domain while domains are published, or while the older "
      "settings "
      "name one: the model file may have been lost, or be that of another account domain. "
      "--dry-run "
      "compares with the key store of this machine, not with one that is shared.",
      Effect::kChanges,
      {ForceFlag("Publish also a model without domains, which empties what is published; remove "
                 "settings under domain indexes that are those of another model's domains")},
      Publish}},
});

}  // namespace
}  // namespace mdomain
