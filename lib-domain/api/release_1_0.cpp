// What programs call that were compiled against release 1.0.0, whose updaters and contents of the
// registry of owners have fewer members: their objects are read and written as they lie, and the
// work is done by objects of today. No header declares any of it.
#include "lib-domain/api/updater.h"

#include <map>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/sync/owner_registry.h"
#include "lib-domain/sync/preview.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN {

namespace UTILS {

struct RefreshSummary10 {
  bool users_complete = false;
  bool groups_complete = false;
  size_t users = 0;
  size_t groups = 0;
  std::vector<std::string> new_users;
  std::vector<std::string> new_groups;
  std::vector<unsigned int> deleted_uids;
  std::vector<unsigned int> deleted_gids;
};

static RefreshSummary10 Summary10(const RefreshSummary& found) {
  return {found.users_complete, found.groups_complete, found.users,        found.groups,
          found.new_users,      found.new_groups,      found.deleted_uids, found.deleted_gids};
}

MDOMAIN_EXPORT bool PreviewRefresh10(RefreshSummary10& summary) __asm__(
    "_ZN7MDOMAIN5UTILS14PreviewRefreshERNS0_14RefreshSummaryE");

bool PreviewRefresh10(RefreshSummary10& summary) {
  RefreshSummary found;
  const bool is_read = PreviewRefresh(found);
  summary = Summary10(found);
  return is_read;
}

class MDOMAIN_EXPORT Updater10 {
 public:
  bool Refresh() __asm__("_ZN7MDOMAIN5UTILS7Updater7RefreshEv");
  bool Trigger() __asm__("_ZN7MDOMAIN5UTILS7Updater7TriggerEv");
  bool InitDBIfNotExists() __asm__("_ZN7MDOMAIN5UTILS7Updater17InitDBIfNotExistsEv");
  bool AutoAddNewUsers(const std::vector<int>& domain_idxs) __asm__(
      "_ZN7MDOMAIN5UTILS7Updater15AutoAddNewUsersERKSt6vectorIiSaIiEE");
  bool RemoveUnnecessaryAutoAddedUserRole() __asm__(
      "_ZN7MDOMAIN5UTILS7Updater34RemoveUnnecessaryAutoAddedUserRoleEv");

 protected:
  // What `work` does with an updater of today goes on from this one and back into it.
  template <typename Now, typename Work>
  bool _Run(Now& now, const Work& work) {
    Updater& common = now;
    common.new_uids_ = new_uids_;
    common.new_groups_ = new_groups_;
    RefreshSummary& found = common.summary_;
    found.users_complete = summary_.users_complete;
    found.groups_complete = summary_.groups_complete;
    found.users = summary_.users;
    found.groups = summary_.groups;
    found.new_users = summary_.new_users;
    found.new_groups = summary_.new_groups;
    found.deleted_uids = summary_.deleted_uids;
    found.deleted_gids = summary_.deleted_gids;
    const postara::ScopeGuard keep([&] {
      new_uids_ = common.new_uids_;
      new_groups_ = common.new_groups_;
      summary_ = Summary10(found);
    });
    return work(now);
  }

