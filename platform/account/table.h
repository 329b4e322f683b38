// The accounts of one source, found by name, by id, by directory key and by primary group in
// constant time. A table also knows what it does not hold: entries that could not be read and
// answers that broke off, so that nobody takes a part for the whole.
#ifndef PLATFORM_ACCOUNT_TABLE_H
#define PLATFORM_ACCOUNT_TABLE_H

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/include/account.h"
#include "platform/include/hash_index.h"

namespace korvmailserver::account {

struct UserRow : KORVUser {
  bool listed = true;              // false: can be looked up, is not handed out by enumerations
  bool internal = false;           // listed, and yet no person's account
  std::string key;                 // the directory's own name of the entry (a folded DN)
  std::vector<unsigned int> gids;  // groups that the user's entry names, besides the primary one
};

struct GroupRow : KORVGroup {
  bool listed = true;
  std::string key;
  std::string description;
  std::vector<std::string> members;      // full names
  std::vector<std::string> member_keys;  // keys of users or of nested groups
  std::string members_hidden;            // why not all members are known; empty when they are
};

inline unsigned int IdOf(const UserRow& row) {
  return row.uid;
}
inline unsigned int IdOf(const GroupRow& row) {
  return row.gid;
}

enum class NameCase { kExact, kFolded };

// What a table does not hold.
struct Gaps {
  long missing = 0;                // entries known to be missing; at least 1 when some may be
  bool cut_short = false;          // the source stopped before its end: anything may be missing
  std::string why;                 // the first reason, for people
  std::vector<std::string> names;  // of the entries that could not be read, where known
  std::unordered_set<std::string> folded_names;  // the same, folded
  std::unordered_set<unsigned int> gids;         // their primary groups, where known
};

template <class Row>
class Table {
 public:
  explicit Table(NameCase name_case) : name_case_(name_case) {}
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  // The first of several entries with one name counts, and the answer is incomplete then: which of
  // them is meant is unknown. The first of several with one id counts too; the later ones can be
  // looked up by name only. Null when the row was not taken.
  const Row* Add(Row&& row);
  // Before the first row: about how many there will be.
  void Expect(size_t rows) { by_name_.Reserve(rows); }
  // An entry that could not be read. `name` may be empty, `gid` unknown.
  void Skip(const std::string& why, const std::string& name, unsigned int gid = KORV_UNKNOWN_ID);
  // The source ended its answer early.
  void CutShort(const std::string& why);
  // One log line for gaps and one for shared ids, when there are any. `origin` names the source.
  bool IsPlain() const { return complete() && shared_ids_ == 0; }  // there is nothing to announce
  void Announce(const std::string& origin) const;

  // Exact spelling first, then (folded tables) the first that differs in letter case only.
  const Row* ByName(const std::string& name) const;
  const Row* ById(unsigned int id) const;
  const Row* ByKey(const std::string& key) const;

  const std::deque<Row>& rows() const { return rows_; }
  long listed() const { return listed_; }
  const Gaps& gaps() const { return gaps_; }
  bool complete() const { return gaps_.missing == 0; }

 protected:
  uint32_t RowOfName(const std::string& name) const;

 private:
  uint32_t RowOfFolded(const std::string& folded) const;
  uint32_t RowOfId(unsigned int id) const;
  // The row that has the id already; kNone, and the id is known from now on.
  uint32_t TakeId(unsigned int id, uint32_t row);
  uint32_t RowOfKey(const std::string& key) const;
  const Row* At(uint32_t row) const { return row == HashIndex::kNone ? nullptr : &rows_[row]; }

  NameCase name_case_;
  std::deque<Row> rows_;  // a deque: rows keep their place
  HashIndex by_name_, by_key_, by_folded_;
  mutable uint32_t after_found_ = 0;  // groups mostly name their members in the order of accounts
  HashIndex by_id_;  // empty while the rows are in the order of their ids, as files mostly are
  bool ids_ascend_ = true;
  long listed_ = 0;
  long shared_ids_ = 0;
  std::string first_shared_;
  Gaps gaps_;
};

using GroupTable = Table<GroupRow>;

class UserTable : public Table<UserRow> {
 public:
  using Table<UserRow>::Table;
  void Add(UserRow&& row);
  // Calls `use` with the users whose primary group it is or whose entry names it.
  template <class Use>
  void ForEachOfGroup(unsigned int gid, const Use& use) const {
    OrderGroups();
    for (auto at = std::lower_bound(by_group_.begin(), by_group_.end(), std::make_pair(gid, 0U));
         at != by_group_.end() && at->first == gid; ++at) {
      use(rows()[at->second]);
    }
  }
  // The first listed user whose folded name this is; null. For tables that tell case apart.
  const UserRow* FirstListed(const std::string& folded) const;
  // Whether this listed row of the table is the first one under its own name, folded.
  bool IsFirstListed(const UserRow& user) const;
  // Some user's groups are unknown, and with them the members of every group.
  void HideMemberships(const std::string& why) { memberships_hidden_ = why; }
  const std::string& memberships_hidden() const { return memberships_hidden_; }

 private:
  void OrderGroups() const;

  std::string memberships_hidden_;
  // Group and row, put in order when somebody asks.
  mutable std::vector<std::pair<unsigned int, uint32_t>> by_group_;
  mutable bool by_group_in_order_ = true;
  // The first of the listed rows whose names are not folded.
  std::unordered_map<std::string, uint32_t> unfolded_;
};

// Appends the members of `group`, each once: named ones, those whose primary group it is, and the
// members of nested groups; cycles end. Names that no user has are handed out as they stand; users
// that enumerations leave out are left out. False and `why` when the tables cannot tell all of
// them: a part of a group handed out as the whole would cost people their membership.
bool CollectMembers(const UserTable& users, const GroupTable& groups, const GroupRow& group,
                    std::vector<std::string>& names, std::string& why);
// The uids of the same members, ascending, each once. False, too, where a member is not the first
// listed user under its name, folded, or has no known uid.
bool CollectMemberUids(const UserTable& users, const GroupTable& groups, const GroupRow& group,
                       std::vector<unsigned int>& uids);

extern template class Table<UserRow>;
extern template class Table<GroupRow>;

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_TABLE_H
