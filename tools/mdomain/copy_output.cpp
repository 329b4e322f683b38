#include "tools/mdomain/copy_output.h"

#include "lib-domain/insight/answers.h"

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

Json::Value CopyJson(const Copy& copy) {
  const int type = copy.of == Copy::Of::kMailTo     ? BCC_RECIPIENT
                   : copy.of == Copy::Of::kMailFrom ? BCC_SENDER
                                                    : BCC_DOMAIN;
  return CopyJson(BccInfo{copy.name, type, copy.to});
}

}  // namespace mdomain
