// Runs Postfix's map compiler and puts its result in the place of the old map.
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

// The type of map that this Postfix makes by default ("hash", "lmdb", ...); if maps of that type
// are not compiled, the first compiled type that it has.
std::string MapType();

// The file name ending of a compiled map of the type, with its dot.
std::string Ending(const std::string& type);

// Compiles the text map `path`; the result stands beside it. Any text on postmap's error output is
// a Failure with that text: postmap ends with status 0 even when it leaves out lines.
void Compile(const std::string& type, const std::string& path);

// Puts the text map and the compiled map of `from` in the place of those of `to`. The compiled one,
// which mail uses, comes first: it must never be older than its text.
void Install(const std::string& type, const std::string& from, const std::string& to);

// Puts one file in the place of another, as both maps are put there: mode 0640, owned by the mail
// service, group root. Postfix's cleanup opens its maps as root before it gives its rights up, and
// the group lets it in where root is without the right to pass over modes. A caller other than root
// owns the file.
void InstallFile(const std::string& from, const std::string& to);

}  // namespace korv_bcc_map

#endif  // TOOLS_KORV_BCC_MAP_POSTMAP_H
