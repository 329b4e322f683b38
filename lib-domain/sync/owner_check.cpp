// The registry of address owners beside the domain database, row by row: each owner is looked up by
// an index. Where the order of all users decides, everything is collected instead.
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/owner_registry.h"

namespace MDOMAIN::UTILS {

using DB::INTERNAL::FoundOwner;
using korvmailserver::Statement;

namespace {

constexpr const char* kBegin = "BEGIN";  // both passes are of one moment
constexpr const char* kSelectDomains = "SELECT domain_name, domain_idx FROM domain_part";
constexpr const char* kSelectLocalParts =
    "SELECT local_part, domain_idx, user_name FROM local_part";

std::string Key(const std::string& text, int domain_idx) {
  return std::to_string(domain_idx) + "/" + BASE::ToLowerAscii(text);
}

class Registry {
 public:
  explicit Registry(const std::string& path) : reader_(path) {}

  bool Open() {
    return reader_.Open() && reader_.ForEachRow(kBegin, [](const Statement& /*row*/) {});
  }

  bool ForEachDomain(const std::function<void(const RECORD::DomainPart& part)>& use) const {
    return reader_.ForEachRow(kSelectDomains, [&use](const Statement& row) {
      int idx = 0;
      if (BASE::ConvertToInt(row.Text(1), idx)) {
        use({row.Text(0), idx});
      }
    });
  }

  // Remembers the rows for which `is_stale` is true: a bit for each row, however many they are.
  bool MarkLocalParts(const std::function<bool(const RECORD::LocalPart& part)>& is_stale) {
    marked_.clear();
    BASE::Progress progress("comparing addresses", 0);
    return reader_.ForEachRow(kSelectLocalParts, [&](const Statement& row) {
      progress.Step();
      int idx = 0;
      marked_.push_back(BASE::ConvertToInt(row.Text(1), idx) &&
                        is_stale({row.Text(0), idx, row.Text(2)}));
    });
  }

  bool ForEachMarked(const std::function<void(const RECORD::LocalPart& part)>& use) const {
    size_t row_number = 0;
    return reader_.ForEachRow(kSelectLocalParts, [&](const Statement& row) {
      int idx = 0;
      if (marked_[row_number++] && BASE::ConvertToInt(row.Text(1), idx)) {
        use({row.Text(0), idx, row.Text(2)});
      }
    });
  }

 private:
  DB::INTERNAL::Reader reader_;
  std::vector<bool> marked_;
};

enum class Marked { kAll, kUnclear, kModelUnread, kRegistryUnread };

// By the library's own indexes. kUnclear also without them, and where they do not find what a
// comparison of the texts finds.
Marked MarkByLookUp(const std::set<int>& domain_idxs, Registry& registry) {
  bool are_texts = false;
  if (!DB::INTERNAL::CanLookUp()) {
    return Marked::kUnclear;
  }
  const DB::ReadScope of_one_moment;
  if (!DB::INTERNAL::AreAliasesTexts(are_texts)) {
    return Marked::kModelUnread;
  }
  FoundOwner found = are_texts ? FoundOwner::kTold : FoundOwner::kUnclear;
  const auto is_stale = [&](const RECORD::LocalPart& part) {
    if (found != FoundOwner::kTold || domain_idxs.count(part.GetDomainIdx()) == 0) {
      return true;
    }
    std::optional<std::string> owner;
    found = DB::INTERNAL::FindOwner(part.GetDomainIdx(), part.GetLocalPart(), owner);
    return owner != part.GetUserName();
  };
  if (found == FoundOwner::kTold && !registry.MarkLocalParts(is_stale)) {
    return Marked::kRegistryUnread;
  }
  return found == FoundOwner::kTold      ? Marked::kAll
         : found == FoundOwner::kUnclear ? Marked::kUnclear
                                         : Marked::kModelUnread;
}

Marked MarkByContent(Registry& registry) {
  OwnerRegistryContent content;
  if (!CollectOwners(content)) {
    return Marked::kModelUnread;
  }
  std::unordered_map<std::string, std::string> owners;
  for (const RECORD::LocalPart& part : content.local_parts) {
    owners.emplace(Key(part.GetLocalPart(), part.GetDomainIdx()), part.GetUserName());
  }
  const auto is_stale = [&owners](const RECORD::LocalPart& part) {
    const auto owner = owners.find(Key(part.GetLocalPart(), part.GetDomainIdx()));
    return owner == owners.end() || owner->second != part.GetUserName();
  };
  return registry.MarkLocalParts(is_stale) ? Marked::kAll : Marked::kRegistryUnread;
}

}  // namespace

OwnerCheck FindStaleOwners(
    const std::string& path, const std::function<void(const RECORD::DomainPart& part)>& use_domain,
    const std::function<void(const RECORD::LocalPart& part)>& use_local_part) {
  std::vector<RECORD::DomainPart> names;
  if (!CollectDomainNames(names)) {
    LOG_ERROR("Failed to List domains");
    return OwnerCheck::kModelUnread;
  }
  std::set<int> domain_idxs;
  std::unordered_set<std::string> known;
  for (const RECORD::DomainPart& part : names) {
    domain_idxs.insert(part.GetDomainIdx());
    known.insert(Key(part.GetDomainName(), part.GetDomainIdx()));
  }
  Registry registry(path);
  const auto check_domain = [&](const RECORD::DomainPart& part) {
    if (known.count(Key(part.GetDomainName(), part.GetDomainIdx())) == 0) {
      use_domain(part);
    }
  };
  if (!registry.Open() || !registry.ForEachDomain(check_domain)) {
    return OwnerCheck::kRegistryUnread;
  }
  Marked marked = MarkByLookUp(domain_idxs, registry);
  if (marked == Marked::kUnclear) {
    marked = MarkByContent(registry);
  }
  if (marked == Marked::kModelUnread) {
    return OwnerCheck::kModelUnread;
  }
  return marked == Marked::kAll && registry.ForEachMarked(use_local_part)
             ? OwnerCheck::kDone
             : OwnerCheck::kRegistryUnread;
}

}  // namespace MDOMAIN::UTILS
