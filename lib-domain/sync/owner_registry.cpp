// Reads through the controls, writes through the registry's store; in between all of it is in
// memory: a million addresses are a few hundred megabytes for the seconds that this takes.
#include "lib-domain/sync/owner_registry.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/email_owner.h"
#include "lib-domain/db/owner_update.h"
#include "lib-domain/sync/owner_content.h"
#include "platform/include/batch_scope.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"
#include "platform/include/new_file.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS {

using korvmailserver::Connection;
using korvmailserver::kServiceAccount;
using korvmailserver::NewFile;

namespace {

constexpr int kBusyMilliseconds = 10000;
constexpr mode_t kMode = 0644;
constexpr mode_t kFolderMode = 0755;

std::string Key(const std::string& text, int domain_idx) {
  return std::to_string(domain_idx) + "/" + BASE::ToLowerAscii(text);
}

bool CollectDomains(std::vector<RECORD::DomainPart>& found, std::vector<int>& domain_idxs) {
  std::vector<RECORD::Domain> domains;
  std::map<int, std::vector<std::string>> names;
  if (!DB::Domain().ListNames(domains) || !CONTROL::Domain().ListAllAdditionalDomains(names)) {
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
    AddDomainName(domain.GetDomainName(), domain.GetDomainIdx(), found);
    for (const std::string& name : names[domain.GetDomainIdx()]) {
      AddDomainName(name, domain.GetDomainIdx(), found);
    }
  }
  return true;
}

// Aliases that are not flagged come first, so that they win over those that collide with them.
void AddAliases(const std::vector<RECORD::DomainUser>& users, bool flagged,
                std::unordered_set<std::string>& seen, OwnerRegistryContent& content) {
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
      if (!user.GetRole().empty() && duplicated == flagged &&
          seen.insert(Key(alias, user.GetDomainIdx())).second) {
        content.local_parts.emplace_back(alias, user.GetDomainIdx(), user.GetUserName());
      }
    }
  }
}

// In the order of the registry's key, in which a row is quickly added or found again.
void Sort(std::vector<RECORD::LocalPart>& parts) {
  std::sort(parts.begin(), parts.end(), [](const auto& a, const auto& b) {
    const int order = a.GetLocalPart().compare(b.GetLocalPart());
    return order != 0 ? order < 0 : a.GetDomainIdx() < b.GetDomainIdx();
  });
}

enum class Collected { kAll, kUnclear, kFailed };

// The addresses of the parts, ASCII case ignored, found by hash: a set of their texts would take
// several times as much memory and, above all, misses of the processor's cache.
class Addresses {
 public:
  explicit Addresses(const std::vector<RECORD::LocalPart>& parts) : parts_(parts) {
    places_.reserve(parts.size());
    for (size_t i = 0; i < parts.size(); ++i) {
      places_.emplace_back(_HashOf(parts[i]), i);
    }
    std::sort(places_.begin(), places_.end());
  }
  // Two of one hash count as equal.
  bool MayRepeat() const {
    return std::adjacent_find(places_.begin(), places_.end(), [](const Place& a, const Place& b) {
             return a.first == b.first;
           }) != places_.end();
  }
  bool Has(const RECORD::LocalPart& part) const {
    const size_t hash = _HashOf(part);
    auto place = std::lower_bound(places_.begin(), places_.end(), Place(hash, 0));
    while (place != places_.end() && place->first == hash &&
           _KeyOf(parts_[place->second]) != _KeyOf(part)) {
      ++place;
    }
    return place != places_.end() && place->first == hash;
  }

 private:
  using Place = std::pair<size_t, size_t>;
  static std::string _KeyOf(const RECORD::LocalPart& part) {
    return Key(part.GetLocalPart(), part.GetDomainIdx());
  }
  static size_t _HashOf(const RECORD::LocalPart& part) {
    return std::hash<std::string>()(_KeyOf(part));
  }

  const std::vector<RECORD::LocalPart>& parts_;
  std::vector<Place> places_;
};

// With one read, row by row. kUnclear where the listing's own order of users, which is not that of
// their uids, decides: an address is unflagged twice, or a flag is neither 0 nor 1.
Collected CollectAliases(const std::vector<int>& domain_idxs, OwnerRegistryContent& content) {
  using Flag = DB::DomainUser::AliasFlag;
  std::vector<RECORD::LocalPart> plain;
  std::vector<RECORD::LocalPart> flagged;
  bool is_clear = true;
  const auto keep = [&](int domain_idx, std::string&& user_name, std::string&& alias, Flag flag) {
    if (flag == Flag::kPlain || flag == Flag::kFlagged) {
      (flag == Flag::kFlagged ? flagged : plain).emplace_back(alias, domain_idx, user_name);
    }
    return is_clear = flag != Flag::kOther;
  };
  if (!DB::DomainUser().ForEachAlias(domain_idxs, keep)) {
    return Collected::kFailed;
  }
  const Addresses unflagged(plain);
  if (!is_clear || unflagged.MayRepeat()) {
    return Collected::kUnclear;
  }
  std::unordered_set<std::string> seen;
  std::vector<RECORD::LocalPart> wanted;
  for (RECORD::LocalPart& part : flagged) {
    if (!unflagged.Has(part) && seen.insert(Key(part.GetLocalPart(), part.GetDomainIdx())).second) {
      wanted.push_back(std::move(part));
    }
  }
  content.local_parts = std::move(plain);
  std::move(wanted.begin(), wanted.end(), std::back_inserter(content.local_parts));
  return Collected::kAll;
}

