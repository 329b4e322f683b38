// Reads through the controls, writes through the registry's store, compares in memory: a million
// addresses are a few hundred megabytes for the seconds that this takes.
#include "lib-domain/utils/owner_registry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/email_owner.h"
#include "lib-domain/db/reader.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"

namespace MDOMAIN::UTILS {
namespace {

constexpr const char* kSelectDomains = "SELECT domain_name, domain_idx FROM domain_part";
constexpr const char* kSelectLocalParts =
    "SELECT local_part, domain_idx, user_name FROM local_part";

std::string Key(const std::string& text, int domain_idx) {
  return std::to_string(domain_idx) + "/" + BASE::ToLowerAscii(text);
}

void AddName(const std::string& name, int domain_idx, OwnerRegistryContent& content) {
  content.domains.emplace_back(name, domain_idx);
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) >= 0 && other != name) {
    content.domains.emplace_back(other, domain_idx);
  }
}

bool CollectDomains(OwnerRegistryContent& content, std::vector<int>& domain_idxs) {
  CONTROL::Domain control;
  DB::DomainDBFilter filter;
  filter.SetLimit(-1);
  std::vector<RECORD::Domain> domains;
  std::map<int, std::vector<std::string>> names;
  if (!control.List(filter, domains) || !control.ListAllAdditionalDomains(names)) {
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
    AddName(domain.GetDomainName(), domain.GetDomainIdx(), content);
    for (const std::string& name : names[domain.GetDomainIdx()]) {
      AddName(name, domain.GetDomainIdx(), content);
    }
  }
  return true;
}

// Aliases that are not flagged come first, so that they win over those that collide with them.
void AddAliases(const std::vector<RECORD::DomainUser>& users, bool flagged,
                std::unordered_set<std::string>& seen, OwnerRegistryContent& content) {
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
      if (duplicated == flagged && seen.insert(Key(alias, user.GetDomainIdx())).second) {
        content.local_parts.emplace_back(alias, user.GetDomainIdx(), user.GetUserName());
      }
    }
  }
}

bool WriteRegistry(const std::string& path, const OwnerRegistryContent& content) {
  DB::EmailOwner registry(path);
  BatchScope scope(&registry);
  return registry.CreateDomainPart(content.domains) &&
         registry.CreateLocalPart(content.local_parts) && scope.Commit() == 0;
}

// A journal beside the old file belongs to a writer, or to one that crashed; SQLite would play it
// into whatever file has the name next. Reading the old file once clears what a crash left.
bool IsJournalGone(const std::string& path) {
  const std::string journal = path + "-journal";
  if (!postara::sdk::Exist(journal)) {
    return true;
  }
  std::string ignored;
  DB::EmailOwner(path).GetOwner("", "", ignored);
  return !postara::sdk::Exist(journal);
}

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

void SyncFolderOf(const std::string& path) {
  const int fd = open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
}

}  // namespace

bool CollectOwners(OwnerRegistryContent& content) {
  content = OwnerRegistryContent();
  std::vector<int> domain_idxs;
  if (!CollectDomains(content, domain_idxs)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  if (domain_idxs.empty()) {
    return true;
  }
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs(domain_idxs);
  filter.SetLimit(-1);
  std::vector<RECORD::DomainUser> users;
  if (!CONTROL::DomainUser().List(filter, users)) {
    LOG_ERROR("Failed to List all domain users");
    return false;
  }
  std::unordered_set<std::string> seen;
  AddAliases(users, false, seen, content);
  AddAliases(users, true, seen, content);
  return true;
}

bool ReplaceOwnerRegistry(const std::string& path, const OwnerRegistryContent& content) {
  const std::string fresh = path + ".new";
  postara::sdk::Unlink(fresh);
  postara::sdk::Unlink(fresh + "-journal");
  if (!WriteRegistry(fresh, content)) {
    LOG_ERROR("Failed to write %s", fresh.c_str());
    postara::sdk::Unlink(fresh);
    return false;
  }
  if (!IsJournalGone(path)) {
    LOG_ERROR("Failed to replace %s, another program is writing it", path.c_str());
    postara::sdk::Unlink(fresh);
    return false;
  }
  if (std::rename(fresh.c_str(), path.c_str()) != 0) {
    LOG_ERROR("Failed to replace %s, %m", path.c_str());
    postara::sdk::Unlink(fresh);
    return false;
  }
  SyncFolderOf(path);
  return true;
}

bool FindStaleOwners(const std::string& path, const OwnerRegistryContent& content,
                     OwnerRegistryContent& stale) {
  stale = OwnerRegistryContent();
  std::unordered_set<std::string> domains;
  for (const RECORD::DomainPart& part : content.domains) {
    domains.insert(Key(part.GetDomainName(), part.GetDomainIdx()));
  }
  std::unordered_map<std::string, std::string> owners;
  for (const RECORD::LocalPart& part : content.local_parts) {
    owners.emplace(Key(part.GetLocalPart(), part.GetDomainIdx()), part.GetUserName());
  }
  auto check_domain = [&](const std::vector<std::string>& row) {
    int idx = 0;
    if (row.size() == 2 && BASE::ConvertToInt(row[1], idx) &&
        domains.count(Key(row[0], idx)) == 0) {
      stale.domains.emplace_back(row[0], idx);
    }
  };
  auto check_local_part = [&](const std::vector<std::string>& row) {
    int idx = 0;
    if (row.size() != 3 || !BASE::ConvertToInt(row[1], idx)) {
      return;
    }
    const auto owner = owners.find(Key(row[0], idx));
    if (owner == owners.end() || owner->second != row[2]) {
      stale.local_parts.emplace_back(row[0], idx, row[2]);
    }
  };
  DB::INTERNAL::Reader reader(path);
  return reader.Open() && reader.ForEachRow(kSelectDomains, check_domain) &&
         reader.ForEachRow(kSelectLocalParts, check_local_part);
}

}  // namespace MDOMAIN::UTILS
