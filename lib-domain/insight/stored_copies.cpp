#include "lib-domain/insight/stored_copies.h"

#include "lib-domain/base/paths.h"
#include "lib-domain/insight/reading.h"
#include "platform/include/files.h"

namespace MDOMAIN::INSIGHT {

void ForEachCopy(int domain_idx, const std::function<void(const BccInfo& rule)>& use) {
  if (!postara::sdk::Exist(PATHS::SettingsDb())) {
    return;
  }
  BCC* bcc = BCC::getInstance(domain_idx);
  for (const int type : {BCC_RECIPIENT, BCC_SENDER, BCC_DOMAIN}) {
    RequireRead(bcc != nullptr && bcc->ForEachRule(type, domain_idx, 0, -1, "name", "asc",
                                                   [&](BccInfo&& rule) { use(rule); }) == 0,
                "the rules of blind copies");
  }
}

mdomain::Copy CopyOf(const BccInfo& rule) {
  using Of = mdomain::Copy::Of;
  const Of of = rule.type == BCC_RECIPIENT ? Of::kMailTo
                : rule.type == BCC_SENDER  ? Of::kMailFrom
                                           : Of::kWholeDomain;
  return {of, rule.name, rule.bcc_to};
}

}  // namespace MDOMAIN::INSIGHT