 private:
  std::unordered_set<unsigned int> new_uids_;
  std::vector<RECORD::Group> new_groups_;
  RefreshSummary10 summary_;
};

bool Updater10::Refresh() {
  Updater now;
  return _Run(now, [](Updater& one) { return one.Refresh(); });
}
bool Updater10::Trigger() {
  Updater now;
  return _Run(now, [](Updater& one) { return one.Trigger(); });
}
bool Updater10::InitDBIfNotExists() {
  Updater now;
  return _Run(now, [](Updater& one) { return one.InitDBIfNotExists(); });
}
bool Updater10::AutoAddNewUsers(const std::vector<int>& domain_idxs) {
  Updater now;
  return _Run(now, [&](Updater& one) { return one.AutoAddNewUsers(domain_idxs); });
}
bool Updater10::RemoveUnnecessaryAutoAddedUserRole() {
  Updater now;
  return _Run(now, [](Updater& one) { return one.RemoveUnnecessaryAutoAddedUserRole(); });
}

struct OwnerRegistryContent10 {
  std::vector<RECORD::DomainPart> domains;
  std::vector<RECORD::LocalPart> local_parts;
};

MDOMAIN_EXPORT bool CollectOwners10(OwnerRegistryContent10& content) __asm__(
    "_ZN7MDOMAIN5UTILS13CollectOwnersERNS0_20OwnerRegistryContentE");
MDOMAIN_EXPORT bool
ReplaceOwnerRegistry10(const std::string& path, const OwnerRegistryContent10& content) __asm__(
    "_ZN7MDOMAIN5UTILS20ReplaceOwnerRegistryERKNSt7__"
    "cxx1112basic_stringIcSt11char_traitsIcESaIcEEERK"
    "NS0_20OwnerRegistryContentE");
MDOMAIN_EXPORT bool
FindStaleOwners10(const std::string& path, const OwnerRegistryContent10& content, OwnerRegistryContent10& stale) __asm__(
    "_ZN7MDOMAIN5UTILS15FindStaleOwnersERKNSt7__cxx1112basic_"
    "stringIcSt11char_traitsIcESaIcEEERKNS0_20OwnerRegistryContentERS9_");

bool CollectOwners10(OwnerRegistryContent10& content) {
  OwnerRegistryContent now;
  const bool is_read = CollectOwners(now);
  content = {std::move(now.domains), std::move(now.local_parts)};
  return is_read;
}

bool ReplaceOwnerRegistry10(const std::string& path, const OwnerRegistryContent10& content) {
  return ReplaceOwnerRegistry(path, OwnerRegistryContent{content.domains, content.local_parts, 0});
}

// Rows of the registry that are not in `content`.
bool FindStaleOwners10(const std::string& path, const OwnerRegistryContent10& content,
                       OwnerRegistryContent10& stale) {
  using Key = std::pair<int, std::string>;
  stale = {};
  std::set<Key> domains;
  for (const RECORD::DomainPart& part : content.domains) {
    domains.emplace(part.GetDomainIdx(), BASE::ToLowerAscii(part.GetDomainName()));
  }
  std::map<Key, std::string> owners;
  for (const RECORD::LocalPart& part : content.local_parts) {
    owners.emplace(Key(part.GetDomainIdx(), BASE::ToLowerAscii(part.GetLocalPart())),
                   part.GetUserName());
  }
  int idx = 0;
  const auto check_domain = [&](const korvmailserver::Statement& row) {
    if (BASE::ConvertToInt(row.Text(1), idx) &&
        domains.count({idx, BASE::ToLowerAscii(row.Text(0))}) == 0) {
      stale.domains.emplace_back(row.Text(0), idx);
    }
  };
  const auto check_local_part = [&](const korvmailserver::Statement& row) {
    if (BASE::ConvertToInt(row.Text(1), idx)) {
      const auto owner = owners.find({idx, BASE::ToLowerAscii(row.Text(0))});
      if (owner == owners.end() || owner->second != row.Text(2)) {
        stale.local_parts.emplace_back(row.Text(0), idx, row.Text(2));
      }
    }
  };
  DB::INTERNAL::Reader reader(path);
  return reader.Open() &&
         reader.ForEachRow("SELECT domain_name, domain_idx FROM domain_part", check_domain) &&
         reader.ForEachRow("SELECT local_part, domain_idx, user_name FROM local_part",
                           check_local_part);
}

}  // namespace UTILS

namespace API {

class MDOMAIN_EXPORT Updater10 : public UTILS::Updater10 {
 public:
  bool Refresh() __asm__("_ZN7MDOMAIN3API7Updater7RefreshEv");
  bool InitDBIfNotExists() __asm__("_ZN7MDOMAIN3API7Updater17InitDBIfNotExistsEv");
  bool Trigger() __asm__("_ZN7MDOMAIN3API7Updater7TriggerEv");

 private:
  bool _RunAndTell(bool (Updater::*operation)());

  unsigned int error_code_ = 0;
};

// A success leaves the number of an earlier exception.
bool Updater10::_RunAndTell(bool (Updater::*operation)()) {
  Updater now;
  const bool is_done = _Run(now, [operation](Updater& one) { return (one.*operation)(); });
  if (now.GetErrorCode() != 0) {
    error_code_ = now.GetErrorCode();
  }
  return is_done;
}

bool Updater10::Refresh() {
  return _RunAndTell(&Updater::Refresh);
}
bool Updater10::InitDBIfNotExists() {
  return _RunAndTell(&Updater::InitDBIfNotExists);
}
bool Updater10::Trigger() {
  return _RunAndTell(&Updater::Trigger);
}

}  // namespace API

}  // namespace MDOMAIN
