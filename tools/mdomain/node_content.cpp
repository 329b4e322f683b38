// Domains are told by the published list, which is a key of its own, and by the model file.
#include "tools/mdomain/node_content.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>

#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/node_publication.h"
#include "tools/mdomain/output.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::PublishedContent;

constexpr const char* kDomainsKey = "virtual_multiple_domain";

// What the next publication writes from the model, and a registry that is built from it.
bool FollowsFromModel(const std::string& key) {
  static const std::set<std::string> kKeys = {kDomainsKey, "smtp_main_domain", "mdomain_model",
                                              "smtp_changed_uids", "email_owner_db"};
  return kKeys.count(key) != 0 || key.rfind("additional_domain-", 0) == 0;
}

// Of "1/example.com, 2/example.org".
std::set<std::string> PublishedDomains(const PublishedContent& content) {
  std::set<std::string> domains;
  const auto list = content.keys.find(kDomainsKey);
  std::istringstream entries(list == content.keys.end() ? "" : list->second);
  for (std::string entry; std::getline(entries, entry, ',');) {
    const size_t slash = entry.find('/');
    if (slash != std::string::npos) {
      domains.insert(entry.substr(slash + 1));
    }
  }
  return domains;
}

// Values of keys and digests of files, by key.
using Values = std::map<std::string, std::string>;

Values Files(const Content& content) {
  Values digests;
  for (const auto& [key, file] : content.published.files) {
    const bool is_empty_model = key == MDOMAIN::UTILS::kDatabaseKey && content.domains.empty();
    if (!is_empty_model && !FollowsFromModel(key)) {
      digests[key] = file.digest;
    }
  }
  return digests;
}

Values Keys(const Content& content) {
  Values values;
  for (const auto& [key, value] : content.published.keys) {
    if (content.published.files.count(key) == 0 && !FollowsFromModel(key)) {
      values[key] = value;
    }
  }
  return values;
}

std::vector<std::string> Missing(const Values& has, const Values& lacks) {
  std::vector<std::string> names;
  for (const auto& [name, value] : has) {
    if (lacks.count(name) == 0) {
      names.push_back(name);
    }
  }
  return names;
}

std::vector<std::string> Changed(const Values& one, const Values& other) {
  std::vector<std::string> names;
  for (const auto& [name, value] : one) {
    const auto found = other.find(name);
    if (found != other.end() && found->second != value) {
      names.push_back(name);
    }
  }
  return names;
}

}  // namespace

std::string Difference::Text() const {
  std::string text;
  const std::pair<const char*, const std::vector<std::string>&> parts[] = {
      {"domain", domains}, {"key", keys}, {"file", files}};
  for (const auto& [noun, names] : parts) {
    if (!names.empty()) {
      text += (text.empty() ? "" : "; ") + std::string(noun) + (names.size() == 1 ? " " : "s ") +
              FirstOf(names);
    }
  }
  return text;
}

Json::Value Difference::Json() const {
  Json::Value json;
  json["domains"] = JsonTexts(domains);
  json["keys"] = JsonTexts(keys);
  json["files"] = JsonTexts(files);
  return json;
}

std::set<std::string> OwnDomains() {
  return OwnContent().domains;
}

Content OwnContent() {
  Content own;
  if (!korvmailserver::ReadOwnContent(own.published)) {
    throw Failure(kFailed, "what this machine has could not be read, nothing was changed");
  }
  own.domains = PublishedDomains(own.published);
  std::string model;
  if (MDOMAIN::UTILS::GetModelPathWith("", "", model) && !model.empty()) {
    const auto names = MDOMAIN::UTILS::ListDomainsOf(model);
    own.domains.insert(names.begin(), names.end());
  }
  return own;
}

Content StoreContent() {
  Content there;
  if (!korvmailserver::ReadStoreContent(there.published)) {
    throw Failure(kFailed, "what the key store has could not be read, nothing was changed");
  }
  there.domains = PublishedDomains(there.published);
  return there;
}

Difference OnlyIn(const Content& has, const Content& lacks) {
  Difference only;
  std::set_difference(has.domains.begin(), has.domains.end(), lacks.domains.begin(),
                      lacks.domains.end(), std::back_inserter(only.domains));
  only.keys = Missing(Keys(has), Keys(lacks));
  only.files = Missing(Files(has), Files(lacks));
  return only;
}

Difference Different(const Content& one, const Content& other) {
  return {{}, Changed(Keys(one), Keys(other)), Changed(Files(one), Files(other))};
}

Difference Joined(Difference one, const Difference& other) {
  one.domains.insert(one.domains.end(), other.domains.begin(), other.domains.end());
  one.keys.insert(one.keys.end(), other.keys.begin(), other.keys.end());
  one.files.insert(one.files.end(), other.files.begin(), other.files.end());
  return one;
}

}  // namespace mdomain
