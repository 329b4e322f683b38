#include "tools/mdomain/config_keys.h"

#include <map>
#include <string_view>

#include "lib-domain/sync/model_in_force.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/suggestion.h"

namespace mdomain {
namespace {

struct KnownKey {
  const char* name;  // one that ends in "-" stands before a domain's index
  KeyKind kind;
};

constexpr KnownKey kKeys[] = {
    {"account_type", KeyKind::kSetting},
    {"win_domain_short_name", KeyKind::kSetting},
    {"acc_domain_name", KeyKind::kSetting},
    {"postmaster", KeyKind::kSetting},
    {"smtp_canonical_domain", KeyKind::kSetting},
    {"mimedefang_enable", KeyKind::kSetting},
    {"mimedefang_disclaimers-", KeyKind::kSetting},
    {"enable_dkim_sign-", KeyKind::kSetting},
    {"dkim_selector-", KeyKind::kSetting},
    // The other parts of the filter that mimedefang_enable stands for.
    {"spam_enable", KeyKind::kSetting},
    {"anti_virus_enable", KeyKind::kSetting},
    {"enable_dangerous_content_scan", KeyKind::kSetting},
    {"mcp_enable", KeyKind::kSetting},
    {"enable_dkim", KeyKind::kSetting},
    {"enable_dmarc", KeyKind::kSetting},
    {"virtual_multiple_domain", KeyKind::kPublished},
    {"smtp_main_domain", KeyKind::kPublished},
    {"additional_domain-", KeyKind::kPublished},
    {"mdomain_model", KeyKind::kPublished},
    {"smtp_changed_uids", KeyKind::kPublished},
    {"mailserver_domain_db", KeyKind::kPublished},
    {"bcc_db", KeyKind::kPublished},
    {"alias_db", KeyKind::kPublished},
    {"email_owner_db", KeyKind::kPublished},
    {"sync_disclaimer_content_file-", KeyKind::kPublished},
};

// "dkim_selector-7" gives "dkim_selector-"; a text without an index behind it stays.
std::string WithoutIndex(const std::string& key) {
  const size_t last = key.find_last_not_of("0123456789");
  const bool has_index = last != std::string::npos && last + 1 < key.size() && key[last] == '-';
  return has_index ? key.substr(0, last + 1) : key;
}

bool HasDomains() {
  std::string path;
  return MDOMAIN::UTILS::GetModelPathWith("", "", path) &&
         !MDOMAIN::UTILS::ListDomainsOf(path).empty();
}

}  // namespace

KeyKind KindOfKey(const std::string& key) {
  const std::string name = WithoutIndex(key);
  for (const KnownKey& known : kKeys) {
    const bool is_same = name == known.name && (name.back() != '-' || name != key);
    if (is_same) {
      return known.kind;
    }
  }
  return KeyKind::kUnknown;
}

std::vector<std::string> KnownKeys() {
  std::vector<std::string> names;
  for (const KnownKey& known : kKeys) {
    if (std::string_view(known.name).back() != '-') {
      names.emplace_back(known.name);
    }
  }
  return names;
}

std::string NoKey(const std::string& key) {
  const std::string index = key.substr(WithoutIndex(key).size());
  std::vector<std::string> names;
  for (const KnownKey& known : kKeys) {
    const std::string name = known.name;
    names.push_back(name.back() == '-' ? name + index : name);
  }
  return "there is no key \"" + key + "\"" + DidYouMean(key, names);
}

bool IsKeySet(const std::string& key) {
  std::map<std::string, std::string> values;
  if (mailConfList(values) < 0) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  return values.count(key) != 0;
}

void RequireSettable(const std::string& key, const std::string& value) {
  const KeyKind kind = KindOfKey(key);
  if (kind == KeyKind::kUnknown && !IsKeySet(key)) {
    throw Failure(kRefused, NoKey(key),
                  "look at its spelling, or give --force for a key of another program");
  }
  std::string stored;
  if (kind != KeyKind::kPublished || !HasDomains()) {
    return;
  }
  if (mailConfGet(key, stored) < 0) {
    throw Failure(kFailed, "the configuration could not be read");
  }
  if (stored != value) {
    throw Failure(kRefused, key +
                                " follows from the domains, and the next publication would set "
                                "it back. Next: change the domains, run mdomain publish where it "
                                "is wrong, or give --force");
  }
}

}  // namespace mdomain
