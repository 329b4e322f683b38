#include "lib-domain/api/bcc/map_text.h"

#include <algorithm>

#include "platform/include/eai.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::API::INTERNAL {

void MapText::Add(const BccMapEntry& entry) {
  if (entry.unknown_destination) {
    unknown_destinations_.emplace(entry.rule->name, entry.value);
  }
  switch (entry.form) {
    case BccMapEntry::Form::kLeftOut:
      LeaveOut("", entry, std::string(entry.reason));
      break;
    case BccMapEntry::Form::kAddress:
      Put(std::string(entry.name), entry);
      break;
    case BccMapEntry::Form::kAccount:
      AddAccount(entry);
      break;
    case BccMapEntry::Form::kDomain:
      Put("@" + std::string(entry.domain), entry);
      break;
  }
}

void MapText::AddAccount(const BccMapEntry& entry) {
  if (entry.local_parts != nullptr) {
    // In an order that tells nothing of how they came to be stored: the text is compared.
    std::vector<std::string> local_parts(entry.local_parts->begin(), entry.local_parts->end());
    std::sort(local_parts.begin(), local_parts.end());
    for (const std::string& local_part : local_parts) {
      const std::string key = local_part + "@" + std::string(entry.domain);
      if (KORV::POSTARA_SERVER::IsValidEaiLocalPart(local_part, true)) {
        Put(key, entry);
      } else {
        LeaveOut(key, entry, "no address");
      }
    }
  } else if (entry.name_domain_id < 0) {
    Put(std::string(entry.name), entry);
  } else if (entry.name_domain_id != entry.domain_id) {
    // An address of this domain already has its line, under its own domain name.
    LeaveOut(std::string(entry.name), entry,
             "an address of domain " + std::to_string(entry.name_domain_id));
  }
}

void MapText::Put(const std::string& key, const BccMapEntry& entry) {
  if (key.front() == '#') {
    LeaveOut(key, entry, "would be a comment");
    return;
  }
  // Two keys that Postfix takes for one are one.
  const auto [place, is_new] = rules_by_key_.try_emplace(korvmailserver::FoldMapKey(key));
  if (is_new) {
    place->second = {entry.rule, entry.rule->name, std::string(entry.value)};
    text_.append(key).append(" ").append(entry.value).append("\n");
  } else if (place->second.rule != entry.rule && place->second.value != entry.value) {
    LeaveOut(key, entry,
             "rule " + place->second.name + " comes first, with " + place->second.value);
  }
}

void MapText::LeaveOut(const std::string& key, const BccMapEntry& entry,
                       const std::string& reason) {
  if (reported_.emplace(entry.rule, reason).second) {
    left_out_.push_back({key, entry.rule->name, std::string(entry.value), reason});
  }
}

}  // namespace MDOMAIN::API::INTERNAL
