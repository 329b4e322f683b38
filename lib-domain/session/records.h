// What sessions tell and take: plain values. Answers about why are in insight/answers.h.
#ifndef MAILSERVER_DOMAIN_SESSION_RECORDS_H
#define MAILSERVER_DOMAIN_SESSION_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/session/result.h"

namespace mdomain {

// Stands for an object as it was read. Given to a change, the change is made only if the object is
// still so (Reason::kChanged otherwise); "" stands for any.
using Version = std::string;

struct Domain {
  int idx = 0;
  std::string name;                // UTF-8
  std::vector<std::string> names;  // additional ones, as stored
  std::string description;
  std::string pattern;         // of the aliases of new users
  bool adds_accounts = false;  // each refresh adds the accounts that it finds new
  bool is_primary = false;
  bool has_collisions = false;  // somebody's alias is another one's
  std::size_t users = 0;
  Version version;
};

struct NewDomain {
  std::string name;
  std::string description = "";
  std::string pattern = "<a>";
  bool adds_accounts = true;
};

struct DomainChange {
  std::optional<std::string> name;
  std::optional<std::string> description;
  std::optional<std::string> pattern;
  std::optional<bool> adds_accounts;
};

// Mirrored accounts, by their numbers.
struct AccountQuery {
  std::string text;                      // that the name holds, in whatever letter case
  std::optional<std::uint32_t> gid;      // members of this mirrored group; not for groups
  std::size_t page_size = 100;           // at most 10,000
  std::optional<std::uint32_t> id = {};  // nobody but the one whose uid or gid it is
};

struct GroupDomain {
  DomainName domain;
  Role role = Role::kNone;  // that its members get
};

// A mirrored group.
struct AccountGroup {
  std::uint32_t gid = 0;
  std::string name;
  std::string description;
  std::size_t members = 0;
  std::vector<GroupDomain> domains;  // that it is in, the primary one first
};

struct UserAlias {
  std::string local_part;
  bool is_taken = false;  // somebody else gets the mail
  std::string owner;      // account name of who does, where it is taken and that is known
};

struct User {
  std::uint32_t uid = 0;
  std::string name;
  Role role = Role::kNone;        // that is in force
  bool has_own_role = false;      // else it is that of the groups
  Role group_role = Role::kNone;  // what the groups give; kNone: in no group of the domain
  std::vector<UserAlias> aliases;
  Version version;
};

struct UserChange {
  // A role of his own; kNone leaves it to his groups.
  std::optional<Role> role;
  // All aliases, then those that are added or removed.
  std::optional<std::vector<std::string>> aliases;
  std::vector<std::string> add_aliases;
  std::vector<std::string> remove_aliases;
};

struct Members {
  std::vector<std::uint32_t> uids;
  std::vector<std::uint32_t> gids;
};

struct Candidate {
  std::uint32_t uid = 0;
  std::string name;
  std::string local_part;  // the alias that he would get; "" for none
  bool is_taken = false;
};

struct Group {
  std::uint32_t gid = 0;
  std::string name;
  std::string description;
  Role role = Role::kNone;  // that its members get
};

struct Member {
  enum class Status { kHasAddress, kRemoved, kNoAddress };
  std::uint32_t uid = 0;
  std::string name;
  Status status = Status::kHasAddress;
};

// An address of a domain that goes to several.
struct Entry {
  std::string name;                 // the local part
  std::vector<std::string> users;   // account names
  std::vector<std::string> groups;  // group names
  std::vector<std::string> addresses;
  Version version;
};

// Disclaimers of a domain as the JSON array of mailserver-domain/mimedefang.h.
struct Disclaimers {
  std::string json;
  Version version;
};

struct DomainOverview {
  Domain domain;
  DomainCounts counts;
  std::vector<Group> groups;  // by name
};

struct RepairReport {
  std::string kept;               // the folder with the files of before
  std::vector<Finding> findings;  // what is left
};

struct RefreshReport {
  bool is_complete = false;  // all accounts and groups could be read; else nobody was deleted
  std::size_t users = 0;
  std::size_t groups = 0;
  std::vector<std::string> new_users;
  std::vector<std::string> new_groups;
  std::size_t deleted_users = 0;
  std::size_t deleted_groups = 0;
  std::vector<std::string> spared_users;  // more are gone than the limit allows to delete
  std::vector<std::string> spared_groups;
};

struct HistoryEntry {
  long long id = 0;
  long long time = 0;  // seconds since 1970
  std::string person;
  std::string command;
  std::string summary;
  std::string state;     // "done", "undone", "undoing", "refresh", "repair", "undo"
  std::string why_kept;  // why it cannot be taken back; "" where it may be tried
};

// One thing that a change changes, as "mdomain --dry-run" tells it.
struct PlannedChange {
  // "domain", "name", "primary", "account", "group", "member", "role", "group_role", "alias",
  // "taken_out", "entry", "entry_member", "copy", "mail_settings", "setting", "disclaimers",
  // "keys", "other"; a plan is ordered by it, as here.
  std::string what;
  std::string change;  // "added", "removed", "changed"
  std::string text;    // one sentence, for people
  // What the sentence names: "domain", "account", "group", "alias", "address", "owner", "member",
  // "name", "property", "key", "before", "after" and others; which, depends on `what`.
  std::map<std::string, std::string> names;
  // Of an alias: whether mail for it came and will come to the account. It goes to "owner" of
  // `names` where it does not; none where that is nobody.
  bool had = false;
  bool has = false;
};

// What a change changes, or would change.
struct ChangePlan {
  std::string summary;  // "3 people lose 5 addresses, 1 other thing changes"; "" for no changes
  std::vector<PlannedChange> changes;
};

// How far a refresh is.
struct Progress {
  std::string doing;      // "writing rows"; "" before the first step
  std::size_t done = 0;   // of its items
  std::size_t total = 0;  // 0 where nobody knows how many there will be
  long long since = 0;    // when it began, seconds since 1970
};

// What mail services read: a key of the mail configuration, or a file that follows from the model.
struct PublishedItem {
  std::string key;     // "" of a file that no key names
  std::string value;   // of a file its path
  long long time = 0;  // of a file: when it changed last, seconds since 1970; 0 where it is missing
  long long size = -1;  // of a file, bytes
};

struct Publication {
  long long time = 0;               // of the last one, seconds since 1970; 0: there was none
  std::string person;               // who made the newest change, and what it was
  std::string command;              // "" where the history does not tell
  std::string machine;              // that manages the domains, where machines share a key store
  long long version = 0;            // of the publication there
  long long unpublished_since = 0;  // the shared store lacks a change since then; 0: it does not
  std::vector<Finding> behind;      // what is not as the model has it
  Page<PublishedItem> items;
};

struct PublicationQuery {
  std::size_t page_size = 100;  // at most 10,000
};

// The whole model as a document of mdomain export.
struct ModelDocument {
  std::string json;
  Version version;
};

struct AppliedDocument {
  std::vector<std::string> left_out;  // what names nobody in the mirror: "user erika"
  std::vector<std::string> warnings;  // what is so now, and hardly meant so
};

struct HistoryQuery {
  int domain = 0;               // what is about this domain; 0: everything
  std::size_t page_size = 100;  // at most 10,000
};

// ---- Patterns ----

// What a pattern would give a user who is added now.
struct TriedAlias {
  enum class From { kPattern, kAccountName, kNothing };
  std::uint32_t uid = 0;
  std::string name;
  std::vector<std::string> aliases;  // of today
  std::string local_part;            // "" for none
  From from = From::kPattern;
  std::string why;  // why not by the pattern: "no value for <s>", "the pattern gives nothing", ...
  // Others who would get it too, or have it: their number, and at most ten names.
  std::size_t rivals = 0;
  std::vector<std::string> rival_names;
  bool is_entry = false;  // it is the name of an address that goes to several

