// The lines of the maps that the mail transfer agent reads, made from the rules of all domains.
//
// Reads each source once: the rules, the SMTP settings, the alias table, and the users' aliases of
// those domains that need them. Nothing here runs a statement for a rule.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/bcc/published_domains.h"
#include "lib-domain/api/bcc/text.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"
#include "platform/include/process.h"
#include "platform/include/text.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

using BASE::ToLowerAscii;
using Names = std::vector<std::string>;

// An ASCII text without an A-label is the same in both spellings.
bool HasOtherSpelling(const std::string& text) {
  return korvmailserver::HasNonAscii(text) || text.find("xn--") != std::string::npos;
}

bool IsLocalPart(const std::string& text) {
  return KORV::POSTARA_SERVER::IsValidEaiLocalPart(text, true);
}

// A rule with everything that does not depend on the domain name for which a line is written.
struct PreparedRule {
  const BccInfo* rule;
  Names spellings;            // of the name, in lower case
  std::string local_part;     // of a name that is an address
  const DomainForms* domain;  // of a name that is an address, else null
  int name_domain_id;         // the domain that owns that address, negative when none does
  const Names* local_parts;   // of an account, when asked for
  std::string address;        // destination, when it has a domain of its own
  std::string destination;    // else: its local part
  bool unknown_destination = false;
  std::string reason;  // why nothing is written for the rule
};

struct DomainRules {
  std::list<BccInfo> own;    // of the requested type
  std::list<BccInfo> whole;  // of the whole domain
};

class MapWriter {
 public:
  MapWriter(bool with_local_parts, const std::function<void(const BccMapEntry&)>& visit)
      : with_local_parts_(with_local_parts), visit_(visit) {}

  int Write(std::map<int, DomainRules>& rules_by_domain) {
    if (!domains_.Load()) {
      return -1;
    }
    for (const auto& [domain_id, names] : domains_.names_by_domain()) {
      const auto rules = rules_by_domain.find(domain_id);
      if (rules != rules_by_domain.end() && WriteDomain(domain_id, names, rules->second) != 0) {
        return -1;
      }
    }
    return 0;
  }

 private:
  int WriteDomain(int domain_id, const std::list<std::string>& names, const DomainRules& rules) {
    std::list<PreparedRule> own;
    std::list<PreparedRule> whole;
    if (!PrepareAll(rules.own, domain_id, own) || !PrepareAll(rules.whole, domain_id, whole)) {
      return -1;
    }
    for (const std::string& name : names) {
      GenerateConfigImp(domain_id, name, own, whole);
    }
    return 0;
  }

  bool PrepareAll(const std::list<BccInfo>& rules, int domain_id,
                  std::list<PreparedRule>& prepared) {
    LocalPartFinder& names = domains_.NamesIn(domain_id);
    for (const BccInfo& rule : rules) {
      PreparedRule one{&rule, {}, {}, nullptr, -1, nullptr, {}, {}, false, {}};
      if (!PrepareDestination(names, one) || !PrepareName(names, one) ||
          !domains_.IsUnknown(domain_id, rule.bcc_to, one.unknown_destination)) {
        return false;
      }
      if (!one.reason.empty()) {
        TellLeftOut(domain_id, one);
      } else if (!one.spellings.empty() && !(one.address.empty() && one.destination.empty())) {
        prepared.push_back(std::move(one));
      }
    }
    return true;
  }

  // Who asks for local parts makes a report of its own.
  void TellLeftOut(int domain_id, const PreparedRule& rule) {
    if (!with_local_parts_) {
      LOG_WARNING("bcc rule [%s] with destination [%s] left out: %s", rule.rule->name.c_str(),
                  rule.rule->bcc_to.c_str(), rule.reason.c_str());
      return;
    }
    BccMapEntry entry;
    entry.form = BccMapEntry::Form::kLeftOut;
    entry.domain_id = domain_id;
    entry.name = rule.rule->name;
    entry.value = rule.rule->bcc_to;
    entry.rule = rule.rule;
    entry.reason = rule.reason;
    visit_(entry);
  }

