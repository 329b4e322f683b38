// The registry's schema and statements.
#include "lib-domain/db/email_owner.h"

#include <sqlite3.h>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"

namespace MDOMAIN::DB {

namespace {

// The reason, which the one error line does not give.
constexpr const char* kCannotWrite = "Cannot write to database [%s]: %s";

const char* const kLocalPart = "local_part";
const char* const kDomainPart = "domain_part";
const char* const kDomainIdx = "domain_idx";

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS domain_part(domain_name TEXT PRIMARY KEY, domain_idx INTEGER NOT "
    "NULL );CREATE TABLE IF NOT EXISTS local_part(local_part TEXT NOT NULL, domain_idx INTEGER NOT "
    "NULL, user_name TEXT NOT NULL, PRIMARY KEY (local_part, domain_idx));";

// The primary keys compare bytes; a look-up ignores case and would read whole tables. Rows that
// differ in case only stand in insertion order in these indexes as in the tables, so which of them
// is found first does not change.
const char* const kIndexes[] = {
    "CREATE INDEX IF NOT EXISTS IDX_local_part_nocase ON local_part(domain_idx, local_part COLLATE "
    "NOCASE)",
    "CREATE INDEX IF NOT EXISTS IDX_domain_part_nocase ON domain_part(domain_name COLLATE NOCASE)",
};

// Appends the text that sqlite3_mprintf made, and frees it. False when there is none.
bool Push(char* text, SQLCmd& cmds) {
  if (text == nullptr) {
    return false;
  }
  cmds.emplace_back(text);
  sqlite3_free(text);
  return true;
}

bool HoldsZeroByte(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

bool AddLocalPart(const RECORD::LocalPart& part, SQLCmd& cmds) {
  const std::string local_part = part.GetLocalPart();
  const std::string user_name = part.GetUserName();
  return !HoldsZeroByte(local_part) && !HoldsZeroByte(user_name) &&
         Push(sqlite3_mprintf("INSERT OR IGNORE INTO %q (local_part, domain_idx, user_name) VALUES "
                              "('%q', '%d', '%q');",
                              kLocalPart, local_part.c_str(), part.GetDomainIdx(),
                              user_name.c_str()),
              cmds);
}

bool AddDomainPart(const RECORD::DomainPart& part, SQLCmd& cmds) {
  const std::string domain_name = part.GetDomainName();
  return !HoldsZeroByte(domain_name) &&
         Push(sqlite3_mprintf("INSERT OR IGNORE INTO %q (domain_name, domain_idx) VALUES ('%q', "
                              "'%d');",
                              kDomainPart, domain_name.c_str(), part.GetDomainIdx()),
              cmds);
}

}  // namespace

EmailOwner::EmailOwner() : EmailOwner(PATHS::EmailOwnerDb()) {}

EmailOwner::EmailOwner(const std::string& path) : DBHandler(path, kSchema) {
  setReadOnlyAllowed(true);
  _Open();
}

EmailOwner::~EmailOwner() {
  _FinalizeGetOwner();
  disconnect();
}

bool EmailOwner::CreateLocalPart(const std::vector<RECORD::LocalPart>& parts) {
  if (!_IsOpen()) {
    return false;
  }
  SQLCmd cmds;
  cmds.reserve(parts.size());
  for (const RECORD::LocalPart& part : parts) {
    if (!AddLocalPart(part, cmds)) {
      LOG_ERROR("fail to create insert local_part cmd");
      return false;
    }
  }
  if (exeCmds(cmds, true) != 0) {
    LOG_WARNING(kCannotWrite, GetPath().c_str(), GetErrText().c_str());
    LOG_ERROR("fail to insert local_part table");
    return false;
  }
  return true;
}

bool EmailOwner::CreateDomainPart(const std::vector<RECORD::DomainPart>& parts) {
  if (!_IsOpen()) {
    return false;
  }
  SQLCmd cmds;
  cmds.reserve(parts.size());
  for (const RECORD::DomainPart& part : parts) {
    if (!AddDomainPart(part, cmds)) {
      LOG_ERROR("fail to create insert cmd");
      return false;
    }
  }
  if (exeCmds(cmds, true) != 0) {
    LOG_WARNING(kCannotWrite, GetPath().c_str(), GetErrText().c_str());
    LOG_ERROR("fail to insert domain_name table");
    return false;
  }
  return true;
}

bool EmailOwner::GetOwner(const std::string& local_part, const std::string& domain_name,
                          std::string& user_name) {
  if (!_IsOpen()) {
    return false;
  }
  user_name.clear();
  bool is_fresh = get_owner_ == nullptr;
  while (true) {
    if (!_PrepareGetOwner() || !_BindGetOwner(local_part, domain_name)) {
      return false;
    }
    const int result = sqlite3_step(get_owner_);
    if (result == SQLITE_ROW || result == SQLITE_DONE) {
      const unsigned char* text =
          result == SQLITE_ROW ? sqlite3_column_text(get_owner_, 0) : nullptr;
      user_name = text == nullptr ? "" : reinterpret_cast<const char*>(text);
      sqlite3_reset(get_owner_);
      return true;
    }
    const bool is_outdated = !is_fresh && (result == SQLITE_ERROR || result == SQLITE_SCHEMA);
    if (!is_outdated) {
      LOG_ERROR("sqlite3_step error, %s", sqlite3_errmsg(getDB()));
    }
    _FinalizeGetOwner();
    if (!is_outdated) {
      return false;
    }
    // The tables changed under the statement that was kept: asked anew, it tells what is wrong.
    is_fresh = true;
  }
}

void EmailOwner::_Open() {
  status_ = connect();
  was_open_ = was_open_ || status_ == 0;
  for (const char* index : kIndexes) {
    exeCmds({index}, false);
  }
}

// SQLite stays with the file that it opened: once another one has its name, it would answer from
// the old one for good and refuse every write.
void EmailOwner::_FollowReplacedFile() {
  int has_moved = 0;
  if (getDB() != nullptr) {
    sqlite3_file_control(getDB(), "main", SQLITE_FCNTL_HAS_MOVED, &has_moved);
  }
  const bool is_replaced = has_moved != 0 && postara::sdk::Exist(GetPath());
  const bool was_lost = status_ != 0 && was_open_;
  if (is_replaced || was_lost) {
    _FinalizeGetOwner();
    disconnect();
    _Open();
  }
}

bool EmailOwner::_IsOpen() {
  _FollowReplacedFile();
  if (status_ != 0) {
    LOG_ERROR("Open DBHandler cannot open before");
    return false;
  }
  return true;
}

bool EmailOwner::_PrepareGetOwner() {
  if (get_owner_ != nullptr) {
    return true;
  }
  SQLCmd cmds;
  if (!Push(sqlite3_mprintf("SELECT %q FROM %q WHERE %q = ?1 COLLATE NOCASE AND %q = (SELECT %q "
                            "FROM %q WHERE %q = ?2 COLLATE NOCASE LIMIT 1)",
                            "user_name", kLocalPart, "local_part", kDomainIdx, kDomainIdx,
                            kDomainPart, "domain_name"),
            cmds)) {
    LOG_ERROR("fail to create get owner cmd");
    return false;
  }
  if (sqlite3_prepare_v2(getDB(), cmds[0].c_str(), -1, &get_owner_, nullptr) != SQLITE_OK) {
    LOG_ERROR("fail to prepare get owner cmd");
    return false;
  }
  return true;
}

bool EmailOwner::_BindGetOwner(const std::string& local_part, const std::string& domain_name) {
  const auto bind = [this](int parameter, const std::string& text) {
    return sqlite3_bind_text(get_owner_, parameter, text.data(), static_cast<int>(text.size()),
                             SQLITE_STATIC);
  };
  if (bind(1, local_part) != SQLITE_OK || bind(2, domain_name) != SQLITE_OK) {
    LOG_ERROR("fail to create get owner cmd");
    _FinalizeGetOwner();
    return false;
  }
  return true;
}

void EmailOwner::_FinalizeGetOwner() {
  sqlite3_finalize(get_owner_);
  get_owner_ = nullptr;
}

}  // namespace MDOMAIN::DB
