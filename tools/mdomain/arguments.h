// Arguments that many commands share, and what they choose.
#ifndef TOOLS_MDOMAIN_ARGUMENTS_H
#define TOOLS_MDOMAIN_ARGUMENTS_H

#include <string>
#include <utility>
#include <vector>

#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {

// DOMAIN, for one domain.
inline Argument DomainArgument() {
  return One("DOMAIN", "Index or any name of the domain");
}

// The domain that DOMAIN names.
inline KnownDomain TypedDomain(const Call& call) {
  return Domains().Find(call.Text("DOMAIN"));
}

// --query, --limit and --offset of a listing of `records` ("users"); `searched` are the texts of a
// record in which --query looks ("name or description").
inline std::vector<Argument> ListingArguments(const std::string& records,
                                              const std::string& searched) {
  return {
      Option("--query", "TEXT", "Only " + records + " whose " + searched + " contains TEXT"),
      Number("--limit", "At most N " + records),
      Number("--offset", "Skip the first N " + records),
  };
}

// `filter` narrowed to what these arguments choose.
template <typename Filter>
Filter ListingFilter(const Call& call, Filter filter = Filter()) {
  filter.SetLiteralQuery(call.Text("--query"));
  filter.SetOffset(call.Int("--offset", 0));
  filter.SetLimit(call.Int("--limit", -1));
  return filter;
}

// One list of arguments after the other.
inline std::vector<Argument> Joined(std::vector<Argument> arguments,
                                    const std::vector<Argument>& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_ARGUMENTS_H
