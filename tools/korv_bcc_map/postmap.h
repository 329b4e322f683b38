// Postfix's map compiler, and putting its result in the place of the old map.
#ifndef TOOLS_KORV_BCC_MAP_POSTMAP_H
#define TOOLS_KORV_BCC_MAP_POSTMAP_H

#include <stdexcept>
#include <string>

namespace korv_bcc_map {

// Ends the program with its message; the old maps stay.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The kind of compiled map that this Postfix makes by default ("hash", "lmdb", ...), or, if that
// is none that is compiled, the first that it has.
std::string MapType();

// The ending that a compiled map of the type has, with its dot.
std::string Ending(const std::string& type);

// Compiles the text map `path` beside it. postmap ends with status 0 also when it leaves out lines,
// and says so on its error output: any text there is a Failure, with that text.
void Compile(const std::string& type, const std::string& path);

// Puts the text map and the compiled map of `from` in the place of those of `to`, the compiled one
// first: it is the one that counts, and must never be older than its text.
void Install(const std::string& type, const std::string& from, const std::string& to);

}  // namespace korv_bcc_map

#endif  // TOOLS_KORV_BCC_MAP_POSTMAP_H
