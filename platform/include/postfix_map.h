// A map that Postfix reads, of its type "lmdb": one file, changed in place.
//
// Who reads it sees the map before or after a change, whole, and never waits. Postfix keeps LMDB's
// own lock file out of use and locks the map itself (fcntl); so does this.
#ifndef PLATFORM_POSTFIX_MAP_H
#define PLATFORM_POSTFIX_MAP_H

#include <map>
#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// A key as Postfix asks for it: letters of Unicode without their case. What is no UTF-8 stays as it
// is, but for ASCII letters.
MDOMAIN_EXPORT std::string FoldMapKey(const std::string& key);

// By folded key. Keys of more than 510 bytes, which no address has, cannot be stored.
using MapEntries = std::map<std::string, std::string>;

// Each operation opens and closes the file. It is true on success; false with `error` set, and the
// map as it was, when the file cannot be read or written.
class MDOMAIN_EXPORT PostfixMap {
 public:
  // The path as main.cf names it behind "lmdb:"; the file has ".lmdb" added.
  explicit PostfixMap(const std::string& path) : file_(path + ".lmdb") {}

  const std::string& File() const { return file_; }
  // A text that no other content of this file has; empty where there is none. The file is no map:
  // false.
  bool GetState(std::string& state, std::string& error) const;
  // The value of a key, folded or not; `found` is false without one.
  bool Get(const std::string& key, bool& found, std::string& value, std::string& error) const;

  // Every entry; none of a missing file.
  bool GetAll(MapEntries& entries, std::string& error) const;

  // Sets these entries and removes those whose value is empty, as one transaction. Nothing is
  // written where nothing differs. The file must be there.
  bool Change(const MapEntries& entries, std::string& state, std::string& error) const;
  // Makes the map these entries. A missing file is made, with its folder, owned by the service
  // account and readable by everybody; one that is no map is replaced.
  bool Replace(const MapEntries& entries, std::string& state, std::string& error) const;

 private:
  bool _Fill(const std::string& file, const MapEntries& entries, std::string& state,
             std::string& error) const;
  bool _MakeAnew(const MapEntries& entries, std::string& state, std::string& error) const;

  std::string file_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_POSTFIX_MAP_H
