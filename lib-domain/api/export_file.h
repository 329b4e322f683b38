// Files that an administrator has written where he says: exports and backups.
#ifndef LIB_DOMAIN_API_EXPORT_FILE_H
#define LIB_DOMAIN_API_EXPORT_FILE_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::API::INTERNAL {

// Writes a file that names people and their mail, so that its owner alone can read it: mode 0600.
// A regular file is replaced whole. "-" and /dev/stdout are standard output, /dev/fd/N is that
// descriptor; a pipe or a terminal gets the bytes and stays what it is. A link is refused: somebody
// else may have placed it. So is whatever else is no file. 0, or negative with errno set and what
// is there untouched; a pipe may have got a part.
MDOMAIN_EXPORT int WriteExport(const std::string& path, const std::string& bytes);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_EXPORT_FILE_H