  // False when a source cannot be read; a destination that cannot be used stays empty.
  bool PrepareDestination(LocalPartFinder& names, PreparedRule& rule) {
    const std::string& bcc_to = rule.rule->bcc_to;
    std::string local_part;
    std::string domain;
    const bool is_address = SplitAddress(bcc_to, local_part, domain);
    if (!is_address) {
      const LocalParts* found = names.Find(bcc_to);
      if (found == nullptr || !found->reason.empty()) {
        rule.reason = found == nullptr ? "" : found->reason;
        return found != nullptr;
      }
      local_part = found->parts.front();
    }
    if (is_address && !forms_.Get(domain).convertible) {
      LogDestination(*rule.rule);
    } else if (!IsLocalPart(local_part)) {
      LogLeftOut(*rule.rule);
    } else if (is_address) {
      rule.address = local_part + "@" + forms_.Get(domain).punycode;
    } else {
      rule.destination = std::move(local_part);
    }
    return true;
  }

  // As PrepareDestination; a name that cannot be used gets no spelling. A whole domain's rule is
  // written under the domain's own names, whatever its name is.
  bool PrepareName(LocalPartFinder& names, PreparedRule& rule) {
    const std::string name = ToLowerAscii(rule.rule->name);
    std::string domain;
    if (rule.rule->type == BCC_DOMAIN) {
      rule.spellings = {name};
    } else if (SplitAddress(name, rule.local_part, domain)) {
      PrepareAddress(domain, rule);
    } else if (!StandsInLine(name) && !(with_local_parts_ && IsAccountWithBlank(name))) {
      LogLeftOut(*rule.rule);
    } else {
      return PrepareAccount(name, names, rule);
    }
    return true;
  }

  bool PrepareAccount(const std::string& name, LocalPartFinder& names, PreparedRule& rule) {
    rule.spellings = {name};
    std::string other;
    if (HasOtherSpelling(name) && KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) == 0 &&
        other != name) {
      rule.spellings.push_back(std::move(other));
    }
    if (!with_local_parts_) {
      return true;
    }
    const LocalParts* found = names.Find(rule.rule->name);
    if (found == nullptr) {
      return false;
    }
    rule.local_parts = &found->parts;
    rule.reason = rule.reason.empty() ? found->reason : rule.reason;
    return true;
  }

  void PrepareAddress(const std::string& domain, PreparedRule& rule) {
    const DomainForms& forms = forms_.Get(domain);
    if (!forms.convertible || !IsLocalPart(rule.local_part) ||
        !StandsAtLineBegin(rule.local_part)) {
      LogLeftOut(*rule.rule);
      return;
    }
    rule.domain = &forms;
    for (const std::string& spelling : forms.spellings) {
      rule.spellings.push_back(rule.local_part + "@" + spelling);
    }
    rule.name_domain_id = domains_.OwnerOf(forms.punycode);
  }

  void GenerateConfigImp(int domain_id, const std::string& domain_name,
                         const std::list<PreparedRule>& own, const std::list<PreparedRule>& whole) {
    const DomainForms& forms = forms_.Get(ToLowerAscii(domain_name));
    if (!forms.convertible) {
      LOG_ERROR("failed to convert domain_name [%s] to punycode", domain_name.c_str());
      if (!StandsInLine(domain_name)) {
        return;
      }
    }
    BccMapEntry entry;
    entry.domain_id = domain_id;
    for (const PreparedRule& rule : own) {
      const bool here = rule.domain != nullptr && rule.domain->punycode == forms.punycode;
      entry.form = here ? BccMapEntry::Form::kAddress : BccMapEntry::Form::kAccount;
      WriteRule(forms, rule, entry);
    }
    entry.form = BccMapEntry::Form::kDomain;
    for (const PreparedRule& rule : whole) {
      WriteRule(forms, rule, entry);
    }
  }

  // One line for each combination of spellings. An address of the domain has its domain's.
  void WriteRule(const DomainForms& forms, const PreparedRule& rule, BccMapEntry& entry) {
    std::string value = rule.address;
    if (value.empty()) {
      if (!forms.convertible) {
        LogDestination(*rule.rule);
        return;
      }
      value = rule.destination + "@" + forms.punycode;
    }
    entry.value = value;
    entry.rule = rule.rule;
    entry.name_domain_id = rule.name_domain_id;
    entry.local_parts = rule.local_parts;
    entry.unknown_destination = rule.unknown_destination;
    if (entry.form == BccMapEntry::Form::kAddress) {
      for (const std::string& spelling : rule.spellings) {
        entry.domain = std::string_view(spelling).substr(rule.local_part.size() + 1);
        entry.name = spelling;
        visit_(entry);
      }
      return;
    }
    for (const std::string& domain : forms.spellings) {
      for (const std::string& spelling : rule.spellings) {
        entry.domain = domain;
        entry.name = spelling;
        visit_(entry);
      }
    }
  }

  static void LogDestination(const BccInfo& rule) {
    if (rule.type == BCC_DOMAIN) {
      LOG_ERROR("failed to convert all bcc destination [%s] to punycode", rule.bcc_to.c_str());
    } else {
      LOG_ERROR("failed to convert bcc destination [%s] to punycode", rule.bcc_to.c_str());
    }
  }

  static void LogLeftOut(const BccInfo& rule) {
    LOG_ERROR("bcc rule [%s] with destination [%s] cannot stand in a map, left out",
              rule.name.c_str(), rule.bcc_to.c_str());
  }

  bool with_local_parts_;
  const std::function<void(const BccMapEntry&)>& visit_;
  PublishedDomains domains_;
  DomainFormCache& forms_ = domains_.forms();
};

