// Reading the lines of a rule file.
#ifndef LIB_DOMAIN_API_BCC_RULE_FILE_H
#define LIB_DOMAIN_API_BCC_RULE_FILE_H

#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "lib-domain/api/bcc.h"

namespace MDOMAIN::API::INTERNAL {

struct BccBadLine {
  size_t number;  // from 1
  std::string problem;
};

// Appends the rules of a file's text, in order, to `rules`, and lines that are neither rules nor
// comments to `bad_lines`.
void ParseBccRules(std::string_view text, int type, std::list<BccInfo>& rules,
                   std::vector<BccBadLine>& bad_lines);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_RULE_FILE_H
