// What is kept of a refresh that found nothing to do: while nothing changed, the next one need not
// look.
//
// A refresh gives the same whenever accounts, settings and model are the same. So one that changed
// nothing is noted, with the state of all files that it follows from; as long as they are in that
// state there is nothing to do again. Where the accounts' files alone are in another one, accounts
// and groups are compared with the mirror: as long as that is what they are, too, nothing else has
// to be looked at. Only local accounts are files: a directory is always asked. The note is a small
// file that may be lost or removed at any time.
#ifndef LIB_DOMAIN_SYNC_REFRESH_NOTE_H
#define LIB_DOMAIN_SYNC_REFRESH_NOTE_H

#include <cstddef>
#include <string>

namespace MDOMAIN::UTILS::INTERNAL {

// What a refresh that changes nothing says.
struct RefreshCounts {
  size_t users = 0;  // accounts obtained
  size_t mirrored_users = 0;
  size_t groups = 0;
  size_t mirrored_groups = 0;
};

// The state of everything that a refresh follows from. Take it before anything is read.
struct RefreshState {
  std::string accounts;  // the files of accounts, host settings; empty when it cannot be told
  std::string model;     // the model, the names that set flags; empty when it cannot be told
};
RefreshState StateBeforeRefresh();

// False where no refresh of this state is noted.
bool FindRefreshNote(const RefreshState& state, RefreshCounts& counts);
// Whether the model is, now and with nothing written to it since, as the noted refresh left it,
// whatever the accounts' files are.
bool IsModelAsNoted();

// Keeps the note in place of an older one when the model is still in the state that
// StateBeforeRefresh told. Whether it can be kept is of no consequence.
void KeepRefreshNote(const RefreshState& state, const RefreshCounts& counts);

// The line that a refresh logs of accounts, none of whom came or went.
void LogUnchanged(const char* noun, const char* id, size_t accounts, size_t mirrored);

// Counts the lines that are logged while it lives.
class LineCounter {
 public:
  LineCounter();
  ~LineCounter();
  LineCounter(const LineCounter&) = delete;
  LineCounter& operator=(const LineCounter&) = delete;

  size_t Count() const;
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_REFRESH_NOTE_H
