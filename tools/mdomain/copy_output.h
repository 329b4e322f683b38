// How rules of blind copies are shown.
#ifndef TOOLS_MDOMAIN_COPY_OUTPUT_H
#define TOOLS_MDOMAIN_COPY_OUTPUT_H

#include <json/value.h>

#include "lib-domain/api/bcc.h"

namespace mdomain {

struct Copy;

const char* CopyTypeName(int type);

// "name", "type", "bcc_to".
Json::Value CopyJson(const BccInfo& rule);
Json::Value CopyJson(const Copy& copy);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_COPY_OUTPUT_H
