// Runs Postfix's map compiler and puts its result in the place of the old map.
#ifndef LIB_DOMAIN_BASE_POSTMAP_H
#define LIB_DOMAIN_BASE_POSTMAP_H

#include <sys/types.h>

#include <set>
#include <stdexcept>
#include <string>

namespace MDOMAIN::BASE {

// A map could not be made; the old ones stay.
class MapFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `preferred` if maps of that type are compiled and Postfix knows it, else the first compiled type
// that it knows ("hash", "lmdb", ...); the empty string when there is none.
std::string ChooseMapType(const std::string& preferred, const std::set<std::string>& known);
// That of this host's Postfix, which prefers its default type.
std::string MapType();

// The file name ending of a compiled map of the type, with its dot.
std::string Ending(const std::string& type);

// Compiles the text map `path`; the result stands beside it. Any text on postmap's error output is
// a MapFailure with that text: postmap ends with status 0 even when it leaves out lines.
void Compile(const std::string& type, const std::string& path);

// Puts the text map and the compiled map of `from` in the place of those of `to`. The compiled one,
// which mail uses, comes first: it must never be older than its text.
void Install(const std::string& type, const std::string& from, const std::string& to);

// Puts one file in the place of another, owned by the mail service, group root; with the mode that
// both maps have there unless another is given. Postfix's cleanup opens its maps as root before it
// gives its rights up, and the group lets it in where root is without the right to pass over modes.
// A caller other than root owns the file.
constexpr mode_t kMapMode = 0640;
void InstallFile(const std::string& from, const std::string& to, mode_t mode = kMapMode);

// Writes a file that nobody else reads.
void WriteMapText(const std::string& path, const std::string& bytes);

// Holds the folder of the maps to the end of the scope, so that runs follow one another from
// reading to installing: a run that read older rules must not install its maps last.
class MapFolderLock {
 public:
  explicit MapFolderLock(const std::string& folder);
  ~MapFolderLock();
  MapFolderLock(const MapFolderLock&) = delete;
  MapFolderLock& operator=(const MapFolderLock&) = delete;

 private:
  int fd_;
};

// A folder for half-made maps within that of the maps (with its last slash), which is held. Gone at
// the end. What a killed run leaves, mdomain sweeps.
class MapWorkFolder {
 public:
  explicit MapWorkFolder(const std::string& within);
  ~MapWorkFolder();
  MapWorkFolder(const MapWorkFolder&) = delete;
  MapWorkFolder& operator=(const MapWorkFolder&) = delete;
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // False with an error line: the maps are in place all the same.
  bool Remove() const;

 private:
  std::string path_;
};

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_POSTMAP_H
