// The stored rules of blind copies, for what shows more than rules. Reading makes no file.
#ifndef TOOLS_MDOMAIN_STORED_COPIES_H
#define TOOLS_MDOMAIN_STORED_COPIES_H

#include <json/value.h>

#include <functional>

#include "lib-domain/api/bcc.h"

namespace mdomain {

const char* CopyTypeName(int type);

// "name", "type", "bcc_to".
Json::Value CopyJson(const BccInfo& rule);

// Every rule of the domain, by type and name.
void ForEachCopy(int domain_idx, const std::function<void(const BccInfo& rule)>& use);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_STORED_COPIES_H
