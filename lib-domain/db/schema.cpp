// Where the domain database lies and the scripts that bring it from version to version.
//
// A script is never changed once released: every file passes through the same versions, whatever
// version it was made with. To change the schema, append a script.
#include "lib-domain/db/schema.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::UTILS {

namespace {

// domain_view follows: all tables, their indexes and the other views.
constexpr const char* kTables =
    "CREATE TABLE IF NOT EXISTS user_table(uid INTEGER PRIMARY KEY,user_name TEXT);"
    "CREATE INDEX IF NOT EXISTS IDX_user_table_uid ON user_table(uid);"
    "CREATE TABLE IF NOT EXISTS group_table(gid INTEGER PRIMARY KEY,group_name "
    "TEXT,group_desc TEXT);"
    "CREATE INDEX IF NOT EXISTS IDX_group_table_gid ON group_table(gid);"
    "CREATE TABLE IF NOT EXISTS group_to_user_table(gid INTEGER,uid INTEGER,FOREIGN KEY(gid) "
    "REFERENCES group_table(gid) ON DELETE CASCADE ON UPDATE CASCADE , FOREIGN KEY(uid) "
    "REFERENCES user_table(uid) ON DELETE CASCADE ON UPDATE CASCADE , PRIMARY KEY ( gid, "
    "uid) );"
    "CREATE INDEX IF NOT EXISTS IDX_group_to_user_table_gid ON group_to_user_table(gid);"
    "CREATE TABLE IF NOT EXISTS domain_user_role_table(domain_idx INTEGER,uid INTEGER,role "
    "TEXT,is_auto_added BOOLEAN, FOREIGN KEY (domain_idx) REFERENCES "
    "domain_table(domain_idx) ON DELETE CASCADE ON UPDATE CASCADE, FOREIGN KEY (uid) "
    "REFERENCES user_table(uid) ON DELETE CASCADE ON UPDATE CASCADE , PRIMARY KEY ( "
    "domain_idx, uid) );"
    "CREATE INDEX IF NOT EXISTS IDX_domain_user_role_table_domain_idx ON "
    "domain_user_role_table(domain_idx, uid);"
    "CREATE TABLE IF NOT EXISTS domain_user_alias_table(domain_idx INTEGER,uid "
    "INTEGER,account_alias TEXT,is_duplicated BOOLEAN,FOREIGN KEY (domain_idx) REFERENCES "
    "domain_table(domain_idx) ON DELETE CASCADE ON UPDATE CASCADE , FOREIGN KEY (uid) "
    "REFERENCES user_table(uid) ON DELETE CASCADE ON UPDATE CASCADE );"
    "CREATE INDEX IF NOT EXISTS IDX_domain_user_alias_table_domain_idx ON "
    "domain_user_alias_table(domain_idx, uid);"
    "CREATE TABLE IF NOT EXISTS domain_group_role_table(domain_idx INTEGER,gid INTEGER,role "
    "TEXT,FOREIGN KEY (domain_idx) REFERENCES domain_table(domain_idx) ON DELETE CASCADE ON "
    "UPDATE CASCADE , FOREIGN KEY (gid) REFERENCES group_table(gid) ON DELETE CASCADE ON "
    "UPDATE CASCADE , PRIMARY KEY ( domain_idx, gid) );"
    "CREATE INDEX IF NOT EXISTS IDX_domain_group_role_table_domain_idx ON "
    "domain_group_role_table(domain_idx, gid);"
    "CREATE TABLE IF NOT EXISTS domain_group_removed_user_table(domain_idx INTEGER,gid "
    "INTEGER,uid INTEGER,FOREIGN KEY(domain_idx) REFERENCES domain_table(domain_idx) ON "
    "DELETE CASCADE ON UPDATE CASCADE , FOREIGN KEY(gid) REFERENCES group_table(gid) ON "
    "DELETE CASCADE ON UPDATE CASCADE , FOREIGN KEY(uid) REFERENCES user_table(uid) ON "
    "DELETE CASCADE ON UPDATE CASCADE , PRIMARY KEY ( domain_idx, gid, uid) );"
    "CREATE INDEX IF NOT EXISTS IDX_domain_group_removed_user_table_domain_idx ON "
    "domain_group_removed_user_table(domain_idx, gid);"
    "CREATE TABLE IF NOT EXISTS domain_table(domain_idx INTEGER PRIMARY KEY, domain_name "
    "TEXT, domain_desc TEXT, domain_default_alias_pattern TEXT, "
    "is_automatically_adding_users BOOLEAN);"
    "CREATE INDEX IF NOT EXISTS IDX_domain_table_domain_idx ON domain_table(domain_idx);"
    "CREATE TABLE IF NOT EXISTS domain_to_additional_domain_table(domain_idx "
    "INTEGER,additional_domain TEXT,FOREIGN KEY(domain_idx) REFERENCES "
    "domain_table(domain_idx) ON DELETE CASCADE ON UPDATE CASCADE , PRIMARY KEY ( "
    "domain_idx, additional_domain) );"
    "CREATE INDEX IF NOT EXISTS IDX_domain_to_additional_domain_table_domain_idx ON "
    "domain_to_additional_domain_table(domain_idx);"
    "CREATE TABLE IF NOT EXISTS primary_domain_table(domain_idx INTEGER,FOREIGN "
    "KEY(domain_idx) REFERENCES domain_table(domain_idx) ON DELETE CASCADE ON UPDATE CASCADE "
    ", PRIMARY KEY ( domain_idx) );"
    "CREATE VIEW IF NOT EXISTS domain_user_view AS SELECT "
    "domain_user_alias_table.domain_idx, user_table.uid, user_table.user_name, "
    "domain_user_alias_table.account_alias, CASE WHEN (domain_user_role_table.role IS NULL) "
    "THEN (domain_group_effected_user_view.role) ELSE (domain_user_role_table.role) END AS "
    "'role', domain_user_alias_table.is_duplicated FROM domain_user_alias_table INNER JOIN "
    "user_table ON domain_user_alias_table.uid = user_table.uid LEFT JOIN "
    "domain_user_role_table ON domain_user_alias_table.domain_idx = "
    "domain_user_role_table.domain_idx AND domain_user_alias_table.uid = "
    "domain_user_role_table.uid LEFT JOIN (SELECT domain_idx, uid, MIN(role) as 'role' FROM "
    "domain_group_effected_user_view GROUP BY domain_idx, uid) "
    "domain_group_effected_user_view ON domain_user_alias_table.uid = "
    "domain_group_effected_user_view.uid AND domain_user_alias_table.domain_idx = "
    "domain_group_effected_user_view.domain_idx ORDER BY role ASC;"
    "CREATE VIEW IF NOT EXISTS domain_group_effected_user_view AS SELECT "
    "domain_group_role_table.domain_idx, domain_group_role_table.gid, "
    "group_to_user_table.uid, domain_group_role_table.role FROM group_to_user_table INNER "
    "JOIN domain_group_role_table ON group_to_user_table.gid = domain_group_role_table.gid "
    "LEFT JOIN domain_user_role_table ON (domain_group_role_table.domain_idx = "
    "domain_user_role_table.domain_idx AND group_to_user_table.uid = "
    "domain_user_role_table.uid) LEFT JOIN domain_group_removed_user_table ON "
    "(group_to_user_table.gid = domain_group_removed_user_table.gid AND "
    "group_to_user_table.uid = domain_group_removed_user_table.uid AND "
    "domain_group_role_table.domain_idx = domain_group_removed_user_table.domain_idx) WHERE "
    "(domain_user_role_table.uid IS NULL AND domain_group_removed_user_table.uid IS NULL);"
    "CREATE VIEW IF NOT EXISTS domain_group_view AS SELECT "
    "domain_group_role_table.domain_idx, group_table.gid, group_table.group_name, "
    "group_table.group_desc, domain_group_role_table.role FROM domain_group_role_table INNER "
    "JOIN group_table ON domain_group_role_table.gid = group_table.gid;";

// Names and aliases are looked up on every change.
constexpr const char* kToVersion3 =
    "CREATE INDEX IF NOT EXISTS IDX_domain_table_domain_name ON domain_table(domain_name);"
    "CREATE INDEX IF NOT EXISTS IDX_domain_to_additional_domain_table_additional_domain ON "
    "domain_to_additional_domain_table(additional_domain);"
    "CREATE INDEX IF NOT EXISTS IDX_domain_user_alias_table_account_alias ON "
    "domain_user_alias_table(account_alias)";

constexpr const char* kDropDomainView = "DROP VIEW domain_view;";

// domain_view, its flag is_duplicated_alias_exist taken from the rows of `source`.
std::string DomainView(const std::string& source, const std::string& rows) {
  return "CREATE VIEW IF NOT EXISTS domain_view AS SELECT domain_table.domain_idx, "
         "domain_table.domain_name, domain_table.domain_desc, "
         "domain_table.domain_default_alias_pattern, domain_table.is_automatically_adding_users, "
         "CASE WHEN (" +
         source + ".is_duplicated IS NOT NULL) THEN (" + source +
         ".is_duplicated)ELSE (0) END AS 'is_duplicated_alias_exist', CASE WHEN "
         "(primary_domain_table.domain_idx IS NULL) THEN (0) ELSE (1)END AS 'is_primary' FROM "
         "domain_table LEFT JOIN primary_domain_table ON domain_table.domain_idx = "
         "primary_domain_table.domain_idx LEFT JOIN ( SELECT domain_idx, MAX(is_duplicated) AS "
         "is_duplicated FROM " +
         source + rows + ") " + source + " ON domain_table.domain_idx = " + source + ".domain_idx";
}

// The setting that names the account domain of a directory.
const char* AccountDomainKey() {
  return mailConfCheckKeyValue("account_type", "win") ? "win_domain_short_name" : "acc_domain_name";
}

}  // namespace

bool GetUserGroupDomainConfigPath(std::string& path) {
  std::string account_domain;
  if (smtpAccountDomainGet(account_domain) != 0) {
    LOG_ERROR("smtpAccountDomainGet fail");
    return false;
  }
  if (account_domain.empty()) {
    LOG_ERROR("domainName is empty");
    return false;
  }
  if (!PATHS::IsFileNamePart(account_domain)) {
    LOG_ERROR("%s [%s] forms no file name: \"/\", \"..\" and control characters are not allowed",
              AccountDomainKey(), account_domain.c_str());
    return false;
  }
  path = PATHS::DomainDb(account_domain);
  return true;
}

bool DomainUtilGetSqliteCmds(std::vector<std::string>& cmds) {
  cmds = {
      // Takes the flag from the aliases of all domains; the next script mends that.
      kTables + DomainView("domain_user_alias_table", ""),
      kDropDomainView + DomainView("domain_user_alias_table", " GROUP BY domain_idx"),
      kToVersion3,
      // An alias of someone without a role in the domain no longer counts as a collision.
      kDropDomainView +
          DomainView("domain_user_view", " WHERE role IS NOT NULL  GROUP BY domain_idx"),
  };
  return true;
}

}  // namespace MDOMAIN::UTILS
