// What only reads: one user's addresses, pages of users, lists. Their floors go through the tables
// of the indexed copy, and must find what the operation finds.
#include <algorithm>
#include <random>

#include "bench/operations.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/db/handler.h"

namespace bench {

namespace API = MDOMAIN::API;
namespace DB = MDOMAIN::DB;
namespace RECORD = MDOMAIN::RECORD;

namespace {

constexpr int kLookUps = 100;
constexpr int kPage = 100;

// Whether user u has a role in domain ?1, an own one or through a group.
#define HAS_ROLE(domain)                                                                     \
  "(EXISTS (SELECT 1 FROM domain_user_role_table AS r WHERE r.domain_idx = " domain          \
  " AND r.uid = u.uid) OR EXISTS (SELECT 1 FROM group_to_user_table AS m JOIN "              \
  "domain_group_role_table AS g ON g.gid = m.gid AND g.domain_idx = " domain                 \
  " WHERE m.uid = u.uid AND NOT EXISTS (SELECT 1 FROM domain_group_removed_user_table AS x " \
  "WHERE x.domain_idx = " domain " AND x.gid = m.gid AND x.uid = m.uid)))"

#define HAS_ALIAS \
  "EXISTS (SELECT 1 FROM domain_user_alias_table AS a WHERE a.domain_idx = ?1 AND a.uid = u.uid)"
#define IS_FLAGGED                                                                        \
  "u.uid IN (SELECT a.uid FROM domain_user_alias_table AS a WHERE a.domain_idx = ?1 AND " \
  "a.is_duplicated)"
#define IS_FOUND                                                                                \
  "(?2 = '' OR u.user_name LIKE '%' || ?2 || '%' OR EXISTS (SELECT 1 FROM "                     \
  "domain_user_alias_table AS a WHERE a.domain_idx = ?1 AND a.uid = u.uid AND a.account_alias " \
  "LIKE '%' || ?2 || '%'))"

const char* const kCountUsers =
    "SELECT count(*) FROM (SELECT DISTINCT uid FROM domain_user_alias_table WHERE domain_idx = ?1) "
    "AS u WHERE " HAS_ROLE("?1");
const char* const kCountFound =
    "SELECT count(*) FROM user_table AS u WHERE " IS_FOUND " AND " HAS_ALIAS " AND " HAS_ROLE("?1");
const char* const kSelectFlaggedUsers =
    "SELECT u.uid, u.user_name FROM user_table AS u WHERE " IS_FLAGGED
    " AND " HAS_ROLE("?1") " AND " IS_FOUND " ORDER BY u.user_name";
const char* const kSelectOtherUsers =
    "SELECT u.uid, u.user_name FROM user_table AS u WHERE " IS_FOUND " AND NOT " IS_FLAGGED
    " AND " HAS_ALIAS " AND " HAS_ROLE("?1") " ORDER BY u.user_name LIMIT ?3 OFFSET ?4";
const char* const kSelectAliases =
    "SELECT account_alias, is_duplicated FROM domain_user_alias_table WHERE domain_idx = ?1 AND "
    "uid = ?2";
const char* const kSelectRole =
    "SELECT role FROM domain_user_role_table WHERE domain_idx = ?1 AND uid = ?2 UNION ALL SELECT "
    "role FROM group_to_user_table JOIN domain_group_role_table USING (gid) WHERE domain_idx = ?1 "
    "AND uid = ?2 LIMIT 1";

struct Operation {
  std::string name;
  Work work;
  Work floor;
  Touches touches;
};

// What the library remembers until the file changes is read anew after it.
void CountAChange() {
  sqlite3* const db = DB::DomainDBHandler::GetDomainDBHandler()->getDB();
  Must(sqlite3_exec(db, "PRAGMA user_version = 1; PRAGMA user_version = 0", nullptr, nullptr,
                    nullptr) == SQLITE_OK,
       "a change of the file");
}

void Compare(const Stage& stage, const Operation& operation) {
  if (!stage.IsWanted(operation.name)) {
    return;
  }
  double least = 0;
  double floor = 0;
  Rounds([&] {
    if (operation.touches == Touches::kAll) {
      CountAChange();
    }
    KeepLeast(least, ProcessorMs(operation.work));
    KeepLeast(floor, ProcessorMs(operation.floor));
  });
  stage.report.AddRatio(operation.name, stage.company.Users(), least, floor, 2);
  stage.report.Grows(operation.touches);
}

using Uids = std::vector<unsigned int>;

Uids PageOfUsers(const std::string& query, int offset, int& count) {
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs({1});
  filter.SetSortBy("user_name");
  filter.SetSortDirection("ASC");
  filter.SetOffset(offset);
  filter.SetQuery(query);
  std::vector<RECORD::DomainUser> users;
  API::DomainUser api;
  Must(api.List(filter, users) && api.GetDomainUsersCount(filter, count), "a page of users");
  Uids uids;
  for (const RECORD::DomainUser& user : users) {
    uids.push_back(user.GetUID());
  }
  return uids;
}

Uids BarePageOfUsers(Bare& bare, const std::string& query, int offset, int& count) {
  bare.Run("BEGIN");
  Cells found = bare.Select(kSelectFlaggedUsers, {1, query});
  const int flagged = static_cast<int>(found.size() / 2);
  const int skipped = std::min(flagged, offset);
  found.erase(found.begin(), found.begin() + 2L * skipped);
  const int wanted = kPage - static_cast<int>(found.size() / 2);
  bare.Select(kSelectOtherUsers, {1, query, std::max(wanted, 0), offset - skipped}, found);
  Uids uids;
  for (size_t i = 0; i < found.size() && uids.size() < kPage; i += 2) {
    uids.push_back(static_cast<unsigned int>(found[i].number));
    bare.Select(kSelectAliases, {1, found[i]});
    bare.Select(kSelectRole, {1, found[i]});
  }
  const Cells counted =
      query.empty() ? bare.Select(kCountUsers, {1}) : bare.Select(kCountFound, {1, query});
  count = static_cast<int>(counted[0].number);
  bare.Run("COMMIT");
  return uids;
}

void Pages(const Stage& stage, Bare& bare) {
  const struct {
    const char* name;
    const char* query;
    int offset;
  } pages[] = {{"page of 100 users with count, from the middle", "", stage.company.Users() / 2},
               {"page of 100 users with count, searched", "77", 0}};
  for (const auto& page : pages) {
    int count = 0;
    int bare_count = 0;
    // By size: a user with a flagged and another alias stands among either, as the database likes.
    Must(!stage.IsWanted(page.name) ||
             (PageOfUsers(page.query, page.offset, count).size() ==
                  BarePageOfUsers(bare, page.query, page.offset, bare_count).size() &&
              count == bare_count),
         std::string("the same answer: ") + page.name);
    Compare(stage, {page.name, [&] { PageOfUsers(page.query, page.offset, count); },
                    [&] { BarePageOfUsers(bare, page.query, page.offset, count); }, Touches::kAll});
  }
}

}  // namespace

void Listings(const Stage& stage, Bare& bare) {
  Pages(stage, bare);

  int users = 0;
  int bare_users = 0;
  Compare(stage, {"list of domains with counts",
                  [&] {
                    DB::DomainDBFilter filter;
                    filter.SetLimit(-1);
                    std::vector<RECORD::Domain> domains;
                    Must(API::Domain().List(filter, domains), "List");
                    users = 0;
                    for (const RECORD::Domain& domain : domains) {
                      users += domain.GetUserNum();
                    }
                  },
                  [&] {
                    bare.Run("BEGIN");
                    bare.Select("SELECT * FROM domain_table");
                    bare.Select("SELECT * FROM primary_domain_table");
                    bare.Select(
                        "SELECT DISTINCT u.domain_idx FROM domain_user_alias_table AS u WHERE "
                        "u.is_duplicated AND " HAS_ROLE("u.domain_idx"));
                    const Cells counts = bare.Select(
                        "SELECT domain_idx, count(*) FROM (SELECT DISTINCT domain_idx, uid FROM "
                        "domain_user_alias_table) AS u WHERE " HAS_ROLE(
                            "u.domain_idx") " GROUP BY domain_idx");
                    bare.Run("COMMIT");
                    bare_users = 0;
                    for (size_t i = 1; i < counts.size(); i += 2) {
                      bare_users += static_cast<int>(counts[i].number);
                    }
                    Must(users == bare_users, "the same number of users");
                  },
                  Touches::kAll});

  std::vector<std::string> emails;
  Compare(stage,
          {"duplicated addresses",
           [&] {
             emails.clear();
             Must(API::DomainUser().ListDuplicatedEmail(1, emails), "ListDuplicatedEmail");
           },
           [&] {
             Must(bare.Select("SELECT DISTINCT account_alias COLLATE NOCASE FROM "
                              "domain_user_alias_table WHERE domain_idx = ?1 AND is_duplicated",
                              {1})
                          .size() == emails.size(),
                  "the same duplicated addresses");
           },
           Touches::kAll});
}

void LookUps(const Stage& stage, Bare& bare) {
  std::mt19937 random(1);
  std::vector<int> wanted(kLookUps);
  for (int& i : wanted) {
    i = static_cast<int>(random() % static_cast<unsigned int>(stage.company.Users()));
  }
  const auto each = [&wanted](const std::function<void(int)>& one) {
    return [&wanted, one] { std::for_each(wanted.begin(), wanted.end(), one); };
  };
  const auto uid = [](int i) { return kFirstUid + static_cast<unsigned int>(i); };

  Compare(stage,
          {"addresses of one user, 100 times", each([&](int i) {
             std::vector<std::string> addresses;
             Must(API::DomainUser().GetMailAddresses(uid(i), addresses) && addresses.size() >= 2,
                  "GetMailAddresses");
           }),
           each([&](int i) {
             Must(bare.Select("SELECT account_alias || '@' || domain_name FROM "
                              "domain_user_alias_table JOIN domain_table USING "
                              "(domain_idx) WHERE uid = ?",
                              {uid(i)})
                          .size() >= 2,
                  "the floor of GetMailAddresses");
           }),
           Touches::kOne});
  Compare(stage, {"whether a user exists, 100 times", each([&](int i) {
                    Must(API::DomainUser().IsExists(1, UserName(i)), "IsExists");
                  }),
                  each([&](int i) {
                    Must(bare.Select("SELECT EXISTS (SELECT 1 FROM user_table JOIN "
                                     "domain_user_alias_table USING (uid) WHERE user_name = ?2 "
                                     "COLLATE NOCASE AND domain_idx = ?1)",
                                     {1, UserName(i)})[0]
                                 .number == 1,
                         "the floor of IsExists");
                  }),
                  Touches::kOne});
  Compare(stage, {"whose an alias is, 100 times", each([&](int i) {
                    std::string name;
                    Must(
                        API::DomainUser().GetAliasUser(1, UserName(i), name) && name == UserName(i),
                        "GetAliasUser");
                  }),
                  each([&](int i) {
                    Must(bare.Select("SELECT user_name FROM domain_user_alias_table JOIN "
                                     "user_table USING (uid) WHERE domain_idx = ?1 AND "
                                     "account_alias = ?2 COLLATE NOCASE ORDER BY is_duplicated "
                                     "LIMIT 1",
                                     {1, UserName(i)})
                                 .size() == 1,
                         "the floor of GetAliasUser");
                  }),
                  Touches::kOne});
}

}  // namespace bench
