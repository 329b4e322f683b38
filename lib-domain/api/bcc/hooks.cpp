// The clean-up of blind-copy rules when a domain goes; that of its users is in departure.cpp.
//
// Works on the given domain, whatever domain the process-wide object was made for.
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/bcc/kept_rules.h"
#include "lib-domain/api/bcc/map_text.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/reader.h"
#include "platform/include/files.h"
#include "platform/include/kept_database.h"
#include "platform/include/key_store.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

constexpr const char* kHasRules = "SELECT 1 FROM sqlite_master WHERE name = 'bcc_table'";
constexpr const char* kSelectDomains =
    "SELECT DISTINCT domain_id FROM bcc_table WHERE domain_id > 0";

bool ListInKept(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  using korvmailserver::CompiledStatements;
  const std::string path = PATHS::SettingsDb();
  const auto* const all = korvmailserver::KeptDatabase::Of(path).Ask<std::set<int>>(
      path, kSelectDomains, [](sqlite3* db, CompiledStatements& compiled, std::set<int>& answer) {
        return compiled.Get(db, kSelectDomains).ForEachRow([&answer](const auto& row) {
          answer.insert(row.Int(0));
        });
      });
  if (all == nullptr) {
    return false;
  }
  for (const int domain_idx : *all) {
    if (is_asked(domain_idx)) {
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

}  // namespace

bool HasSurelyNoRules(int domain_idx) {
  std::set<int> domain_idxs;
  return domain_idx > 0 &&
         ListInKept([domain_idx](int other) { return other == domain_idx; }, domain_idxs) &&
         domain_idxs.empty();
}

bool ListBccDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  if (ListInKept(is_asked, domain_idxs)) {
    return true;
  }
  DB::INTERNAL::Reader reader(PATHS::SettingsDb());
  bool has_rules = false;
  const auto keep = [&](const korvmailserver::Statement& row) {
    if (is_asked(row.Int(0))) {
      domain_idxs.insert(row.Int(0));
    }
  };
  return reader.Open() && reader.ForEachRow(kHasRules, [&](const auto&) { has_rules = true; }) &&
         (!has_rules || reader.ForEachRow(kSelectDomains, keep));
}

BccOutcome DeleteDomainBcc(int domain_idx) {
  if (HasSurelyNoRules(domain_idx)) {
    return BccOutcome::kDone;
  }
  BCC* bcc = BCC::getInstance(domain_idx);
  if (bcc == nullptr) {
    return BccOutcome::kNoInstance;
  }
  return bcc->deleteAllBCC(domain_idx) < 0 ? BccOutcome::kFailed : BccOutcome::kDone;
}

bool AreBccMapsOld(bool& are_old) {
  are_old = false;
  const std::string folder = PATHS::TargetEtcDir();
  if (!postara::sdk::Exist(folder + kMapReport) || !postara::sdk::Exist(PATHS::BccMapCompiler())) {
    return true;
  }
  BCC* bcc = BCC::getInstance();
  for (const auto& [type, file] :
       {std::make_pair(BCC_RECIPIENT, kRecipientMap), std::make_pair(BCC_SENDER, kSenderMap)}) {
    API::INTERNAL::MapText wanted;
    std::string made;
    if (bcc == nullptr || bcc->ForEachMapEntry(type, true, [&wanted](const BccMapEntry& entry) {
          wanted.Add(entry);
        }) != 0) {
      LOG_ERROR("Failed to read the rules of [%s]", file);
      return false;
    }
    are_old =
        are_old || korvmailserver::ReadFile(folder + file, made) != 0 || made != wanted.text();
  }
  return true;
}

bool MakeBccMaps() {
  BCC* bcc = BCC::getInstance();
  if (bcc == nullptr || bcc->GenerateBccMap() != 0) {
    LOG_ERROR("Failed to make the maps of blind copies, the old ones stay");
    return false;
  }
  return true;
}

bool PublishBccFile(const std::string& path) {
  return KORV::POSTARA_SERVER::KORVMailNodeCluster::setFile(kBccFileKey, path) >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
