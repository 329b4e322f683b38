// Models that nobody would make on purpose: few ids, so that everything collides, and odd values.
#ifndef TESTS_SUPPORT_RANDOM_MODEL_H
#define TESTS_SUPPORT_RANDOM_MODEL_H

#include <random>
#include <string>
#include <vector>

namespace test {

class ModelMaker {
 protected:
  unsigned Draw(unsigned below) {
    return std::uniform_int_distribution<unsigned>(0, below - 1)(random_);
  }
  std::string OneOf(const std::vector<std::string>& texts) { return texts[Draw(texts.size())]; }
  // Statements that insert up to `count` rows of what `row` gives.
  template <typename MakeRow>
  std::string Insert(const std::string& table, unsigned count, const MakeRow& row) {
    std::string sql;
    for (unsigned i = Draw(count + 1); i > 0; --i) {
      sql += "INSERT OR IGNORE INTO " + table + " VALUES(" + row() + ");";
    }
    return sql;
  }
  std::string Domain() { return std::to_string(1 + Draw(3)); }
  std::string Uid() { return std::to_string(1000 + Draw(12)); }
  std::string Gid() { return std::to_string(500 + Draw(5)); }
  std::string Role() {
    return OneOf({"'normal'", "'normal'", "'domain_admin'", "NULL", "''", "'other'", "7"});
  }
  std::string Flag() { return OneOf({"0", "0", "0", "1", "1", "NULL", "2"}); }
  std::string Alias() {
    return OneOf({"'a'", "'A'", "'b'", "'c%'", "'d_'", "'zoë'", "NULL", "''"});
  }

  std::string RandomModel() {
    std::string sql =
        "PRAGMA foreign_keys = on; PRAGMA synchronous = off; BEGIN; DELETE FROM domain_table; "
        "DELETE FROM user_table;"
        "DELETE FROM group_table;"
        "INSERT INTO domain_table "
        "VALUES(1,'a','x','<a>',1),(2,'b',NULL,'',0),(3,'c','','<s>',NULL);"
        "INSERT INTO primary_domain_table VALUES(2);";
    for (int uid = 1000; uid < 1012; ++uid) {
      sql += "INSERT INTO user_table VALUES(" + std::to_string(uid) + "," +
             OneOf({"'anna'", "'Anna'", "'ben'", "'a%'", "'zoë'", "NULL", "'carl'"}) + ");";
    }
    for (int gid = 500; gid < 505; ++gid) {
      sql += "INSERT INTO group_table VALUES(" + std::to_string(gid) + ",'g','');";
    }
    return sql + Insert("group_to_user_table", 40, [&] { return Gid() + "," + Uid(); }) +
           Insert("domain_group_role_table", 8,
                  [&] { return Domain() + "," + Gid() + "," + Role(); }) +
           Insert("domain_user_role_table", 15,
                  [&] { return Domain() + "," + Uid() + "," + Role() + "," + Flag(); }) +
           Insert("domain_group_removed_user_table", 12,
                  [&] { return Domain() + "," + Gid() + "," + Uid(); }) +
           Insert("domain_user_alias_table", 40,
                  [&] { return Domain() + "," + Uid() + "," + Alias() + "," + Flag(); }) +
           "COMMIT;";
  }

  std::mt19937 random_{20};
};

}  // namespace test

#endif  // TESTS_SUPPORT_RANDOM_MODEL_H
