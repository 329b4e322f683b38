// The note has three lines: the counts, the state of the accounts, which may be empty, and that of
// the model.
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
constexpr const char* kVersion = "3";
constexpr mode_t kMode = 0644;

// The header of the file has the number of the last change, and the settings of the journal: in
// the mode where the number does not count each change, nothing can be told.
constexpr size_t kHeaderSize = 100;
constexpr size_t kWriteVersionAt = 18;
constexpr size_t kCounterAt = 24;
constexpr size_t kCounterSize = 4;
constexpr char kRollbackJournal = 1;

std::string DatabaseState() {
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

std::string ModelState() {
  const std::string database = DatabaseState();
  const std::string entries = korvmailserver::FileState(PATHS::AliasDb());  // their names set flags
  return entries.empty() || database.empty()
             ? ""
             : kVersion + (" entries " + entries) + "model " + database;
}

struct Note {
  std::string counts;
  RefreshState state;
};

// All of it is empty where there is none.
Note ReadNote() {
  Note note;
  std::string bytes;
  if (korvmailserver::ReadFile(PATHS::RefreshNote(), bytes) == 0) {
    std::istringstream lines(bytes);
    std::getline(lines, note.counts);
    std::getline(lines, note.state.accounts);
    std::getline(lines, note.state.model);
  }
  return note;
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

RefreshState StateBeforeRefresh() {
  AUTH_TYPE type = AUTH_UNKNOWN;
  if (BatchScope::IsAnyOpen()) {  // what was written in it is in no file yet
    return {};
  }
  if (!DomainMailConfCurrentAuthTypeGet(type) || type != AUTH_LOCAL) {
    return {};
  }
  return {korvmailserver::LocalAccountsState(), ModelState()};
}

bool FindRefreshNote(const RefreshState& state, RefreshCounts& counts) {
  if (state.accounts.empty() || state.model.empty()) {
    return false;
  }
  const Note note = ReadNote();
  std::istringstream numbers(note.counts);
  return note.state.accounts == state.accounts && note.state.model == state.model &&
         numbers >> counts.users >> counts.mirrored_users >> counts.groups >>
             counts.mirrored_groups;
}

// A page that was written to has a journal, of which the model's state knows.
bool IsModelAsNoted() {
  const std::string model = ModelState();
  return !model.empty() && ReadNote().state.model == model;
}

void KeepRefreshNote(const RefreshState& state, const RefreshCounts& counts) {
  const bool tells_nothing_new = state.accounts.empty() && ReadNote().state.model == state.model;
  if (state.model.empty() || tells_nothing_new || state.model != ModelState()) {
    return;
  }
  std::ostringstream text;
  text << counts.users << " " << counts.mirrored_users << " " << counts.groups << " "
       << counts.mirrored_groups << "\n"
       << state.accounts << "\n"
       << state.model << "\n";
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
