// The tables and triggers are ours, and belong to no version of the schema. A cascade fires the
// triggers of the rows that it removes.
#include "lib-domain/db/address_change.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

#define LOG_TABLE "mdomain_address_change_table"
#define FOLLOWER_TABLE "mdomain_follower_table"

constexpr const char* kCreateTables[] = {
    "CREATE TABLE IF NOT EXISTS " LOG_TABLE "(domain_idx INTEGER, is_name INTEGER, text TEXT)",
    "CREATE TABLE IF NOT EXISTS mdomain_special_address_table(domain_idx INTEGER NOT NULL, "
    "local_part TEXT NOT NULL, address TEXT NOT NULL, gives_way INTEGER NOT NULL)",
    "CREATE TABLE IF NOT EXISTS " FOLLOWER_TABLE
    "(follower TEXT NOT NULL PRIMARY KEY, state TEXT NOT NULL)",
};

#define NOTE "INSERT INTO " LOG_TABLE "(domain_idx, is_name, text) "
#define NAME_OF(ROW, COLUMN) NOTE "VALUES(" ROW ".domain_idx, 1, coalesce(" ROW "." COLUMN ", ''));"
#define ALIAS_OF(ROW) NOTE "VALUES(" ROW ".domain_idx, 0, coalesce(" ROW ".account_alias, ''));"
#define ALIASES NOTE "SELECT alias.domain_idx, 0, coalesce(alias.account_alias, '') FROM "
// All that a user has in a domain; that members of a group have there; that a member has in the
// domains of the group; that a user has in all domains.
#define OF_USER(ROW)                                                       \
  ALIASES "domain_user_alias_table AS alias WHERE alias.domain_idx = " ROW \
          ".domain_idx AND alias.uid = " ROW ".uid;"
#define OF_MEMBERS(ROW)                                                           \
  ALIASES                                                                         \
  "group_to_user_table AS member CROSS JOIN domain_user_alias_table AS alias ON " \
  "alias.domain_idx = " ROW                                                       \
  ".domain_idx AND alias.uid = member.uid WHERE "                                 \
  "member.gid = " ROW ".gid;"
#define OF_MEMBER(ROW)                                                                            \
  ALIASES                                                                                         \
  "domain_group_role_table AS granted CROSS JOIN domain_user_alias_table AS alias "               \
  "ON alias.domain_idx = granted.domain_idx AND alias.uid = " ROW ".uid WHERE granted.gid = " ROW \
  ".gid;"
#define EVERYWHERE(ROW) ALIASES "domain_user_alias_table AS alias WHERE alias.uid = " ROW ".uid;"

struct Trigger {
  const char* name;
  const char* when;  // event and table
  const char* what;
};

constexpr Trigger kTriggers[] = {
    {"mdomain_alias_added", "INSERT ON domain_user_alias_table", ALIAS_OF("NEW")},
    {"mdomain_alias_removed", "DELETE ON domain_user_alias_table", ALIAS_OF("OLD")},
    {"mdomain_alias_changed", "UPDATE ON domain_user_alias_table", ALIAS_OF("OLD") ALIAS_OF("NEW")},
    {"mdomain_role_added", "INSERT ON domain_user_role_table", OF_USER("NEW")},
    {"mdomain_role_removed", "DELETE ON domain_user_role_table", OF_USER("OLD")},
    {"mdomain_role_changed", "UPDATE ON domain_user_role_table", OF_USER("OLD") OF_USER("NEW")},
    {"mdomain_removal_added", "INSERT ON domain_group_removed_user_table", OF_USER("NEW")},
    {"mdomain_removal_removed", "DELETE ON domain_group_removed_user_table", OF_USER("OLD")},
    {"mdomain_removal_changed", "UPDATE ON domain_group_removed_user_table",
     OF_USER("OLD") OF_USER("NEW")},
    {"mdomain_group_role_added", "INSERT ON domain_group_role_table", OF_MEMBERS("NEW")},
    {"mdomain_group_role_removed", "DELETE ON domain_group_role_table", OF_MEMBERS("OLD")},
    {"mdomain_group_role_changed", "UPDATE ON domain_group_role_table",
     OF_MEMBERS("OLD") OF_MEMBERS("NEW")},
    {"mdomain_member_added", "INSERT ON group_to_user_table", OF_MEMBER("NEW")},
    {"mdomain_member_removed", "DELETE ON group_to_user_table", OF_MEMBER("OLD")},
    {"mdomain_member_changed", "UPDATE ON group_to_user_table", OF_MEMBER("OLD") OF_MEMBER("NEW")},
    {"mdomain_user_changed", "UPDATE ON user_table", EVERYWHERE("OLD") EVERYWHERE("NEW")},
    {"mdomain_domain_added", "INSERT ON domain_table", NAME_OF("NEW", "domain_name")},
    {"mdomain_domain_removed", "DELETE ON domain_table", NAME_OF("OLD", "domain_name")},
    {"mdomain_domain_changed", "UPDATE OF domain_idx, domain_name ON domain_table",
     NAME_OF("OLD", "domain_name") NAME_OF("NEW", "domain_name")},
    {"mdomain_name_added", "INSERT ON domain_to_additional_domain_table",
     NAME_OF("NEW", "additional_domain")},
    {"mdomain_name_removed", "DELETE ON domain_to_additional_domain_table",
     NAME_OF("OLD", "additional_domain")},
    {"mdomain_name_changed", "UPDATE ON domain_to_additional_domain_table",
     NAME_OF("OLD", "additional_domain") NAME_OF("NEW", "additional_domain")},
};

