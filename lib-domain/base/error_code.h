// Error codes, the exception that carries one, and their translation to API error numbers.
#ifndef LIB_DOMAIN_BASE_ERROR_CODE_H
#define LIB_DOMAIN_BASE_ERROR_CODE_H

#include <stdexcept>
#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// Grouped by thousands: 1xxx general, 2xxx platform calls, 3xxx mail-server settings, 4xxx
// database.
enum ErrorCode : int {
  ERR_NONE = 0,
  ERR_INTERNAL = 1001,
  ERR_INVALID_JSON = 1002,
  ERR_LSTAT = 1003,
  ERR_POPEN = 1004,
  ERR_OPEN_FILE = 1005,
  ERR_RENAME_FILE = 1006,
  ERR_DELETE_KEY = 1007,
  ERR_FILE_CHECK_DIR = 2002,
  ERR_FILE_SET_KEY_VALUE = 2003,
  ERR_FILE_UNLOCK = 2004,
  ERR_FILE_GET_KEYS = 2005,
  ERR_FILE_ENUM_DIR = 2006,
  ERR_OUT_OF_MEMORY = 2007,
  ERR_PID_FILE_CREATE = 2008,
  ERR_RUN_AS = 2009,
  ERR_STRING_LIST_PUSH = 2010,
  ERR_FORK_CHILD = 2011,
  ERR_EXEC = 2012,
  ERR_USER_ALLOC = 2101,
  ERR_USER_ENUM = 2102,
  ERR_USER_INFO_ENUM = 2103,
  ERR_USER_INFO_ENUM_BY_SUBSTR = 2104,
  ERR_USER_GET_UGID = 2105,
  ERR_USER_GET_BY_UID = 2106,
  ERR_USER_GET = 2107,
  ERR_USER_REAL_NAME_GET = 2108,
  ERR_SERVICE_USER = 2109,
  ERR_GROUP_ALLOC = 2201,
  ERR_GROUP_INFO_ENUM_BY_SUBSTR = 2202,
  ERR_GROUP_IS_ADMIN_MEMBER = 2203,
  ERR_GROUP_GET = 2204,
  ERR_GROUP_GET_BY_GID = 2205,
  ERR_GROUP_LIST_MEMBER = 2206,
  ERR_UPGRADING_DOMAIN_DB = 3001,
  ERR_DUPLICATE_DOMAIN_NAME = 3002,
  ERR_INVALID_DOMAIN_NAME = 3003,
  ERR_LOAD_IMAP_POP3 = 3004,
  ERR_LOAD_SMTP = 3005,
  ERR_LOAD_SECURITY = 3006,
  ERR_LOAD_MIMEDEFANG = 3007,
  ERR_RUN_WEBAPI = 3008,
  ERR_CLUSTER_NOT_INITED = 3101,
  ERR_BAD_DB_SESSION = 4001,
  ERR_INSERT_QUERY = 4002,
  ERR_REPLACE_QUERY = 4003,
  ERR_DELETE_QUERY = 4004,
  ERR_UPDATE_QUERY = 4005,
  ERR_MULTIPLE_QUERY = 4006,
  ERR_CREATE_DB = 4007,
  ERR_UPGRADE_DB = 4008,
  ERR_SELECT_QUERY = 4009,
};

// The fixed English text of a code; "unknown error" for every value that is not listed, 0 included.
MDOMAIN_EXPORT const char* ErrorText(ErrorCode code);

// A condition that must reach the caller as a code; what() is the message. Logs itself once when it
// is built, as "FILE:LINE (CODE) TEXT: MESSAGE" at the given priority (a level of maillog); copies
// log nothing. The file is the source path as log lines give it (BASE::SourcePath).
class MDOMAIN_EXPORT LogException : public std::runtime_error {
 public:
  LogException(ErrorCode error_code, const std::string& message, long priority,
               std::string source_file, int source_line);
  ~LogException() override;

  ErrorCode code;
  std::string file;
  int line;
};

}  // namespace korvmailserver

namespace MDOMAIN::BASE {

// API error number of a code: 0 gives 0, 2009 5615, 2109 5634, 3002 5618, 3003 5633, others 117.
MDOMAIN_EXPORT unsigned int ToApiError(korvmailserver::ErrorCode code);

// What 2109 becomes: the accounts could not be read.
constexpr unsigned int kApiErrorAccounts = 5634;
// What 3003 becomes: a name, role or alias that is none.
constexpr unsigned int kApiErrorInvalid = 5633;
// The change is stored on this machine, and what follows from it is not published or not brought in
// line with it; the log says why. The next change, refresh or publication tries again.
constexpr unsigned int kApiErrorUnpublished = 5635;

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_ERROR_CODE_H
