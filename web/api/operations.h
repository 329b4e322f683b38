// Every operation of the HTTP interface: the path, the call of the library behind it, its
// arguments. Routing, reading of arguments and the OpenAPI document follow from this table.
#ifndef MDOMAIN_WEB_API_OPERATIONS_H
#define MDOMAIN_WEB_API_OPERATIONS_H

#include <string>
#include <vector>

namespace mdomain_web {

enum class Kind {
  kNumber,
  kNumbers,
  kText,
  kTexts,
  kFlag,
  kRole,     // "normal", "domain_admin", or null for that of the groups
  kCopies,   // array of {"of", "name", "to"}
  kVersion,  // of If-Match
  kCalls,    // array of {"call", "arguments"}
};

struct Argument {
  const char* name;
  Kind kind;
  bool is_needed;
  const char* about;
};

// Arguments whose names stand in the path come from there (several numbers with commas between
// them), the others of GET and DELETE from the query, and else from a JSON object.
struct Operation {
  const char* method;
  const char* path;  // below /api/v1
  const char* call;
  const char* about;  // one line
  std::vector<Argument> arguments;
  const char* result;  // schema of the value; "[]" behind it: an array of them, "?": or null
};

const std::vector<Operation>& Operations();

// That makes this call of the library; null without one.
const Operation* FindOperation(const std::string& call);

// Whether the answer is an array, of which a page is given: "page_size" and "cursor" of the query
// say which, "next" and "total" beside the value what else there is.
bool IsList(const Operation& operation);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_API_OPERATIONS_H