constexpr const char* kAreLogged =
    "SELECT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'trigger' AND name = "
    "'mdomain_alias_added')";
constexpr const char* kHasChanges = "SELECT EXISTS (SELECT 1 FROM " LOG_TABLE ")";
constexpr const char* kCount = "SELECT count(*) FROM (SELECT 1 FROM " LOG_TABLE " LIMIT %d)";
constexpr const char* kSelect = "SELECT DISTINCT domain_idx, is_name, text FROM " LOG_TABLE
                                " WHERE domain_idx IS NOT NULL ORDER BY domain_idx, is_name, text";
constexpr const char* kDelete = "DELETE FROM " LOG_TABLE;
constexpr const char* kSelectState = "SELECT state FROM " FOLLOWER_TABLE " WHERE follower = '%q'";
constexpr const char* kHasOther =
    "SELECT EXISTS (SELECT 1 FROM " FOLLOWER_TABLE " WHERE follower <> '%q')";
constexpr const char* kDeleteState = "DELETE FROM " FOLLOWER_TABLE " WHERE follower = '%q'";
constexpr const char* kReplaceState =
    "INSERT OR REPLACE INTO " FOLLOWER_TABLE "(follower, state) VALUES('%q', '%q')";

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

}  // namespace

bool AreChangesLogged(bool& are_logged) {
  return DomainDb().GetExistsInSchema(kAreLogged, are_logged);
}

bool StartChangeLog() {
  StatementBatch batch;
  for (const char* table : kCreateTables) {
    batch.Add(table);
  }
  for (const Trigger& trigger : kTriggers) {
    batch.Add(std::string("CREATE TRIGGER IF NOT EXISTS ") + trigger.name + " AFTER " +
              trigger.when + " BEGIN " + trigger.what + " END");
  }
  return DomainDb().Run(batch, "fail to create " LOG_TABLE);
}

bool ForgetFollower(const std::string& follower) {
  bool has_other = false;
  if (!DomainDb().GetExists(FormatStatement(kHasOther, follower.c_str()), has_other)) {
    return false;
  }
  StatementBatch batch;
  batch.Add(FormatStatement(kDeleteState, follower.c_str()));
  if (!has_other) {
    for (const Trigger& trigger : kTriggers) {
      batch.Add(std::string("DROP TRIGGER IF EXISTS ") + trigger.name);
    }
    batch.Add(kDelete);
  }
  return DomainDb().Run(batch, "fail to delete " FOLLOWER_TABLE);
}

bool ForgetFollowersIn(const std::string& path) {
  constexpr int kBusyMilliseconds = 10000;
  std::string drops = "BEGIN IMMEDIATE;";
  for (const char* table : {LOG_TABLE, FOLLOWER_TABLE}) {
    drops += std::string("DROP TABLE IF EXISTS ") + table + ";";
  }
  for (const Trigger& trigger : kTriggers) {
    drops += std::string("DROP TRIGGER IF EXISTS ") + trigger.name + ";";
  }
  drops += "COMMIT";
  korvmailserver::Connection copy;
  return copy.Open(path, korvmailserver::Connection::Mode::kWrite, kBusyMilliseconds) ==
             SQLITE_OK &&
         copy.Run(drops.c_str()) == SQLITE_OK;
}

bool HasAddressChanges(bool& has_changes) {
  has_changes = false;
  bool are_logged = false;
  return AreChangesLogged(are_logged) &&
         (!are_logged || DomainDb().GetExists(kHasChanges, has_changes));
}

bool ListAddressChanges(size_t most, std::vector<AddressChange>& changes, bool& is_whole) {
  int count = 0;
  const auto keep = [&count](int rows) { count = rows; };
  const int enough = static_cast<int>(most) + 1;
  if (!DomainDb().Query<Columns<Int>>(FormatStatement(kCount, enough), keep)) {
    return false;
  }
  is_whole = count < enough;
  return !is_whole || DomainDb().Append<Columns<Int, Flag, Text>>(kSelect, changes);
}

bool ForgetAddressChanges() {
  StatementBatch batch;
  batch.Add(kDelete);
  return DomainDb().Run(batch, "fail to delete " LOG_TABLE);
}

bool GetFollowerState(const std::string& follower, std::string& state) {
  state.clear();
  return DomainDb().GetText(FormatStatement(kSelectState, follower.c_str()), 0, state);
}

bool SetFollowerState(const std::string& follower, const std::string& state) {
  StatementBatch batch;
  batch.Add(FormatStatement(kReplaceState, follower.c_str(), state.c_str()));
  return DomainDb().Run(batch, "fail to insert " FOLLOWER_TABLE);
}

}  // namespace MDOMAIN::DB::INTERNAL
