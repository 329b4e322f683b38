// The clean-up of blind-copy rules when a domain goes; that of its users is in departure.cpp.
//
// Works on the given domain, whatever domain the process-wide object was made for.
#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/reader.h"
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
  std::set<int> all;
  const auto list = [&all](sqlite3* db, CompiledStatements& compiled) {
    return compiled.Get(db, kSelectDomains).ForEachRow([&all](const auto& row) {
      all.insert(row.Int(0));
    });
  };
  if (!korvmailserver::KeptDatabase::Of(path).Run(path, list)) {
    return false;
  }
  for (const int domain_idx : all) {
    if (is_asked(domain_idx)) {
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

}  // namespace

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
  BCC* bcc = BCC::getInstance(domain_idx);
  if (bcc == nullptr) {
    return BccOutcome::kNoInstance;
  }
  return bcc->deleteAllBCC(domain_idx) < 0 ? BccOutcome::kFailed : BccOutcome::kDone;
}

bool PublishBccFile(const std::string& path) {
  return KORV::POSTARA_SERVER::KORVMailNodeCluster::setFile(kBccFileKey, path) >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
