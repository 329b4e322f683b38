// The disclaimer lists and their texts: reading, replacing, removing rules, the run key.
//
// Order of a replacement: the new texts beside the old ones under a name that is tied to the new
// list, the list, the rename. A reader that finds texts tied to the list it read takes those, and
// the next replacement first brings one that was cut off before its rename to its end.
#include "lib-domain/api/mimedefang.h"

#include <fcntl.h>
#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <unordered_set>

#include "lib-domain/api/disclaimer/unit.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;
const char* const kServiceAccount = "Postara-Server";
const char* const kTextMembers[] = {"content_html", "content_txt"};
const char* const kOtherFilterParts[] = {
    "spam_enable", "anti_virus_enable", "enable_dangerous_content_scan",
    "mcp_enable",  "enable_dkim",       "enable_dmarc"};

// FNV-1a: it ties a file to a list, it protects nothing.
std::string Fingerprint(const std::string& text) {
  uint64_t hash = 14695981039346656037ULL;
  for (const unsigned char byte : text) {
    hash = (hash ^ byte) * 1099511628211ULL;
  }
  char hex[17];
  (void)snprintf(hex, sizeof(hex), "%016llx", static_cast<unsigned long long>(hash));
  return hex;
}

std::string PendingContentPath(int domain_idx, const std::string& list_text) {
  return PATHS::DisclaimerContent(domain_idx) + "." + Fingerprint(list_text);
}

bool MakeContentFolder() {
  uid_t uid = 0;
  gid_t gid = 0;
  return mailUGidGet(kServiceAccount, &uid, &gid) >= 0 &&
         KORVFSMkdirP(PATHS::DisclaimerDir().c_str(), uid, gid, kFolderMode) >= 0;
}

// Takes the texts out of `list`; the array of content objects that goes into the file.
Json::Value TakeContents(Json::Value& list) {
  Json::Value contents(Json::arrayValue);
  for (Json::Value& disclaimer : list) {
    Json::Value content(Json::objectValue);
    if (disclaimer.isMember("id")) {
      content["id"] = disclaimer["id"];
    }
    for (const char* member : kTextMembers) {
      content[member] = disclaimer.get(member, "");
      disclaimer.removeMember(member);
    }
    contents.append(content);
  }
  return contents;
}

int WriteContents(const std::string& path, const Json::Value& contents) {
  if (!MakeContentFolder() ||
      korvmailserver::ReplaceFile(path, WriteJson(contents), kFileMode) < 0 ||
      mailFileOwnerModeSet(path.c_str(), kServiceAccount, kFileMode) < 0) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  return 0;
}

int PublishContents(int domain_idx) {
  const std::string path = PATHS::DisclaimerContent(domain_idx);
  const std::string key = "sync_disclaimer_content_file-" + std::to_string(domain_idx);
  if (!PostaraServerBACKENDWrap::setFile(key, path)) {
    LOG_ERROR("Fail to set file %s", path.c_str());
    return -1;
  }
  return 0;
}

std::string WriteList(const Json::Value& list) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return Json::FastWriter().write(list);
#pragma GCC diagnostic pop
}

// Finishes a replacement that was cut off behind its list, and removes the texts of those that were
// cut off before it.
int SettlePendingContents(int domain_idx) {
  std::string stored;
  if (mailConfGet(DisclaimerListKey(domain_idx), stored) < 0) {
    return -1;
  }
  const std::string pending = PendingContentPath(domain_idx, stored);
  if (rename(pending.c_str(), PATHS::DisclaimerContent(domain_idx).c_str()) != 0 &&
      errno != ENOENT) {
    return -1;
  }
  const std::string prefix = "domain-" + std::to_string(domain_idx) + ".";
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(PATHS::DisclaimerDir(), names) < 0) {
    return errno == ENOENT ? 0 : -1;
  }
  for (const std::string& name : names) {
    if (name.compare(0, prefix.size(), prefix) == 0) {
      postara::sdk::Unlink(PATHS::DisclaimerDir() + "/" + name);
    }
  }
  return 0;
}

