#include "lib-domain/sync/model_in_force.h"

#include <map>
#include <set>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/schema.h"
#include "platform/include/alias.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS {

namespace {

using DB::INTERNAL::ModelFileName;
using korvmailserver::Connection;
using korvmailserver::Statement;

// Kinds of settings, each with the indexes under which some stand.
using IndexesByKind = std::map<std::string, std::set<int>>;

constexpr int kBusyMilliseconds = 10000;
constexpr const char* kDkimKeys = "dkim.private-";

void AddIndex(IndexesByKind& found, const char* kind, const std::string& index) {
  int domain_idx = 0;
  if (BASE::ConvertToInt(index, domain_idx) && domain_idx > 0) {
    found[kind].insert(domain_idx);
  }
}

bool AddBlindCopies(IndexesByKind& found) {
  if (!postara::sdk::Exist(PATHS::SettingsDb())) {
    return true;
  }
  Connection file;
  if (file.Open(PATHS::SettingsDb(), Connection::Mode::kRead, kBusyMilliseconds) == SQLITE_OK) {
    Statement rows(file.Get(), "SELECT DISTINCT domain_id FROM bcc_table");
    if (rows.ForEachRow(
            [&](const auto& row) { AddIndex(found, "blind-copy rules", row.Text(0)); })) {
      return true;
    }
  }
  LOG_ERROR("Failed to read the rules of blind copies in %s", PATHS::SettingsDb().c_str());
  return false;
}

bool AddAliases(IndexesByKind& found) {
  Alias alias(PATHS::AliasDb());
  if (alias.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  for (const Alias::Entry& entry : alias.list()) {
    AddIndex(found, "aliases", std::to_string(entry.domain_id));
  }
  return true;
}

bool AddKeys(IndexesByKind& found) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    LOG_ERROR("Failed to read the settings of the domains");
    return false;
  }
  for (const auto& [key, value] : values) {
    const size_t dash = key.rfind('-');
    if (dash == std::string::npos) {
      continue;
    }
    const std::string name = key.substr(0, dash);
    const std::string index = key.substr(dash + 1);
    if (name == "mimedefang_disclaimers" && value.find('{') != std::string::npos) {
      AddIndex(found, "disclaimers", index);
    } else if ((name == "enable_dkim_sign" && value == "yes") ||
               (name == "dkim_selector" && !value.empty())) {
      AddIndex(found, "DKIM keys", index);
    }
  }
  return true;
}

void AddDkimFiles(IndexesByKind& found) {
  const std::string prefix = kDkimKeys;
  std::vector<std::string> names;
  postara::sdk::EnumDirectory(PATHS::EtcDir() + "dkim.key", names);  // most hosts have none
  for (const std::string& name : names) {
    if (name.rfind(prefix, 0) == 0) {
      AddIndex(found, "DKIM keys", name.substr(prefix.size()));
    }
  }
}

}  // namespace

bool ModelStanding::IsOther() const {
  return !published_file.empty() && published_file != ModelFileName(path);
}

bool ModelStanding::IsLost() const {
  return has_published_domains && published_file == ModelFileName(path) && !has_domains &&
         !is_emptied;
}

bool ModelStanding::WouldEmpty() const {
  if (has_domains) {
    return false;
  }
  const bool is_own_list = published_file == ModelFileName(path);
  return has_published_domains ? !is_own_list || !is_emptied : !main_domain.empty();
}

std::string ModelStanding::Reason() const {
  const std::string none = "the model file " + path + " has no domain";
  if (IsOther()) {
    return none + ", and the published domains are those of " + published_file;
  }
  if (IsLost()) {
    return none + " any more, although the published domains came from it: it was lost or emptied";
  }
  return none + ", and the older settings name \"" + main_domain + "\"";
}

bool ReadModelStanding(ModelStanding& standing) {
  DB::INTERNAL::PublishedModel published;
  DB::Domain::Content content = DB::Domain::Content::kNothing;
  if (!GetUserGroupDomainConfigPath(standing.path) ||
      !DB::INTERNAL::ReadPublishedModel(published) || !DB::Domain().GetContent(content)) {
    LOG_ERROR("Failed to compare the model with what is published");
    return false;
  }
  standing.published_file = published.file;
  standing.main_domain = published.main_domain;
  standing.has_published_domains = published.has_domains;
  standing.has_domains = content == DB::Domain::Content::kDomains;
  standing.is_emptied = content == DB::Domain::Content::kEmptied;
  return true;
}

bool ListOutsideSettings(std::vector<std::string>& settings) {
  IndexesByKind found;
  if (!AddBlindCopies(found) || !AddAliases(found) || !AddKeys(found)) {
    return false;
  }
  AddDkimFiles(found);
  for (const auto& [kind, indexes] : found) {
    const std::vector<int> sorted(indexes.begin(), indexes.end());
    settings.push_back(kind + " (" + BASE::Join(sorted, ", ") + ")");
  }
  return true;
}

bool GetModelPathWith(const std::string& key, const std::string& value, std::string& path) {
  std::map<std::string, std::string> values;
  if (mailConfGetMany({"account_type", "win_domain_short_name", "acc_domain_name"}, values) < 0) {
    return false;
  }
  values[key] = value;
  std::string account_domain = "local";
  const AUTH_TYPE type = ConvertAuthType(values["account_type"]);
  if (type != AUTH_LOCAL) {
    account_domain = values[type == AUTH_WIN ? "win_domain_short_name" : "acc_domain_name"];
  }
  path = account_domain.empty() ? "" : PATHS::DomainDb(account_domain);
  return true;
}

std::vector<std::string> ListDomainsOf(const std::string& model_path) {
  std::vector<std::string> names;
  Connection file;
  if (!postara::sdk::Exist(model_path) ||
      file.Open(model_path, Connection::Mode::kRead, kBusyMilliseconds) != SQLITE_OK) {
    return names;
  }
  Statement rows(file.Get(), "SELECT domain_name FROM domain_table ORDER BY domain_idx");
  rows.ForEachRow([&names](const auto& row) { names.push_back(row.Text(0)); });
  return names;
}

}  // namespace MDOMAIN::UTILS
