// The disclaimer lists of domains: reading, replacing, removing rules, the run key.
#include "lib-domain/api/mimedefang.h"

#include <json/writer.h>

#include <algorithm>
#include <map>
#include <unordered_set>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/pending_content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/record/domain.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"
#include "platform/include/nodes.h"

using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

using korvmailserver::KeyStoreView;

namespace {

constexpr const char* kOtherFilterParts[] = {
    "spam_enable", "anti_virus_enable", "enable_dangerous_content_scan",
    "mcp_enable",  "enable_dkim",       "enable_dmarc"};

std::string WriteList(const Json::Value& list) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return Json::FastWriter().write(list);
#pragma GCC diagnostic pop
}

// Whoever reads a list refuses one that is nested deeper than any disclaimer is.
bool IsReadBack(const Json::Value& list) {
  Json::Value read;
  return ParseJson(WriteList(list), read);
}

// Rules of `rules` that stay; true when some were dropped.
bool DropRules(Json::Value& rules, const std::unordered_set<unsigned int>& ids,
               const std::string& type) {
  if (!rules.isArray()) {
    return false;
  }
  Json::Value kept(Json::arrayValue);
  for (const Json::Value& rule : rules) {
    unsigned int id = 0;
    const bool named = rule.isObject() && rule["pattern_type"] == Json::Value(type) &&
                       PatternAsId(rule["pattern"], id) && ids.count(id) != 0;
    if (!named) {
      kept.append(rule);
    }
  }
  const bool dropped = kept.size() != rules.size();
  rules = kept;
  return dropped;
}

bool HasEnabledDisclaimer(int domain_idx, const std::string& text) {
  Json::Value list;
  if (!ParseStoredList(domain_idx, text, list)) {
    return true;
  }
  return std::any_of(list.begin(), list.end(), [](const Json::Value& disclaimer) {
    return disclaimer["enabled"] == Json::Value(true);
  });
}

// Whether the list and its texts stand there already.
bool IsStored(int domain_idx, const std::string& text, const Json::Value& contents) {
  std::string stored;
  return mailConfGet(DisclaimerListKey(domain_idx), stored) == 0 && stored == text &&
         AreContentsInPlace(domain_idx, contents);
}

}  // namespace

MimeDefang::MimeDefang() {
  AddToBoolMap("mimedefang_enable", &mimedefang_enable_, true);
}

MimeDefang::~MimeDefang() = default;

int MimeDefang::LoadSettings() {
  return Config::LoadSettings();
}

int MimeDefang::SaveSettings() {
  if (UpdateRunKey() < 0 || Config::SaveSettings() < 0) {
    LOG_ERROR("save config fail");
    return -1;
  }
  return 0;
}

int MimeDefang::GetDisclaimerList(int domain_idx, Json::Value& list) {
  std::string text;
  if (mailConfGet(DisclaimerListKey(domain_idx), text) < 0) {
    LOG_ERROR("Failed to get disclamer, domain_id[%d]", domain_idx);
    return -1;
  }
  return ComposeList(domain_idx, text, list);
}

int MimeDefang::SetDisclaimerList(int domain_idx, const Json::Value& list) {
  const korvmailserver::PublicationScope publication;
  // Others may change the list while this one waits for them.
  const KeyStoreView each_read_anew(KeyStoreView::Kind::kCurrent);
  if (!IsArrayOfObjects(list)) {
    LOG_ERROR("Failed to set Config");
    return -1;
  }
  bool is_unknown = false;
  if (!list.empty() && (!DB::INTERNAL::IsUnknownDomain(domain_idx, is_unknown) || is_unknown)) {
    LOG_ERROR("There is no domain to set disclaimers for, domain_id[%d]", domain_idx);
    return -1;
  }
  if (!IsReadBack(list)) {
    LOG_ERROR("The disclaimers could not be read back, domain_id[%d]", domain_idx);
    return -1;
  }
  Json::Value stripped = list;
  const Json::Value contents = TakeContents(stripped);
  const std::string text = WriteList(stripped);
  if (SettlePendingContents(domain_idx, Others::kWait) < 0) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  if (IsStored(domain_idx, text, contents)) {
    return PublishContents(domain_idx);
  }
  PendingContents pending(domain_idx, text);
  if (pending.Write(contents) < 0) {
    return -1;
  }
  if (mailConfSet(DisclaimerListKey(domain_idx), text, true, 0) < 0) {
    LOG_ERROR("Failed to set Config");
    pending.Drop();
    return -1;
  }
  return pending.Place() < 0 ? -1 : PublishContents(domain_idx);
}

int MimeDefang::SeparateContentFromDisclaimer(int domain_idx, Json::Value& list) {
  if (!IsArrayOfObjects(list)) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  Json::Value stripped = list;
  const Json::Value contents = TakeContents(stripped);
  // Beside its place until it has its owner.
  PendingContents beside(domain_idx, "");
  if (beside.Write(contents) < 0 || beside.Place() < 0 || PublishContents(domain_idx) < 0) {
    return -1;
  }
  list = stripped;
  return 0;
}

int MimeDefang::MergeDisClaimerWithContent(int domain_idx, Json::Value& list) {
  if (!IsArrayOfObjects(list)) {
    LOG_ERROR("Failed to get disclamer, domain_id[%d]", domain_idx);
    return -1;
  }
  return MergeContents(domain_idx, WriteList(list), list);
}

bool MimeDefang::RemoveRulesByIds(int domain_idx, const std::vector<unsigned int>& ids,
                                  const std::string& type) {
  Json::Value list;
  if (GetDisclaimerList(domain_idx, list) < 0) {
    return false;
  }
  const std::unordered_set<unsigned int> wanted(ids.begin(), ids.end());
  bool dropped = false;
  for (Json::Value& disclaimer : list) {
    for (const char* member : {"match_rule_list", "exception_rule_list"}) {
      if (disclaimer.isMember(member)) {
        dropped = DropRules(disclaimer[member], wanted, type) || dropped;
      }
    }
  }
  return !dropped || SetDisclaimerList(domain_idx, list) >= 0;
}

bool MimeDefang::RemoveRulesByUsers(int domain_idx, const std::vector<unsigned int>& uids) {
  return RemoveRulesByIds(domain_idx, uids, "uid");
}

bool MimeDefang::RemoveRulesByGroups(int domain_idx, const std::vector<unsigned int>& gids) {
  return RemoveRulesByIds(domain_idx, gids, "gid");
}

int MimeDefang::UpdateRunKey() {
  std::vector<RECORD::Domain> domains;
  std::map<int, std::string> texts;
  if (!ListDomainsWithLists(domains) || !ReadStoredTexts(domains, texts)) {
    return -1;
  }
  mimedefang_enable_ =
      std::any_of(texts.begin(), texts.end(),
                  [](const auto& text) { return HasEnabledDisclaimer(text.first, text.second); }) ||
      std::any_of(std::begin(kOtherFilterParts), std::end(kOtherFilterParts),
                  [](const char* key) { return mailConfCheckKeyValue(key, "yes"); });
  return 0;
}
