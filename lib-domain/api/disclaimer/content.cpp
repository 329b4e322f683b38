// A reader that finds texts tied to the list that it read takes those (pending_content.h).
#include "lib-domain/api/disclaimer/content.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>

#include "lib-domain/api/disclaimer/pending_content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"

using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;

namespace MDOMAIN::API::INTERNAL {

namespace {

// The mail service's own: rules and texts name people, and Postfix does not read them.
constexpr mode_t kFileMode = 0640;
constexpr const char* kTextMembers[] = {"content_html", "content_txt"};

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
      korvmailserver::ReplaceFile(path, WriteJson(contents), kFileMode) < 0) {
    LOG_ERROR("Failed to write [%s], %m", path.c_str());
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  if (mailFileOwnerModeSet(path.c_str(), korvmailserver::kServiceAccount, kFileMode) < 0) {
    LOG_ERROR("Failed to set the owner of [%s], %m", path.c_str());
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  return 0;
}

bool AreContentsInPlace(int domain_idx, const Json::Value& contents) {
  const std::string path = PATHS::DisclaimerContent(domain_idx);
  struct stat info {};
  std::string bytes;
  if (lstat(path.c_str(), &info) != 0 || info.st_mode != (S_IFREG | kFileMode) ||
      korvmailserver::ReadFile(path, bytes) != 0 || bytes != WriteJson(contents)) {
    return false;
  }
  korvmailserver::MendServiceFile(path, kFileMode);
  return true;
}

std::string ContentKey(int domain_idx) {
  return "sync_disclaimer_content_file-" + std::to_string(domain_idx);
}

int PublishContents(int domain_idx) {
  const std::string path = PATHS::DisclaimerContent(domain_idx);
  if (!PostaraServerBACKENDWrap::setFile(ContentKey(domain_idx), path)) {
    LOG_ERROR("Fail to set file %s", path.c_str());
    return -1;
  }
  return 0;
}

int MergeContents(int domain_idx, const std::string& text, Json::Value& list) {
  std::string bytes;
  // Not asked for first: the writer may rename it in between.
  std::string path = PendingContentPath(domain_idx, text);
  int result = korvmailserver::ReadFile(path, bytes);
  if (result < 0 && errno == ENOENT) {
    path = PATHS::DisclaimerContent(domain_idx);
    result = korvmailserver::ReadFile(path, bytes);
  }
  if (result < 0) {
    if (errno == ENOENT) {
      LOG_ERROR("disclaimer content file not exist, domain_id[%d]", domain_idx);
      return 0;
    }
    LOG_ERROR("Failed to read [%s], %m", path.c_str());
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
