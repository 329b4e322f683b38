// What was read of the domain database and is still what is stored there.
//
// The numbers in the file's header tell it without a lock (platform/include/database_numbers.h). In
// a transaction that writes, and where the header does not tell, everything is read each time.
#ifndef LIB_DOMAIN_DB_REMEMBERED_H
#define LIB_DOMAIN_DB_REMEMBERED_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_names.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/read_scope.h"
#include "platform/include/database_numbers.h"

namespace MDOMAIN::DB::INTERNAL {

// A value with the number of the file from which it was read.
template <typename Value>
using Remembered = std::optional<std::pair<uint32_t, Value>>;

// A list of which a page was asked for, and the whole of it once another page was. Of a list that
// was turned once the whole is read again after a change.
struct AskedList {
  uint32_t asked_at = 0;  // the file's number of changes then
  uint64_t turn = 0;      // when, among all lists
  Remembered<std::vector<unsigned int>> whole;
};

// The names of the domains, and when they were known to be those that are stored: at a number of
// the file's commits, and while nobody else commits and this connection does not change them.
struct KeptNames {
  std::shared_ptr<const DomainNames> names;
  uint32_t changes = 0;
  long long version = 0;  // what the connection calls the commits of others
  unsigned long own = 0;  // HandlerState::name_changes then
};

// Of one connection.
struct Memory {
  std::map<const char*, Remembered<bool>> in_schema;  // by the question
  KeptNames names;
  std::map<std::string, Remembered<int>> counts;  // by what is counted
  std::map<std::string, AskedList> lists;         // by the statement of the whole
  uint64_t last_turn = 0;
};

constexpr size_t kMostCounts = 1000;
constexpr size_t kMostLists = 8;

// Whether the numbers tell what the handler, which is open, would read now.
bool ReadNumbers(DomainDBHandler& handler, korvmailserver::DatabaseNumbers& numbers);

// Sets `value` to what `read(value)` gives, or gave while `number` was what it is now. `read` and
// its result as of a query.
template <typename Value, typename Read>
bool Remember(DomainDBHandler& handler, uint32_t korvmailserver::DatabaseNumbers::*number,
              Remembered<Value>& remembered, Value& value, const Read& read) {
  korvmailserver::DatabaseNumbers numbers;
  if (!ReadNumbers(handler, numbers)) {
    return read(value);
  }
  if (remembered && remembered->first == numbers.*number) {
    value = remembered->second;
    return true;
  }
  const ReadScope with_its_number(&handler);
  if (!read(value)) {
    return false;
  }
  if (ReadNumbers(handler, numbers)) {
    remembered.emplace(numbers.*number, value);
  }
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_REMEMBERED_H
