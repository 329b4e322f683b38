// Order of a replacement: the new texts beside the old ones under a name that is tied to the new
// list, the list, the rename. A reader that finds texts tied to the list it read takes those, and
// the next replacement first finishes one that was cut off before its rename.
#include "lib-domain/api/disclaimer/content.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>

#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;

namespace MDOMAIN::API::INTERNAL {

namespace {

// The mail service's own: rules and texts name people, and Postfix does not read them.
constexpr mode_t kFileMode = 0640;
constexpr const char* kTextMembers[] = {"content_html", "content_txt"};

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

// One text for an id and any spelling of its number, so that 7 and "007" are one disclaimer's.
std::string IdKey(const Json::Value& id) {
  int number = 0;
  if (id.isInt()) {
    return std::to_string(id.asInt());
  }
  if (id.isString() && BASE::ConvertToInt(id.asString(), number)) {
    return std::to_string(number);
  }
  return WriteJson(id);
}

}  // namespace

std::string PendingContentPath(int domain_idx, const std::string& list_text) {
  return PATHS::DisclaimerContent(domain_idx) + "." + Fingerprint(list_text);
}

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
  if (korvmailserver::MakeServiceFolder(PATHS::DisclaimerDir(), kFolderMode) !=
          korvmailserver::FolderResult::kDone ||
      korvmailserver::ReplaceFile(path, WriteJson(contents), kFileMode) < 0 ||
      mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount, kFileMode) < 0) {
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
  std::map<std::string, const Json::Value*> by_id;
  for (const Json::Value& content : contents) {
    by_id.emplace(IdKey(content["id"]), &content);
  }
  for (Json::Value& disclaimer : list) {
    const auto found =
        disclaimer.isMember("id") ? by_id.find(IdKey(disclaimer["id"])) : by_id.end();
    if (found == by_id.end()) {
      continue;
    }
    for (const char* member : kTextMembers) {
      disclaimer[member] = (*found->second)[member];
    }
  }
  return 0;
}

int ComposeList(int domain_idx, const std::string& text, Json::Value& list) {
  Json::Value stored;
  if (!ParseStoredList(domain_idx, text, stored)) {
    return -1;
  }
  if (!stored.empty() && MergeContents(domain_idx, text, stored) < 0) {
    return -1;
  }
  list = stored;
  return 0;
}

}  // namespace MDOMAIN::API::INTERNAL
