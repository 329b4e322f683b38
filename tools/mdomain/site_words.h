// Words of the documents of export and apply.
#ifndef TOOLS_MDOMAIN_SITE_WORDS_H
#define TOOLS_MDOMAIN_SITE_WORDS_H

#include <json/value.h>

#include <functional>

#include "lib-domain/api/bcc.h"
#include "lib-domain/sync/special_address.h"

namespace mdomain {

constexpr const char* kSiteSchema = "export.schema.json";
constexpr const char* kRoleOfGroups = "group";
// Keys that people set and that mean the same on every machine.
constexpr const char* kSiteSettings[] = {MDOMAIN::UTILS::kPostmasterKey};

struct CopyType {
  int type;
  const char* word;
};
constexpr CopyType kCopyTypes[] = {
    {BCC_RECIPIENT, "recipient"}, {BCC_SENDER, "sender"}, {BCC_DOMAIN, "domain"}};

inline const char* CopyTypeWord(int type) {
  return kCopyTypes[type].word;
}

// Calls `keep` for each rule of disclaimers, which may change it; rules for which it is false go.
void ForEachAccountRule(Json::Value& disclaimers, const std::function<bool(Json::Value&)>& keep);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SITE_WORDS_H
