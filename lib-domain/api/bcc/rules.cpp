// The table of blind-copy rules and the process-wide object that works on it.
//
// Lies in the settings database, which other parts of the mail server write, too: the first program
// that opens the file creates its whole schema, and each waits up to a minute for the others.
#include "lib-domain/api/bcc.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <new>
#include <utility>

#include "lib-domain/api/bcc/instance.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/model_state.h"
#include "platform/include/db_handler.h"
#include "platform/include/domain_setting.h"
#include "platform/include/sqlite.h"

using MDOMAIN::DB::INTERNAL::IsUnknownDomain;

namespace {

constexpr int kBusyMilliseconds = 60000;

constexpr const char* kInsert =
    "INSERT OR REPLACE INTO bcc_table(name,type,bcc_to,domain_id) VALUES ('%q','%d','%q','%d');";
constexpr const char* kDeleteAll = "DELETE FROM bcc_table WHERE domain_id='%d';";
constexpr const char* kDeleteRule =
    "DELETE FROM bcc_table WHERE domain_id='%d' AND name='%q' AND type='%d';";
constexpr const char* kDeleteDestination =
    "DELETE FROM bcc_table WHERE domain_id = '%d' AND bcc_to = '%q' COLLATE NOCASE;";
// Many destinations at once: one walk through the table instead of one for each.
constexpr const char* kDeleteDestinations =
    "DELETE FROM bcc_table WHERE domain_id = '%d' AND bcc_to COLLATE NOCASE IN (%s);";
constexpr size_t kDestinationsSize = 500000;  // bytes of destinations in one statement
constexpr const char* kList =
    "SELECT * FROM bcc_table WHERE domain_id='%d' AND type='%d' ORDER BY %q %q LIMIT '%d' OFFSET "
    "'%d'";
constexpr const char* kCount = "SELECT COUNT(*) FROM bcc_table WHERE domain_id='%d' AND type='%d'";
// The columns of kList and kListSystem: name, type, destination, domain.
constexpr int kColumns = 4;
constexpr const char* kListSystem =
    "SELECT name,type,bcc_to,domain_id FROM bcc_table ORDER BY domain_id,type,name";

BCC* process_instance = nullptr;

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = korvmailserver::FormatSqlV(format, arguments);
  va_end(arguments);
  if (text.empty()) {
    throw std::bad_alloc();
  }
  return text;
}

// "%q" would cut such a value, and what is left could be another rule.
bool HasZeroByte(const BccInfo& rule) {
  return rule.name.find('\0') != std::string::npos || rule.bcc_to.find('\0') != std::string::npos;
}

bool IsSortable(const std::string& column, const std::string& direction) {
  constexpr std::array<const char*, 4> kNames = {"name", "type", "bcc_to", "domain_id"};
  const bool known = std::find(kNames.begin(), kNames.end(), column) != kNames.end();
  return known && (MDOMAIN::BASE::EqualsIgnoreCase(direction, "asc") ||
                   MDOMAIN::BASE::EqualsIgnoreCase(direction, "desc"));
}

}  // namespace

void MDOMAIN::API::INTERNAL::ResetBccInstanceForTest() {
  delete process_instance;
  process_instance = nullptr;
}

MDOMAIN::API::INTERNAL::OtherBccInstance::OtherBccInstance()
    : kept_(std::exchange(process_instance, nullptr)) {}

MDOMAIN::API::INTERNAL::OtherBccInstance::~OtherBccInstance() {
  delete std::exchange(process_instance, kept_);
}

BCC::BCC(int domain_id, const std::string& db_path) : domain_id_(domain_id), db_path_(db_path) {}

BCC::~BCC() = default;

BCC* BCC::getInstance() {
  return process_instance != nullptr ? process_instance
                                     : _Create(0, MDOMAIN::PATHS::SettingsDb(), true);
}

BCC* BCC::getInstance(int domain_id) {
  return process_instance != nullptr ? process_instance
                                     : _Create(domain_id, MDOMAIN::PATHS::SettingsDb(), true);
}

BCC* BCC::getInstance(const std::string& db_path) {
  return process_instance != nullptr ? process_instance : _Create(0, db_path, false);
}

BCC* BCC::_Create(int domain_id, const std::string& db_path, bool log_no_memory) {
  process_instance = new (std::nothrow) BCC(domain_id, db_path);
  if (process_instance == nullptr) {
    if (log_no_memory) {
      LOG_ERROR("out of memory");
    }
    return nullptr;
  }
  if (process_instance->_Init() != 0) {
    LOG_ERROR("bcc init fail");
    delete process_instance;
    process_instance = nullptr;
  }
  return process_instance;
}

int BCC::_Init() {
  handler_.reset(new (std::nothrow) DBHandler(db_path_, MultipleDomain::SettingsSchema()));
  if (handler_ == nullptr) {
    LOG_ERROR("bcc db init fail");
    return -1;
  }
  handler_->readMissingAsNew();
  handler_->refuseLost();
  if (_OpenFile() == nullptr) {
    LOG_ERROR("bcc db connect fail");
    return -1;
  }
  handler_->setBusyTimeout(kBusyMilliseconds);
  return 0;
}

// The connection to the file that stands there now; null when it cannot be opened.
sqlite3* BCC::_OpenFile() {
  if (handler_->lookAtFile() != DBHandler::FileNow::kSame) {
    handler_->disconnect();
  }
  handler_->connect();
  return handler_->getDB();
}

int BCC::_RunBatch(const std::vector<std::string>& statements) {
  _OpenFile();
  const int result = handler_->exeCmds(statements, true);
  if (result != 0) {
    LOG_ERROR("sqlite3_step: [%d] %s\n", result, handler_->GetErrText().c_str());
    return -1;
  }
  return 0;
}

