// passwd and group files, and the texts that a directory is asked with. What is listed must have a
// usable name and id; what is not listed must leave a gap or have a reason.
#include <cstdint>
#include <string>

#include "platform/account/account_files.h"
#include "platform/directory/text.h"

namespace {

using namespace korvmailserver::account;

template <class Row>
void Check(const Table<Row>& table) {
  for (const Row& row : table.rows()) {
    const bool named = !row.name.empty() && row.name.size() <= 255 &&
                       korvmailserver::directory::IsText(row.name) &&
                       row.name.find('\n') == std::string::npos;
    if (!named || IdOf(row) == KORV_UNKNOWN_ID || table.ByName(row.name) != &row ||
        (row.listed && table.ById(IdOf(row)) != &row)) {
      __builtin_trap();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  UserTable users(NameCase::kFolded);
  GroupTable groups(NameCase::kExact);
  const IdRanges ranges = ParseLoginDefs(bytes);
  ParsePasswd(bytes, ranges, users);
  ParseGroup(bytes, ranges, groups);
  Check(users);
  Check(groups);
  for (const GroupRow& group : groups.rows()) {
    std::vector<std::string> names;
    std::string why;
    if (!CollectMembers(users, groups, group, names, why) && users.complete()) {
      __builtin_trap();
    }
  }
  using namespace korvmailserver::directory;
  const std::string filter = Both(bytes, Equals("uid", bytes));
  if (Equals("uid", bytes).find_first_of("()*\n", 5) != Equals("uid", bytes).size() - 1 ||
      filter.empty() || FoldDn(FoldDn("uid=" + bytes)).empty()) {
    __builtin_trap();
  }
  return 0;
}
