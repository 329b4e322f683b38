// The note has two lines: the counts, and the state as a text.
#include "lib-domain/sync/refresh_note.h"

#include <sstream>
#include <utility>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/handler.h"
#include "platform/include/batch_scope.h"
#include "platform/include/file_state.h"
#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/new_file.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

// Another number for another meaning of the file, or of "nothing to do".
constexpr const char* kVersion = "2";
constexpr mode_t kMode = 0644;

// The header of the file has the number of the last change, and the settings of the journal: in
// the mode where the number does not count each change, nothing can be told.
constexpr size_t kHeaderSize = 100;
constexpr size_t kWriteVersionAt = 18;
constexpr size_t kCounterAt = 24;
constexpr size_t kCounterSize = 4;
constexpr char kRollbackJournal = 1;

std::string ModelState() {
  const DB::DomainDBHandler* const handler = DB::DomainDBHandler::GetDomainDBHandler();
  if (handler == nullptr || postara::sdk::Exist(handler->GetPath() + "-journal")) {
    return "";
  }
  const std::string state = korvmailserver::FileState(handler->GetPath());
  std::string header(kHeaderSize, '\0');
  sqlite3_file* file = nullptr;
  if (state.empty() ||
      sqlite3_file_control(handler->getDB(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
          SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr ||
      file->pMethods->xRead(file, header.data(), static_cast<int>(header.size()), 0) != SQLITE_OK ||
      header[kWriteVersionAt] != kRollbackJournal) {
    return "";
  }
  std::string text = state;
  for (size_t i = 0; i < kCounterSize; ++i) {
    text += std::to_string(static_cast<unsigned char>(header[kCounterAt + i])) + " ";
  }
  return text;
}

struct CountedLines {
  size_t count = 0;
  korvmailserver::MailLogSink before;
};

CountedLines& Lines() {
  static auto* lines = new CountedLines();
  return *lines;
}

}  // namespace

std::string StateBeforeRefresh() {
  AUTH_TYPE type = AUTH_UNKNOWN;
  if (BatchScope::IsAnyOpen()) {  // what was written in it is in no file yet
    return "";
  }
  if (!DomainMailConfCurrentAuthTypeGet(type) || type != AUTH_LOCAL) {
    return "";
  }
  const std::string accounts = korvmailserver::LocalAccountsState();
  const std::string model = ModelState();
  const std::string entries = korvmailserver::FileState(PATHS::AliasDb());  // their names set flags
  return accounts.empty() || entries.empty() || model.empty()
             ? ""
             : kVersion + (" " + accounts) + "entries " + entries + "model " + model;
}

bool FindRefreshNote(const std::string& state, RefreshCounts& counts) {
  std::string bytes;
  if (state.empty() || korvmailserver::ReadFile(PATHS::RefreshNote(), bytes) != 0) {
    return false;
  }
  const size_t end = bytes.find('\n');
  std::istringstream numbers(bytes.substr(0, end));
  return end != std::string::npos && bytes.substr(end + 1) == state + "\n" &&
         numbers >> counts.users >> counts.mirrored_users >> counts.groups >>
             counts.mirrored_groups;
}

void KeepRefreshNote(const std::string& state, const RefreshCounts& counts) {
  const std::string model = ModelState();
  if (state.empty() || model.empty() || state.size() < model.size() ||
      state.compare(state.size() - model.size(), model.size(), model) != 0) {
    return;
  }
  std::ostringstream text;
  text << counts.users << " " << counts.mirrored_users << " " << counts.groups << " "
       << counts.mirrored_groups << "\n"
       << state << "\n";
  korvmailserver::NewFile file(PATHS::RefreshNote());
  if (file.Open() && file.Append(text.str())) {
    file.Replace(kMode);
  }
}

LineCounter::LineCounter() {
  Lines().count = 0;
  Lines().before = korvmailserver::SetMailLogSink(nullptr);
  korvmailserver::SetMailLogSink([](int level, const std::string& line) {
    ++Lines().count;
    return Lines().before && Lines().before(level, line);
  });
}

LineCounter::~LineCounter() {
  korvmailserver::SetMailLogSink(std::exchange(Lines().before, nullptr));
}

size_t LineCounter::Count() const {
  return Lines().count;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
