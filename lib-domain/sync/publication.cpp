// What the mail services read: the keys in the mail configuration that follow from the database.
//
// All keys are written, and stale ones removed, in one call. When that fails, they are written or
// removed one by one in their order, so that those before the failing one are done and the log
// names it. Another process may commit and publish in between: then the older state must not stay
// published, so the model is published again.
#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/domain_names.h"
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

using DB::DomainNames;
using SharedNames = std::shared_ptr<const DomainNames>;

std::string EntryOf(const RECORD::Domain& domain) {
  return std::to_string(domain.GetDomainIdx()) + "/" + domain.GetDomainName();
}

// What is published of the names.
struct NameKeys {
  SharedNames names;
  std::string settings_owner;
  std::vector<std::pair<std::string, std::string>> all;  // ascending by key

  // The end where it is none of them.
  auto Find(const std::string& key) const {
    const auto found = std::lower_bound(
        all.begin(), all.end(), key,
        [](const auto& entry, const std::string& wanted) { return entry.first < wanted; });
    return found == all.end() || found->first != key ? all.end() : found;
  }
  // Nothing happens where it is none of them.
  void Set(const std::string& key, std::string value) {
    if (const auto found = Find(key); found != all.end()) {
      all[static_cast<size_t>(found - all.begin())].second = std::move(value);
    }
  }
};

// Whether both have the same domains, under whatever names.
bool HaveSameDomains(const DomainNames& names, const DomainNames& others) {
  return std::equal(names.domains.begin(), names.domains.end(), others.domains.begin(),
                    others.domains.end(),
                    [](const RECORD::Domain& one, const RECORD::Domain& other) {
                      return one.GetDomainIdx() == other.GetDomainIdx();
                    });
}

std::string AdditionalValue(const DomainNames& names, int domain_idx) {
  const auto found = names.additional.find(domain_idx);
  return found == names.additional.end() ? "" : BASE::Join(found->second, kSeparator);
}

std::string DomainsValue(const DomainNames& names) {
  std::string value;
  for (const RECORD::Domain& domain : names.domains) {
    value.append(value.empty() ? "" : kSeparator);
    value.append(std::to_string(domain.GetDomainIdx())).append("/").append(domain.GetDomainName());
  }
  return value;
}

std::string PrimaryName(const DomainNames& names) {
  std::string primary_name;
  for (const RECORD::Domain& domain : names.domains) {
    primary_name = domain.IsPrimary() ? domain.GetDomainName() : primary_name;
  }
  return primary_name;
}

void MakeKeys(NameKeys& keys) {
  keys.all.clear();
  for (const RECORD::Domain& domain : keys.names->domains) {
    const int domain_idx = domain.GetDomainIdx();
    keys.all.emplace_back(AdditionalKey(domain_idx), AdditionalValue(*keys.names, domain_idx));
  }
  keys.all.emplace_back(kDomainsKey, DomainsValue(*keys.names));
  keys.all.emplace_back(kPrimaryKey, PrimaryName(*keys.names));
  if (!keys.names->domains.empty()) {
    keys.all.emplace_back(DB::INTERNAL::kModelKey, keys.settings_owner);
  }
  std::sort(keys.all.begin(), keys.all.end());
}

// The same domains have the same keys, and most of them the same additional names. Rows of names
// may be left of a domain that is gone.
void FollowNames(NameKeys& keys, const DomainNames& before) {
  for (const auto* names : {&before, keys.names.get()}) {
    const DomainNames& other = names == &before ? *keys.names : before;
    for (const auto& [domain_idx, additional] : names->additional) {
      const auto found = other.additional.find(domain_idx);
      if (found == other.additional.end() || found->second != additional) {
        keys.Set(AdditionalKey(domain_idx), AdditionalValue(*keys.names, domain_idx));
      }
    }
  }
  keys.Set(kDomainsKey, DomainsValue(*keys.names));
  keys.Set(kPrimaryKey, PrimaryName(*keys.names));
}

// Those that were made last, in line with the names.
const NameKeys& KeysOf(const SharedNames& names, const std::string& settings_owner) {
  static auto& made = *new NameKeys();
  if (made.names == names && made.settings_owner == settings_owner) {
    return made;
  }
  const NameKeys before = {made.names, made.settings_owner, {}};
  made.names = names;
  made.settings_owner = settings_owner;
  if (before.names != nullptr && before.settings_owner == settings_owner &&
      HaveSameDomains(*before.names, *names)) {
    FollowNames(made, *before.names);
  } else {
    MakeKeys(made);
  }
  return made;
}

// Published names of domains that are no more. False where they cannot be listed.
bool ListStaleKeys(const std::function<bool(const std::string& key)>& is_kept,
                   std::vector<std::string>& stale) {
  return PostaraServerBACKENDWrap::ls(
      kAdditionalTree,
      [&](const std::string& key) { return !is_kept(key) && key.rfind(kAdditionalPrefix, 0) == 0; },
      stale);
}

bool SetKeysTogether(const NameKeys& keys) {
  std::vector<std::string> stale;
  auto next = keys.all.begin();  // the store's keys mostly come in the same order
  const auto is_kept = [&](const std::string& key) {
    const auto found = next != keys.all.end() && next->first == key ? next : keys.Find(key);
    next = found == keys.all.end() ? next : std::next(found);
    return found != keys.all.end();
  };
  return ListStaleKeys(is_kept, stale) && mailConfChange(keys.all, stale) == 0;
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
  SharedNames names;
  bool are_known = DB::Domain().ShareNames(names);
  if (!are_known) {
    const DB::ReadScope of_one_moment;
    const auto listed = std::make_shared<DomainNames>();
    if (!DB::Domain().ListNames(listed->domains)) {
      LOG_ERROR("Failed to List domains");
      return false;
    }
    are_known = CONTROL::Domain().ListAllAdditionalDomains(listed->additional);
    names = listed;
  }
  if (are_known && SetKeysTogether(KeysOf(names, settings_owner_))) {
    return true;
  }
  const std::vector<RECORD::Domain>& domains = names->domains;
  std::string primary_name;
  std::vector<std::string> entries;
  std::vector<std::string> keep_keys;
  for (const RECORD::Domain& domain : domains) {
    if (domain.IsPrimary()) {
      primary_name = domain.GetDomainName();
    }
    entries.push_back(EntryOf(domain));
    keep_keys.push_back(AdditionalKey(domain.GetDomainIdx()));
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
  std::vector<std::string> kept = keep_keys;
  std::sort(kept.begin(), kept.end());
  const auto is_kept = [&kept](const std::string& key) {
    return std::binary_search(kept.begin(), kept.end(), key);
  };
  if (!ListStaleKeys(is_kept, stale)) {
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