bool CollectInListedOrder(const std::vector<int>& domain_idxs, OwnerRegistryContent& content) {
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs(domain_idxs);
  filter.SetLimit(-1);
  std::vector<RECORD::DomainUser> users;
  if (!CONTROL::DomainUser().List(filter, users)) {
    return false;
  }
  std::unordered_set<std::string> seen;
  AddAliases(users, false, seen, content);
  AddAliases(users, true, seen, content);
  return true;
}

bool MakeFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  return postara::sdk::Exist(folder) || korvmailserver::MakeServiceFolder(folder, kFolderMode) ==
                                            korvmailserver::FolderResult::kDone;
}

// The empty file under a name of its own, with the owner that every database has.
bool MakeFile(const std::string& path, NewFile& file) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    LOG_ERROR("Failed to make a new %s, there is no account %s", path.c_str(), kServiceAccount);
    return false;
  }
  if (!MakeFolderOf(path) || !file.Open() || !file.SetOwner(uid, gid)) {
    LOG_ERROR("Failed to make a new %s, %m", path.c_str());
    return false;
  }
  return true;
}

bool WriteRegistry(const std::string& path, const OwnerRegistryContent& content) {
  DB::EmailOwner registry(path);
  BatchScope scope(&registry);
  const std::string remember = "PRAGMA user_version = " + std::to_string(content.built_from);
  return registry.CreateDomainPart(content.domains) &&
         registry.CreateLocalPart(content.local_parts) && registry.exeCmds({remember}, true) == 0 &&
         scope.Commit() == 0;
}

// Keeps writers from the old file as long as it lives. A journal beside the file belongs to a
// writer, or to one that crashed, and SQLite would play it into whatever file has the name next.
// SQLite refuses a writer that waits for the lock once the file has lost its name.
class WriterLock {
 public:
  explicit WriterLock(const std::string& path) : path_(path), journal_(path + "-journal") {
    do {
      _Take();
    } while (_IsReplaced());  // by another builder, for whom this one waited
  }
  // False while another program writes. Taking the lock cleared what a crash left. A file that is
  // no database cannot be locked, and nobody can be writing it.
  bool IsHeld() const { return !is_busy_ && !postara::sdk::Exist(journal_); }

 private:
  void _Take() {
    if (old_.Open(path_, Connection::Mode::kWrite, kBusyMilliseconds) == SQLITE_OK) {
      is_busy_ = old_.Run("BEGIN IMMEDIATE") == SQLITE_BUSY;
    } else if (!postara::sdk::Exist(path_)) {
      postara::sdk::Unlink(journal_);
    }
  }
  bool _IsReplaced() const {
    int has_moved = 0;
    return old_.Get() != nullptr &&
           sqlite3_file_control(old_.Get(), "main", SQLITE_FCNTL_HAS_MOVED, &has_moved) ==
               SQLITE_OK &&
           has_moved != 0 && postara::sdk::Exist(path_);
  }

  std::string path_;
  std::string journal_;
  Connection old_;
  bool is_busy_ = false;
};

}  // namespace

void AddDomainName(const std::string& name, int domain_idx,
                   std::vector<RECORD::DomainPart>& names) {
  names.emplace_back(name, domain_idx);
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) >= 0 && other != name) {
    names.emplace_back(other, domain_idx);
  }
}

bool CollectDomainNames(std::vector<RECORD::DomainPart>& names) {
  std::vector<int> domain_idxs;
  return CollectDomains(names, domain_idxs);
}

bool CollectOwnersOf(const std::vector<int>& domain_idxs, std::vector<RECORD::LocalPart>& owners,
                     bool& is_clear) {
  OwnerRegistryContent content;
  const Collected collected = CollectAliases(domain_idxs, content);
  is_clear = collected == Collected::kAll;
  owners.insert(owners.end(), content.local_parts.begin(), content.local_parts.end());
  return collected != Collected::kFailed;
}

bool CollectOwners(OwnerRegistryContent& content) {
  content = OwnerRegistryContent();
  if (!DB::GetChangeCounter(content.built_from)) {  // first: a change in between makes it stale
    return false;
  }
  std::vector<int> domain_idxs;
  if (!CollectDomains(content.domains, domain_idxs)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  if (domain_idxs.empty()) {
    return true;
  }
  Collected collected = CollectAliases(domain_idxs, content);
  if (collected == Collected::kUnclear) {
    content.local_parts.clear();
    collected = CollectInListedOrder(domain_idxs, content) ? Collected::kAll : Collected::kFailed;
  }
  if (collected == Collected::kFailed) {
    LOG_ERROR("Failed to List all domain users");
    return false;
  }
  Sort(content.local_parts);
  return true;
}

bool ReplaceOwnerRegistry(const std::string& path, const OwnerRegistryContent& content) {
  if (DB::INTERNAL::UpdateOwners(path, content.domains, content.local_parts, content.built_from)) {
    return true;
  }
  NewFile fresh(path);
  if (!MakeFile(path, fresh)) {
    return false;
  }
  if (!WriteRegistry(fresh.Beside(), content)) {
    LOG_ERROR("Failed to write a new %s", path.c_str());
    return false;
  }
  const WriterLock lock(path);
  if (!lock.IsHeld()) {
    LOG_ERROR("Failed to replace %s, another program is writing it", path.c_str());
    return false;
  }
  if (!fresh.Replace(kMode)) {
    LOG_ERROR("Failed to replace %s, %m", path.c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
