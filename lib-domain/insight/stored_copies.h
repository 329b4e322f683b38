// The stored rules of blind copies, for what tells more than rules. Reading makes no file.
#ifndef LIB_DOMAIN_INSIGHT_STORED_COPIES_H
#define LIB_DOMAIN_INSIGHT_STORED_COPIES_H

#include <functional>

#include "lib-domain/api/bcc.h"
#include "lib-domain/insight/answers.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

// Every rule of the domain, by type and name.
MDOMAIN_EXPORT void ForEachCopy(int domain_idx,
                                const std::function<void(const BccInfo& rule)>& use);

mdomain::Copy CopyOf(const BccInfo& rule);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_STORED_COPIES_H