  bool Collides() const { return rivals != 0 || is_entry; }
};

struct TriedPattern {
  std::string pattern;
  std::size_t users = 0;  // of the domain; below: how many of those that were asked for
  std::size_t by_pattern = 0;
  std::size_t by_account_name = 0;
  std::size_t without_address = 0;
  std::size_t colliding = 0;
  Page<TriedAlias> page;  // by uid
};

struct PatternQuery {
  bool only_problems = false;   // those who collide, or get none or not the pattern's
  std::size_t page_size = 100;  // at most 10,000
};

// ---- Settings ----

// A key of the mail configuration.
struct Setting {
  enum class Kind {
    kUnknown,    // of another program, or misspelt
    kSetting,    // the administrator's or the mail server's
    kPublished,  // follows from the domains: the next publication writes it again
  };
  std::string key;
  std::string value;
  Kind kind = Kind::kUnknown;
  bool is_set = false;
};

struct ChangedSetting {
  Setting setting;
  std::string consequence;  // what was done by force: which model is in force, what stands where
  std::string missing_key;  // the accounts' source needs this one, too; "" for none
};

// ---- Lists ----

enum class UserColumn { kName, kAlias, kRole };
enum class GroupColumn { kName, kDescription };

template <typename Column>
struct Query {
  std::string text;  // that a name (of users also an alias) holds, in whatever letter case
  Column by = Column::kName;
  bool is_descending = false;
  std::size_t page_size = 100;  // at most 10,000
};
using GroupQuery = Query<GroupColumn>;

// Users for whom all that is set holds.
struct UserQuery {
  std::string text;  // as of Query, as are the next three
  UserColumn by = UserColumn::kName;
  bool is_descending = false;
  std::size_t page_size = 100;
  bool collides = false;  // somebody else gets the mail of one of the aliases
  bool drifts = false;    // no alias is what the domain's pattern gives now
  // False: the role is that of groups alone.
  std::optional<bool> has_own_role = std::nullopt;
  // Members of this group of the domain.
  std::optional<std::uint32_t> gid = std::nullopt;
};

}  // namespace mdomain

#endif  // MAILSERVER_DOMAIN_SESSION_RECORDS_H
