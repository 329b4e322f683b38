// A pulled file that grows beside the one that it will replace.
#ifndef PLATFORM_KEYSTORE_REPLACEMENT_FILE_H
#define PLATFORM_KEYSTORE_REPLACEMENT_FILE_H

#include <string>

#include "platform/include/new_file.h"

namespace korvmailserver {

// Failures are false with a text that names the file.
class ReplacementFile {
 public:
  ReplacementFile(const std::string& path, mode_t mode);

  // Makes the folder, when it is missing, and the new file, empty and the service account's.
  bool Open(std::string& error);
  bool Append(const std::string& piece, std::string& error);
  // Puts the new file in the old one's place. A journal that a crash left beside an old database
  // would be played back into the new one.
  bool Replace(std::string& error);

 private:
  bool _Fail(std::string& error) const;

  const std::string path_;
  const std::string folder_;
  const mode_t mode_;
  NewFile file_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REPLACEMENT_FILE_H
