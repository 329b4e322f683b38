// What the mail services read: the keys in the mail configuration that follow from the database.
//
// All keys are written, and stale ones removed, in one call. When that fails, they are written or
// removed one by one in their order, so that those before the failing one are done and the log
// names it. Another process may commit and publish in between: then the older state must not stay
// published, so the model is published again.
#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/node_publication.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/batch_scope.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"
#include "platform/include/mail_conf_change.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::UTILS {

namespace {

using KORV::POSTARA_SERVER::KORVMailNodeCluster;
using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
using korvmailserver::KeyStoreView;

constexpr const char* kDomainsKey = "virtual_multiple_domain";
constexpr const char* kPrimaryKey = "smtp_main_domain";
constexpr const char* kAdditionalPrefix = "additional_domain-";
constexpr const char* kAdditionalTree = "virtual_domain";
constexpr const char* kSeparator = ", ";

// How often a model is published that other processes change meanwhile, before they have to wait.
constexpr int kAttempts = 4;

std::string AdditionalKey(int domain_idx) {
  return kAdditionalPrefix + std::to_string(domain_idx);
}

bool SetKey(const std::string& key, const std::string& value) {
  if (mailConfSet(key, value, true, 0) != 0) {
    LOG_ERROR("Failed to mailConfSet");
    return false;
  }
  return true;
}

using NamesByDomain = std::map<int, std::vector<std::string>>;

bool SetKeysTogether(const std::vector<RECORD::Domain>& domains, NamesByDomain& names_by_domain,
                     const std::vector<std::string>& entries, const std::string& primary_name,
                     const std::string& settings_owner, const std::vector<std::string>& stale) {
  std::vector<std::pair<std::string, std::string>> keys;
  for (const RECORD::Domain& domain : domains) {
    const int domain_idx = domain.GetDomainIdx();
    keys.emplace_back(AdditionalKey(domain_idx),
                      BASE::Join(names_by_domain[domain_idx], kSeparator));
  }
  keys.emplace_back(kDomainsKey, BASE::Join(entries, kSeparator));
  keys.emplace_back(kPrimaryKey, primary_name);
  if (!domains.empty()) {
    keys.emplace_back(DB::INTERNAL::kModelKey, settings_owner);
  }
  return mailConfChange(keys, stale) == 0;
}

// Published names of domains that are no more. False where they cannot be listed.
bool ListStaleKeys(const std::vector<std::string>& keep_keys, std::vector<std::string>& stale) {
  std::vector<std::string> keys;
  if (!PostaraServerBACKENDWrap::ls(kAdditionalTree, keys)) {
    return false;
  }
  const std::unordered_set<std::string> kept(keep_keys.begin(), keep_keys.end());
  std::copy_if(keys.begin(), keys.end(), std::back_inserter(stale), [&](const std::string& key) {
    return key.rfind(kAdditionalPrefix, 0) == 0 && kept.count(key) == 0;
  });
  return true;
}

}  // namespace

bool Updater::Trigger() {
  is_published_ = false;
  const korvmailserver::PublicationScope publication;
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  if (!KORVMailNodeCluster::isClusterHealth(1)) {
    LOG_WARNING("Cluster is not health, so don't do trigger");
    return true;
  }
  const DB::DomainDBHandler* const handler = DB::DomainDBHandler::GetDomainDBHandler();
  if (handler != nullptr && !handler->IsOfSourceInForce()) {
    return false;
  }
  std::string path;
  if (!GetUserGroupDomainConfigPath(path)) {
    LOG_ERROR("Failed to GetUserGroupDomainConfigPath");
    return false;
  }
  ModelStanding standing;
  std::optional<DB::ReadScope> of_one_moment(std::in_place);
  // A model that cannot be read is left to the steps, which say so.
  const bool is_known = ReadModelStanding(standing);
  if (is_known && !empty_publication_allowed_ && standing.WouldEmpty()) {
    LOG_ERROR("Nothing is published: %s", standing.Reason().c_str());
    return false;
  }
  std::string version;
  const bool is_version_known = DB::INTERNAL::GetDataVersion(version);
  of_one_moment.reset();
  settings_owner_ = is_known ? OwnerOfOutsideSettings(standing) : DB::INTERNAL::ModelFileName(path);
  is_published_ = _PublishNewest(path, is_version_known, version) && PublishNodeFiles();
  return is_published_;
}

