// passwd and group files, and the texts that a directory is asked with. What is listed must have a
// usable name and id; what is not listed must leave a gap or have a reason.

#include "fuzz/target.h"
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
    fuzz::Require(named && IdOf(row) != KORV_UNKNOWN_ID && table.ByName(row.name) == &row &&
                  (!row.listed || table.ById(IdOf(row)) == &row));
  }
}

}  // namespace

void fuzz::Run(const std::string& bytes) {
  UserTable users(NameCase::kFolded);
  GroupTable groups(NameCase::kExact);
  const IdRanges ranges = ParseLoginDefs(bytes);
  ParsePasswd({"passwd", bytes}, ranges, users);
  ParseGroup({"group", bytes}, ranges, groups);
  Check(users);
  Check(groups);
  for (const GroupRow& group : groups.rows()) {
    std::vector<std::string> names;
    std::string why;
    Require(CollectMembers(users, groups, group, names, why) || !users.complete() ||
            !groups.complete());
  }
  using namespace korvmailserver::directory;
  const std::string test = Equals("uid", bytes);
  Require(test.find_first_of("()*\n", 5) == test.size() - 1);
  Require(!Both(bytes, test).empty() && !FoldDn(FoldDn("uid=" + bytes)).empty());
}
