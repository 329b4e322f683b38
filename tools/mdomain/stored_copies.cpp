#include "tools/mdomain/stored_copies.h"

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "tools/mdomain/status.h"

namespace mdomain {

const char* CopyTypeName(int type) {
  return type == BCC_RECIPIENT ? "recipient" : type == BCC_SENDER ? "sender" : "domain";
}

Json::Value CopyJson(const BccInfo& rule) {
  Json::Value value;
  value["name"] = rule.name;
  value["type"] = CopyTypeName(rule.type);
  value["bcc_to"] = rule.bcc_to;
  return value;
}

void ForEachCopy(int domain_idx, const std::function<void(const BccInfo& rule)>& use) {
  if (!postara::sdk::Exist(MDOMAIN::PATHS::SettingsDb())) {
    return;
  }
  BCC* bcc = BCC::getInstance(domain_idx);
  for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
    if (bcc == nullptr || bcc->ForEachRule(type, domain_idx, 0, -1, "name", "asc",
                                           [&](BccInfo&& rule) { use(rule); }) != 0) {
      throw Failure(kFailed, "the rules of blind copies could not be read");
    }
  }
}

}  // namespace mdomain