void AppendLine(const BccMapEntry& entry, std::string& text) {
  switch (entry.form) {
    case BccMapEntry::Form::kLeftOut:
      return;
    case BccMapEntry::Form::kAddress:
      break;
    case BccMapEntry::Form::kAccount:
      text.append(entry.domain).append("/");
      break;
    case BccMapEntry::Form::kDomain:
      text.append("@").append(entry.domain).append(" ").append(entry.value).append("\n");
      return;
  }
  text.append(entry.name).append(" ").append(entry.value).append("\n");
}

}  // namespace

}  // namespace MDOMAIN::API::INTERNAL

using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

int BCC::ForEachMapEntry(int type, bool with_local_parts,
                         const std::function<void(const BccMapEntry&)>& visit) {
  // The table's index begins with the name, so a read for each domain would walk through all of it.
  const std::string statement =
      "SELECT name,type,bcc_to,domain_id FROM bcc_table WHERE type=" + std::to_string(type) +
      " OR type=" + std::to_string(BCC_DOMAIN) + " ORDER BY name";
  std::map<int, DomainRules> rules_by_domain;
  const auto keep = [&rules_by_domain](BccInfo&& rule, int domain_id) {
    DomainRules& rules = rules_by_domain[domain_id];
    (rule.type == BCC_DOMAIN ? rules.whole : rules.own).push_back(std::move(rule));
  };
  if (_ForEachRow(statement, keep) != 0) {
    return -1;
  }
  return MapWriter(with_local_parts, visit).Write(rules_by_domain);
}

int BCC::GenerateSystemBCCConfig(int type, const std::string& path) {
  std::string text;
  const auto append = [&text](const BccMapEntry& entry) { AppendLine(entry, text); };
  if (ForEachMapEntry(type, false, append) != 0) {
    return -1;
  }
  if (korvmailserver::ReplaceFile(path, text, 0640) != 0) {
    LOG_ERROR("open file %s fail, error[%s]", path.c_str(), strerror(errno));
    return -1;
  }
  return 0;
}

int BCC::GenerateBccMap() {
  return KLIBCExec(MDOMAIN::PATHS::BccMapCompiler(), {});
}