// `text` is the list as stored, which tells whether a cut-off replacement's texts are the right
// ones.
int MergeContents(int domain_idx, const std::string& text, Json::Value& list) {
  std::string bytes;
  // Not asked for first: the writer may rename it in between.
  int result = korvmailserver::ReadFile(PendingContentPath(domain_idx, text), bytes);
  if (result < 0 && errno == ENOENT) {
    result = korvmailserver::ReadFile(PATHS::DisclaimerContent(domain_idx), bytes);
  }
  if (result < 0) {
    if (errno == ENOENT) {
      LOG_ERROR("disclaimer content file not exist, domain_id[%d]", domain_idx);
      return 0;
    }
    LOG_ERROR("fail to open disclaimer content file, domain_id[%d]", domain_idx);
    return -1;
  }
  Json::Value contents;
  if (!ParseJson(bytes, contents) || !IsArrayOfObjects(contents)) {
    LOG_ERROR("disclaimer content parse failed, domain_id[%d]", domain_idx);
    return -1;
  }
  std::map<Json::Value, const Json::Value*> by_id;
  for (const Json::Value& content : contents) {
    by_id.emplace(content["id"], &content);
  }
  for (Json::Value& disclaimer : list) {
    const auto found = disclaimer.isMember("id") ? by_id.find(disclaimer["id"]) : by_id.end();
    if (found == by_id.end()) {
      continue;
    }
    for (const char* member : kTextMembers) {
      disclaimer[member] = (*found->second)[member];
    }
  }
  return 0;
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
  if (!ParseStoredList(text, list)) {
    LOG_ERROR("Failed to get disclamer, domain_id[%d]", domain_idx);
    return true;
  }
  return std::any_of(list.begin(), list.end(), [](const Json::Value& disclaimer) {
    return disclaimer["enabled"] == Json::Value(true);
  });
}

}  // namespace

namespace MDOMAIN::API::INTERNAL {

int ComposeList(int domain_idx, const std::string& text, Json::Value& list) {
  Json::Value stored;
  if (!ParseStoredList(text, stored)) {
    LOG_ERROR("Failed to get disclamer, domain_id[%d]", domain_idx);
    return -1;
  }
  if (!stored.empty() && MergeContents(domain_idx, text, stored) < 0) {
    return -1;
  }
  list = stored;
  return 0;
}

}  // namespace MDOMAIN::API::INTERNAL

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
  if (!IsArrayOfObjects(list)) {
    LOG_ERROR("Failed to set Config");
    return -1;
  }
  Json::Value stripped = list;
  const Json::Value contents = TakeContents(stripped);
  const std::string text = WriteList(stripped);
  const std::string pending = PendingContentPath(domain_idx, text);
  if (SettlePendingContents(domain_idx) < 0) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  if (WriteContents(pending, contents) < 0) {
    return -1;
  }
  if (mailConfSet(DisclaimerListKey(domain_idx), text, true, 0) < 0) {
    LOG_ERROR("Failed to set Config");
    postara::sdk::Unlink(pending);
    return -1;
  }
  if (rename(pending.c_str(), PATHS::DisclaimerContent(domain_idx).c_str()) != 0) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  return PublishContents(domain_idx);
}

int MimeDefang::SeparateContentFromDisclaimer(int domain_idx, Json::Value& list) {
  if (!IsArrayOfObjects(list)) {
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  Json::Value stripped = list;
  const Json::Value contents = TakeContents(stripped);
  if (WriteContents(PATHS::DisclaimerContent(domain_idx), contents) < 0 ||
      PublishContents(domain_idx) < 0) {
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
  if (!ListAllDomains(domains)) {
    LOG_ERROR("get domain list failed");
    return -1;
  }
  std::map<int, std::string> texts;
  if (!ReadStoredTexts(domains, texts)) {
    return -1;
  }
  mimedefang_enable_ =
      std::any_of(texts.begin(), texts.end(),
                  [](const auto& text) { return HasEnabledDisclaimer(text.first, text.second); }) ||
      std::any_of(std::begin(kOtherFilterParts), std::end(kOtherFilterParts),
                  [](const char* key) { return mailConfCheckKeyValue(key, "yes"); });
  return 0;
}