int BCC::_ForEachRow(const std::string& statement, const RowVisitor& visit) {
  korvmailserver::Statement rows(_OpenFile(), statement);
  const auto read = [&visit](const korvmailserver::Statement& row) {
    visit({row.Text(0), row.Int(1), row.Text(2)}, row.Int(3));
  };
  if (rows.Columns() >= kColumns && rows.ForEachRow(read)) {
    return 0;
  }
  LOG_ERROR("sqlite3_step: [%d] %s\n", sqlite3_errcode(handler_->getDB()), rows.Error());
  LOG_ERROR("queryBCC data fail");
  return -1;
}

int BCC::setBCC(const std::list<BccInfo>& rules) {
  return setBCC(domain_id_, rules);
}

int BCC::setBCC(int domain_id, const std::list<BccInfo>& rules) {
  bool is_unknown = false;
  if (!rules.empty() && (!IsUnknownDomain(domain_id, is_unknown) || is_unknown)) {
    LOG_ERROR("There is no domain to set rules for, domain_id: [%d]", domain_id);
    return -1;
  }
  SQLCmd statements;
  statements.reserve(rules.size());
  bool whole = true;
  for (const BccInfo& rule : rules) {
    whole = whole && !HasZeroByte(rule);
    statements.push_back(
        Format(kInsert, rule.name.c_str(), rule.type, rule.bcc_to.c_str(), domain_id));
  }
  if (!whole || _RunBatch(statements) != 0) {
    LOG_ERROR("fail to insert info into bcc table");
    return -1;
  }
  return 0;
}

int BCC::addBCC(int type, const std::string& name, const std::string& bcc_to) {
  return setBCC({BccInfo{name, type, bcc_to}});
}

int BCC::deleteAllBCC() {
  return deleteAllBCC(domain_id_);
}

int BCC::deleteAllBCC(int domain_id) {
  return _RunBatch({Format(kDeleteAll, domain_id)});
}

int BCC::deleteBCC(const std::list<BccInfo>& rules) {
  return deleteBCC(domain_id_, rules);
}

int BCC::deleteBCC(int domain_id, const std::list<BccInfo>& rules) {
  SQLCmd statements;
  for (const BccInfo& rule : rules) {
    if (!HasZeroByte(rule)) {  // no such rule is stored
      statements.push_back(Format(kDeleteRule, domain_id, rule.name.c_str(), rule.type));
    }
  }
  return _RunBatch(statements);
}

int BCC::deleteBCC(const std::list<std::string>& destinations) {
  return deleteBCC(domain_id_, destinations);
}

int BCC::deleteBCC(int domain_id, const std::list<std::string>& destinations) {
  if (destinations.size() == 1 && destinations.front().find('\0') == std::string::npos) {
    return _RunBatch({Format(kDeleteDestination, domain_id, destinations.front().c_str())});
  }
  SQLCmd statements;
  std::string list;
  for (const std::string& destination : destinations) {
    if (destination.find('\0') == std::string::npos) {
      list += Format(list.empty() ? "'%q'" : ",'%q'", destination.c_str());
    }
    if (!list.empty() &&
        (list.size() > kDestinationsSize || &destination == &destinations.back())) {
      statements.push_back(Format(kDeleteDestinations, domain_id, list.c_str()));
      list.clear();
    }
  }
  return _RunBatch(statements);
}

int BCC::ForEachRule(int type, int domain_id, int offset, int limit, const std::string& sort_column,
                     const std::string& sort_order, const RuleVisitor& visit) {
  if (!IsSortable(sort_column, sort_order)) {
    LOG_ERROR("queryBCC data fail");
    return -1;
  }
  // Only the name is unique within a domain and type.
  const std::string order = sort_column == "name" ? sort_order : sort_order + ", name asc";
  const std::string statement =
      Format(kList, domain_id, type, sort_column.c_str(), order.c_str(), limit, offset);
  return _ForEachRow(statement, [&visit](BccInfo&& rule, int) { visit(std::move(rule)); });
}

int BCC::LoadBCCList(int type, int domain_id, int offset, int limit, const std::string& sort_column,
                     const std::string& sort_order, std::list<BccInfo>& rules) {
  std::list<BccInfo> found;
  const auto keep = [&found](BccInfo&& rule) { found.push_back(std::move(rule)); };
  if (ForEachRule(type, domain_id, offset, limit, sort_column, sort_order, keep) != 0) {
    return -1;
  }
  rules.swap(found);
  return 0;
}

int BCC::getBCCList(const Filter& filter, std::list<BccInfo>& rules) {
  return LoadBCCList(filter.type, domain_id_, filter.offset, filter.limit, filter.sort_column,
                     filter.sort_direction, rules);
}

int BCC::getTotalBccNum(const Filter& filter) {
  korvmailserver::Statement count(_OpenFile(), Format(kCount, domain_id_, filter.type));
  if (count.Step() != SQLITE_ROW) {
    LOG_ERROR("queryBCC data fail");
    return -1;
  }
  return count.Int(0);
}

int BCC::getSystemAllBCCList(std::list<BccInfo>& rules) {
  std::list<BccInfo> found;
  const auto keep = [&found](BccInfo&& rule, int) { found.push_back(std::move(rule)); };
  if (_ForEachRow(kListSystem, keep) != 0) {
    return -1;
  }
  rules.swap(found);
  return 0;
}

int BCC::PublishRules() {
  if (_OpenFile() == nullptr || !MDOMAIN::CONTROL::INTERNAL::PublishBccFile(db_path_)) {
    LOG_ERROR("Fail to set file %s", db_path_.c_str());
    return -1;
  }
  return 0;
}
