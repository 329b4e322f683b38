#include "lib-domain/sync/model_in_force.h"

#include <map>
#include <set>

#include "lib-domain/base/account_settings.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/schema.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS {

namespace {

using DB::INTERNAL::Content;
using DB::INTERNAL::ModelFileName;
using korvmailserver::Connection;
using korvmailserver::Statement;

constexpr int kBusyMilliseconds = 10000;

}  // namespace

bool ModelStanding::IsOther() const {
  return DB::INTERNAL::IsOfOtherModel(published_file, path);
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
  Content content = Content::kNothing;
  if (!GetUserGroupDomainConfigPath(standing.path) ||
      !DB::INTERNAL::ReadPublishedModel(published) || !DB::INTERNAL::GetContent(content)) {
    LOG_ERROR("Failed to compare the model with what is published");
    return false;
  }
  standing.published_file = published.file;
  standing.main_domain = published.main_domain;
  standing.has_published_domains = published.has_domains;
  standing.has_domains = content == Content::kDomains;
  standing.is_emptied = content == Content::kEmptied;
  return true;
}

bool ListOutsideSettings(std::vector<std::string>& settings) {
  for (const CONTROL::INTERNAL::OutsideSetting& setting : CONTROL::INTERNAL::OutsideSettings()) {
    std::set<int> domain_idxs;
    if (!setting.list([](int /*domain_idx*/) { return true; }, domain_idxs)) {
      return false;
    }
    if (setting.is_made_by_hand && !domain_idxs.empty()) {
      const std::vector<int> sorted(domain_idxs.begin(), domain_idxs.end());
      settings.push_back(std::string(setting.name) + " (" + BASE::Join(sorted, ", ") + ")");
    }
  }
  return true;
}

bool DiscardOutsideSettings() {
  bool is_done = true;
  for (const CONTROL::INTERNAL::OutsideSetting& setting : CONTROL::INTERNAL::OutsideSettings()) {
    std::set<int> domain_idxs;
    if (setting.is_made_by_hand) {
      is_done = setting.list([](int /*domain_idx*/) { return true; }, domain_idxs) && is_done;
    }
    is_done = setting.Clear(domain_idxs) && is_done;
  }
  return is_done;
}

std::string OwnerOfOutsideSettings(const ModelStanding& standing) {
  std::vector<std::string> settings;
  const bool is_foreign =
      standing.IsOther() && (!ListOutsideSettings(settings) || !settings.empty());
  return is_foreign ? standing.published_file : ModelFileName(standing.path);
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

void TakeAccountSource() {
  BASE::ForgetAccountSettings();
  std::string model;
  if (!GetUserGroupDomainConfigPath(model) || !postara::sdk::Exist(model)) {
    return;
  }
  const DB::DomainDBHandler* const handler = DB::DomainDBHandler::GetDomainDBHandler();
  if (handler != nullptr && handler->GetPath() != model) {
    DB::DomainDBHandler::CloseDomainDBHandler();
  }
}

}  // namespace MDOMAIN::UTILS
