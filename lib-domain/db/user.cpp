// The statements of the mirrored users.
#include "lib-domain/db/user.h"

#include <algorithm>

#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/mirror_batch.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

// Columns of user_table: uid, name.
using UserColumns = Columns<Uid, Text>;
constexpr size_t kNameColumn = 1;

constexpr const char* kSelectByName =
    "SELECT * FROM user_table WHERE user_name='%q' COLLATE NOCASE";
constexpr const char* kSelectUser = "SELECT * FROM user_table WHERE uid='%u'";
constexpr const char* kSelectUsers = "SELECT * FROM user_table WHERE uid IN (%q)";
constexpr const char* kSelectGroups =
    "SELECT * FROM group_to_user_table WHERE uid='%u' ORDER BY rowid";
constexpr const char* kExists = "SELECT EXISTS (SELECT 1 FROM user_table WHERE uid='%u' LIMIT 1)";
constexpr const char* kInsert =
    "INSERT OR IGNORE INTO  user_table (uid, user_name) VALUES ('%u', '%q');";
constexpr const char* kUpdate = "UPDATE user_table SET user_name = '%q' WHERE uid = %u";
constexpr const char* kDelete = "DELETE FROM user_table WHERE uid IN (%q)";

}  // namespace

User::User()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database User::_DomainDb() const {
  return {handler_, status_};
}

bool User::GetUID(const std::string& name, unsigned int& uid) {
  return _DomainDb().Query<Columns<Uid>>(Sql(kSelectByName, name),
                                         [&uid](unsigned int stored) { uid = stored; });
}

bool User::GetName(const unsigned int& uid, std::string& name) {
  return _DomainDb().GetText(Sql(kSelectUser, uid), kNameColumn, name);
}

bool User::GetNames(const std::vector<unsigned int>& uids,
                    std::unordered_map<unsigned int, std::string>& names) {
  const auto keep = [&names](unsigned int uid, std::string&& name) {
    names[uid] = std::move(name);
  };
  if (uids.size() == 1) {
    return _DomainDb().Query<UserColumns>(Sql(kSelectUser, uids.front()), keep);
  }
  const std::vector<std::string> pieces = JoinIdsInPieces(uids);
  return std::all_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
    return _DomainDb().Query<UserColumns>(FormatStatement(kSelectUsers, piece.c_str()), keep);
  });
}

bool User::FindBelongingGroups(const unsigned int& uid, std::vector<unsigned int>& gids) {
  return _DomainDb().Append<Columns<Gid>>(Sql(kSelectGroups, uid), gids);
}

void INTERNAL::AddUsers(const std::vector<RECORD::User>& users, StatementBatch& batch) {
  batch.AddValid(kInsert, users, [](const RECORD::User& user) {
    return std::make_tuple(user.GetUID(), user.GetUserName());
  });
}

bool User::Create(const std::vector<RECORD::User>& users) {
  StatementBatch batch;
  AddUsers(users, batch);
  return _DomainDb().Run(batch, "fail to insert user_table");
}

bool User::Set(const std::vector<RECORD::User>& users) {
  StatementBatch batch;
  batch.AddValid(kUpdate, users, [](const RECORD::User& user) {
    return std::make_tuple(user.GetUserName(), user.GetUID());
  });
  return _DomainDb().Run(batch, "fail to insert user_table");
}

bool User::Delete(const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  batch.AddWithIds(kDelete, uids);
  return _DomainDb().Run(batch, "fail to insert user_table");
}

// The answer is not handed out: programs that link this operation have always been told false.
bool User::IsExists(const RECORD::User& user) {
  bool exists = false;
  _DomainDb().GetExists(Sql(kExists, user.GetUID()), exists);
  return false;
}

bool User::List(const UserDBFilter& filter, std::vector<RECORD::User>& users) {
  return _DomainDb().IsOpen() && _DomainDb().Append<UserColumns>(ComposeQueryCmd(filter), users);
}

bool User::ForEach(const UserDBFilter& filter, const UserVisitor& use) {
  return _DomainDb().IsOpen() &&
         _DomainDb().Query<UserColumns>(
             ComposeQueryCmd(filter),
             [&use](unsigned int uid, const std::string& name) { use(RECORD::User(uid, name)); });
}

}  // namespace MDOMAIN::DB
