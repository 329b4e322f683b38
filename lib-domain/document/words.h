// Words of the documents of export and apply.
#ifndef LIB_DOMAIN_DOCUMENT_WORDS_H
#define LIB_DOMAIN_DOCUMENT_WORDS_H

#include <json/value.h>

#include <functional>

#include "lib-domain/api/bcc.h"
#include "lib-domain/sync/special_address.h"

namespace MDOMAIN::DOCUMENT {

constexpr const char* kSiteSchema = "export.schema.json";
constexpr const char* kRoleOfGroups = "group";
// Keys that people set and that mean the same on every machine.
constexpr const char* kSiteSettings[] = {UTILS::kPostmasterKey};

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

}  // namespace MDOMAIN::DOCUMENT

#endif  // LIB_DOMAIN_DOCUMENT_WORDS_H
