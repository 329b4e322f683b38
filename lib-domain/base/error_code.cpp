// Code texts, the exception that logs itself, and the API number of a code.
#include "lib-domain/base/error_code.h"

#include <utility>

#include "platform/include/maillog.h"

namespace korvmailserver {

namespace {

struct CodeText {
  ErrorCode code;
  const char* text;
};

constexpr CodeText kTexts[] = {
    {ERR_INTERNAL, "internal error"},
    {ERR_INVALID_JSON, "invalid json value"},
    {ERR_LSTAT, "failed to lstat file"},
    {ERR_POPEN, "failed to popen"},
    {ERR_OPEN_FILE, "failed to open file"},
    {ERR_RENAME_FILE, "failed to rename file"},
    {ERR_DELETE_KEY, "failed to delete key on redis"},
    {ERR_FILE_CHECK_DIR, "SDK KLIBCFileCheckDir failed"},
    {ERR_FILE_SET_KEY_VALUE, "SDK KLIBCFileSetKeyValue failed"},
    {ERR_FILE_UNLOCK, "SDK KLIBCFileUnlockByFile failed"},
    {ERR_FILE_GET_KEYS, "SDK KLIBCFileGetKeys failed"},
    {ERR_FILE_ENUM_DIR, "SDK KLIBCFileEnumDir failed"},
    {ERR_OUT_OF_MEMORY, "SDK out of memory"},
    {ERR_PID_FILE_CREATE, "SDK KLIBCProcPidFileCreate failed"},
    {ERR_RUN_AS, "SDK failed to run as"},
    {ERR_STRING_LIST_PUSH, "SDK failed to KLIBCSzListPush"},
    {ERR_FORK_CHILD, "SDK failed to KLIBCProcForkChildNoWait"},
    {ERR_EXEC, "SDK failed to KLIBCExecl"},
    {ERR_USER_ALLOC, "SDK KORVUserAlloc failed"},
    {ERR_USER_ENUM, "SDK KLIBUserEnum failed"},
    {ERR_USER_INFO_ENUM, "SDK KLIBUserInfoEnum failed"},
    {ERR_USER_INFO_ENUM_BY_SUBSTR, "SDK KLIBUserInfoEnumBySubstr failed"},
    {ERR_USER_GET_UGID, "SDK KORVUserGetUGID failed"},
    {ERR_USER_GET_BY_UID, "SDK failed to KORVUserGetByUID"},
    {ERR_USER_GET, "SDK failed to KORVUserGet"},
    {ERR_USER_REAL_NAME_GET, "SDK failed to KLIBUserRealNameGet"},
    {ERR_SERVICE_USER, "SDK failed to get Postara Server user"},
    {ERR_GROUP_ALLOC, "SDK KORVGroupAlloc failed"},
    {ERR_GROUP_INFO_ENUM_BY_SUBSTR, "SDK KLIBGroupInfoEnumBySubstr failed"},
    {ERR_GROUP_IS_ADMIN_MEMBER, "SDK KLIBGroupIsAdminGroupMem failed"},
    {ERR_GROUP_GET, "SDK failed to KORVGroupGet"},
    {ERR_GROUP_GET_BY_GID, "SDK failed to KORVGroupGetByGID"},
    {ERR_GROUP_LIST_MEMBER, "SDK failed to KORVGroupListMember"},
    {ERR_UPGRADING_DOMAIN_DB, "upgrading domain db"},
    {ERR_DUPLICATE_DOMAIN_NAME, "duplicate domain name"},
    {ERR_INVALID_DOMAIN_NAME, "invalid domain name"},
    {ERR_LOAD_IMAP_POP3, "failed to load imap_pop3 settings"},
    {ERR_LOAD_SMTP, "failed to load smtp settings"},
    {ERR_LOAD_SECURITY, "failed to load security settings"},
    {ERR_LOAD_MIMEDEFANG, "failed to load mimedefang settings"},
    {ERR_RUN_WEBAPI, "failed to run webapi"},
    {ERR_CLUSTER_NOT_INITED, "Postara Server cluster is not inited"},
    {ERR_BAD_DB_SESSION, "bad db session"},
    {ERR_INSERT_QUERY, "failed to execute insert query"},
    {ERR_REPLACE_QUERY, "failed to execute replace query"},
    {ERR_DELETE_QUERY, "failed to execute delete query"},
    {ERR_UPDATE_QUERY, "failed to execute update query"},
    {ERR_MULTIPLE_QUERY, "failed to execute multiple query"},
    {ERR_CREATE_DB, "failed to create db"},
    {ERR_UPGRADE_DB, "failed to upgrade db"},
    {ERR_SELECT_QUERY, "failed to execute select query"},
};

}  // namespace

const char* ErrorText(ErrorCode code) {
  for (const CodeText& entry : kTexts) {
    if (entry.code == code) {
      return entry.text;
    }
  }
  return "unknown error";
}

LogException::LogException(ErrorCode error_code, const std::string& message, long priority,
                           std::string source_file, int source_line)
    : std::runtime_error(message),
      code(error_code),
      file(std::move(source_file)),
      line(source_line) {
  maillog(static_cast<int>(priority), "%s:%d (%d) %s: %s", file.c_str(), line,
          static_cast<int>(code), ErrorText(code), what());
}

LogException::~LogException() = default;

}  // namespace korvmailserver

namespace MDOMAIN::BASE {

unsigned int ToApiError(korvmailserver::ErrorCode code) {
  constexpr unsigned int kUnknown = 117;
  switch (code) {
    case korvmailserver::ERR_NONE:
      return 0;
    case korvmailserver::ERR_RUN_AS:
      return 5615;
    case korvmailserver::ERR_SERVICE_USER:
      return kApiErrorAccounts;
    case korvmailserver::ERR_DUPLICATE_DOMAIN_NAME:
      return 5618;
    case korvmailserver::ERR_INVALID_DOMAIN_NAME:
      return kApiErrorInvalid;
    default:
      return kUnknown;
  }
}

}  // namespace MDOMAIN::BASE