// What is published is the newest state when nobody has committed another one meanwhile. A model
// that others keep changing is locked against them for the last attempt. `version`: of the model
// at a moment before.
bool Updater::_PublishNewest(const std::string& path, bool is_known, std::string version) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string after;
    if (attempt > 0) {
      is_known = DB::INTERNAL::GetDataVersion(version);
    }
    if (!_PublishModel(path)) {
      return false;
    }
    if (!is_known || (DB::INTERNAL::GetDataVersion(after) && version == after)) {
      return true;
    }
  }
  const BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!DB::INTERNAL::BeginWriting()) {
    LOG_ERROR("Others keep changing the model, and what is published may be older: %s",
              path.c_str());
    return false;
  }
  return _PublishModel(path);
}

bool Updater::_PublishModel(const std::string& path) {
  if (!PostaraServerBACKENDWrap::setFile(kDatabaseKey, path)) {
    LOG_ERROR("Failed to set file %s", path.c_str());
    return false;
  }
  if (!_ToRedis()) {
    LOG_ERROR("Failed to update info to redis");
    return false;
  }
  return true;
}

bool Updater::_ToRedis() {
  std::optional<DB::ReadScope> of_one_moment(std::in_place);
  std::vector<RECORD::Domain> domains;
  if (!DB::Domain().ListNames(domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  std::string primary_name;
  std::vector<std::string> entries;
  std::vector<std::string> keep_keys;
  for (const RECORD::Domain& domain : domains) {
    if (domain.IsPrimary()) {
      primary_name = domain.GetDomainName();
    }
    entries.push_back(std::to_string(domain.GetDomainIdx()) + "/" + domain.GetDomainName());
    keep_keys.push_back(AdditionalKey(domain.GetDomainIdx()));
  }
  NamesByDomain names_by_domain;
  const bool are_known = CONTROL::Domain().ListAllAdditionalDomains(names_by_domain);
  of_one_moment.reset();
  std::vector<std::string> stale;
  if (are_known && ListStaleKeys(keep_keys, stale) &&
      SetKeysTogether(domains, names_by_domain, entries, primary_name, settings_owner_, stale)) {
    return true;
  }
  if (!_SetKeysOneByOne(domains, entries, primary_name)) {
    return false;
  }
  if (!_RemoveUnusedRedisKey(keep_keys)) {
    LOG_ERROR("Failed to _RemoveUnusedRedisKey");
    return false;
  }
  return true;
}

bool Updater::_SetKeysOneByOne(const std::vector<RECORD::Domain>& domains,
                               const std::vector<std::string>& entries,
                               const std::string& primary_name) {
  for (const RECORD::Domain& domain : domains) {
    if (!_DomainAdditionalDomainsToRedis(domain.GetDomainIdx())) {
      LOG_ERROR("Failed to _DomainAdditionalDomainsToRedis, domain_id: [%d]",
                domain.GetDomainIdx());
      return false;
    }
  }
  if (!_DomainsToRedis(entries)) {
    LOG_ERROR("Failed to _DomainsToRedis");
    return false;
  }
  if (!_PrimaryDomainToRedis(primary_name)) {
    LOG_ERROR("Failed to _PrimaryDomainToRedis");
    return false;
  }
  return domains.empty() || SetKey(DB::INTERNAL::kModelKey, settings_owner_);
}

bool Updater::_DomainsToRedis(const std::vector<std::string>& entries) {
  return SetKey(kDomainsKey, BASE::Join(entries, kSeparator));
}

bool Updater::_PrimaryDomainToRedis(const std::string& name) {
  return SetKey(kPrimaryKey, name);
}

bool Updater::_DomainAdditionalDomainsToRedis(int domain_idx) {
  std::vector<std::string> names;
  if (!CONTROL::Domain().ListAdditionalDomains(domain_idx, names)) {
    LOG_ERROR("Failed to ListAdditionalDomains, domain_id: [%d]", domain_idx);
    return false;
  }
  return SetKey(AdditionalKey(domain_idx), BASE::Join(names, kSeparator));
}

bool Updater::_RemoveUnusedRedisKey(const std::vector<std::string>& keep_keys) {
  std::vector<std::string> stale;
  if (!ListStaleKeys(keep_keys, stale)) {
    LOG_ERROR("Failed to list backend tree virtual_domain");
    return false;
  }
  bool all_removed = true;
  for (const std::string& key : stale) {
    if (!PostaraServerBACKENDWrap::removeKey(key)) {
      LOG_ERROR("Failed to remove key: '%s'", key.c_str());
      all_removed = false;
    }
  }
  return all_removed;
}

}  // namespace MDOMAIN::UTILS
