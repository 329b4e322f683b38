// What a word that is not known may have meant.
#ifndef TOOLS_MDOMAIN_SUGGESTION_H
#define TOOLS_MDOMAIN_SUGGESTION_H

#include "lib-domain/base/suggestion.h"

namespace mdomain {

using MDOMAIN::BASE::DidYouMean;

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SUGGESTION_H
