// Everything that a management program does with mail domains, for programs that live for months
// and have several threads.
//
// One process may have any number of sessions and use each from any thread: all of them share one
// mutex, and a call waits for the one before it. A call that changes something also holds the lock
// file of mdomain, so that the tool, its timers and other programs wait for it, and it for them.
// Before each call a session looks whether the databases were replaced or the account source was
// changed meanwhile, and works with what is there now.
//
// A call that waits for another program lets other threads read meanwhile. A program that also uses
// the described classes keeps them out of the time of every call, as of each other's.
//
// A change is stored as a whole, then published, then put into the history; one that fails is taken
// back. What could be stored and not published is done all the same: the result has its value, and
// IsPublished is false. No exception leaves a call, that of std::bad_alloc and the cancellation of
// a thread aside.
//
// fork() waits for the calls of other threads; parent and child may go on using their sessions, but
// not within Session::Together. Sessions may be used until the program's end, destructors of static
// objects included.
//
// Domains are named by their index, which stays when they are renamed, people by their uid and
// groups by their gid. Aliases are local parts (RFC 5321, 6531), compared within one domain without
// regard to ASCII letter case; domain names are taken in UTF-8 or in punycode (RFC 5890).
#ifndef MAILSERVER_DOMAIN_MDOMAIN_HPP
#define MAILSERVER_DOMAIN_MDOMAIN_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "platform/include/export.h"

namespace mdomain {

// ---- Results ----

enum class Reason {
  kInvalid,      // a value is none of its kind; `refused` of the error names each
  kTaken,        // a name belongs to another domain, user or entry
  kNotFound,     // there is no such domain, user, group, entry or change; or it is not the caller's
  kRefused,      // it cannot be done as things stand: the text says why
  kChanged,      // it is not as it was when the version was read
  kBusy,         // another program holds the lock
  kUnpublished,  // done here, and the shared key store has not got it yet
  kFailed,       // a file, the accounts or a server did not do what was asked
};

struct Refused {
  std::string what;   // "alias", "role", "name", "pattern", "member", "copy", "disclaimer"
  std::string value;  // as it was given
  std::string why;
};

struct Error {
  Reason reason = Reason::kFailed;
  // The number that the described classes give: 5618 a taken name, 5633 an invalid one, 5634 the
  // accounts cannot be read, else 117.
  unsigned int number = 117;
  std::string text;    // one sentence that names what was wrong
  std::string advice;  // what to do about it; may be empty
  std::vector<Refused> refused;
  std::vector<std::string> log;  // warnings and errors that were logged during the call
};

// What a call gives: a value, an error, or with Reason::kUnpublished both.
template <typename T>
class [[nodiscard]] Result final {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error)) {}
  Result(T value, Error unpublished) : value_(std::move(value)), error_(std::move(unpublished)) {}

  // Whether it was done.
  explicit operator bool() const { return value_.has_value(); }
  // Whether it was done and nothing is left to be published.
  bool IsPublished() const { return value_.has_value() && !error_.has_value(); }
  // Throws std::bad_optional_access without a value. That of a result that is not kept is a copy:
  // for (const Domain& domain : *session.Domains()) is safe.
  const T& operator*() const& { return value_.value(); }
  T& operator*() & { return value_.value(); }
  T operator*() && { return std::move(value_).value(); }
  const T* operator->() const { return &value_.value(); }
  // An empty one where there is none.
  const Error& GetError() const {
    static const Error none;
    return error_ ? *error_ : none;
  }

 private:
  std::optional<T> value_;
  std::optional<Error> error_;
};

struct Nothing {};

// Part of a list. Cursors are texts of the list that gave them; "" begins.
template <typename T>
struct Page {
  std::vector<T> items;
  std::string next;       // "" behind the last one
  std::size_t total = 0;  // of all pages, as of this one
};

// A list of any length, page by page while it is walked:
//   for (const User& user : session.Users(domain)) ...
// Each page is of one moment, the list is not. A walk ends early where a page cannot be read: then
// GetError tells why afterwards. For one walk.
template <typename T>
class Range final {
 public:
  using Fetch = std::function<Result<Page<T>>(const std::string& cursor)>;

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;

    explicit Iterator(Range* range = nullptr) : range_(range) {}
    const T& operator*() const { return range_->page_.items[range_->at_]; }
    const T* operator->() const { return &**this; }
    Iterator& operator++() {
      if (!range_->_Next()) {
        range_ = nullptr;
      }
      return *this;
    }
    bool operator==(const Iterator& other) const { return range_ == other.range_; }
    bool operator!=(const Iterator& other) const { return range_ != other.range_; }

   private:
    Range* range_;
  };

  explicit Range(Fetch fetch) : fetch_(std::move(fetch)) {}
  Iterator begin() { return Iterator(_Fetch("") ? this : nullptr); }
  Iterator end() { return Iterator(); }
  bool IsWhole() const { return !error_.has_value(); }
  const Error& GetError() const {
    static const Error none;
    return error_ ? *error_ : none;
  }

 private:
  bool _Fetch(const std::string& cursor) {
    Result<Page<T>> page = fetch_(cursor);
    at_ = 0;
    if (!page) {
      error_ = page.GetError();
      return false;
    }
    page_ = std::move(*page);
    return !page_.items.empty();
  }
  bool _Next() {
    return ++at_ < page_.items.size() || (!page_.next.empty() && _Fetch(std::string(page_.next)));
  }

  Fetch fetch_;
  Page<T> page_;
  std::size_t at_ = 0;
  std::optional<Error> error_;
};

// ---- What there is ----

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

// ---- The session ----

struct SessionState;

class MDOMAIN_EXPORT Session {
 public:
  struct Options {
    int lock_timeout = 60;  // seconds to wait for another program's change
    std::string person;     // whom the history names; "": the account of this process
  };

  // Opens nothing yet.
  Session();
  explicit Session(const Options& options);

  // The same with the rights of a domain administrator, whom the history names: he sees and changes
  // the domains in which his role is domain_admin at the moment of each call, and no other one,
  // whatever is given. An account without any sees none. He neither creates, renames nor deletes
  // domains, gives them names, makes one primary, adds groups whose role is domain_admin,
  // refreshes, publishes, sees or sets settings of the host, nor takes back what others changed;
  // his copies are of mail to and from his domains. So are his disclaimers: each needs an address
  // pattern of the domain, with "or" nothing but such ones, and none is about a group. To add
  // somebody he may look any account and group of the host up. Calls that are not his are
  // Reason::kRefused, domains that are not his Reason::kNotFound. His errors have no log lines,
  // which name what is others'.
  Session As(std::uint32_t uid) const;
  Session WithPerson(const std::string& person) const;

  // Domains. All of them, the primary one first.
  Result<std::vector<Domain>> Domains() const;
  Result<Domain> GetDomain(int domain) const;
  // By its index or any of its names in either spelling.
  Result<std::optional<Domain>> FindDomain(const std::string& text) const;
  // The first domain becomes the primary one. kTaken, kInvalid (name, pattern).
  Result<Domain> CreateDomain(const NewDomain& domain);
  Result<Domain> SetDomain(int domain, const DomainChange& change, const Version& version = "");
  // With their addresses, names, rules, disclaimers and keys. All or none; never the primary one.
  Result<Nothing> DeleteDomains(const std::vector<int>& domains);
  Result<Domain> MakePrimary(int domain);
  // Additional names. All or none. kTaken, kInvalid; removing: kNotFound.
  Result<Domain> AddNames(int domain, const std::vector<std::string>& names);
  Result<Domain> SetNames(int domain, const std::vector<std::string>& names,
                          const Version& version = "");
  Result<Domain> RemoveNames(int domain, const std::vector<std::string>& names);

  // Accounts that a refresh has found, by full or short name or id; whoever is meant must be the
  // only one (kRefused).
  Result<std::optional<Account>> FindAccount(const std::string& text) const;
  Result<std::optional<Account>> FindAccountGroup(const std::string& text) const;

  // Users: who has a role in the domain, own or by a group.
  Result<Page<User>> ListUsers(int domain, const UserQuery& query = {},
                               const std::string& cursor = "") const;
  Range<User> Users(int domain, const UserQuery& query = {}) const;
  Result<std::optional<User>> FindUser(int domain, std::uint32_t uid) const;
  // The aliases that AddMembers would give.
  Result<std::vector<Candidate>> Preview(int domain, const Members& members) const;
  // Users get a role of their own, groups and their members that of the group. `aliases` takes the
  // place of the pattern's for one user.
  Result<std::vector<User>> AddMembers(int domain, const Members& members,
                                       const std::vector<std::string>& aliases = {});
  // All or nothing: each alias or role that cannot be is in `refused`. An alias that somebody else
  // has is stored and marked as taken. A user keeps at least one alias.
  Result<User> SetUser(int domain, std::uint32_t uid, const UserChange& change,
                       const Version& version = "");
  // With their aliases, rules and disclaimers there. No group brings them back.
  Result<Nothing> RemoveUsers(int domain, const std::vector<std::uint32_t>& uids);
  // Every address that reaches the account, those of the primary domain first.
  Result<std::vector<std::string>> Addresses(std::uint32_t uid, bool with_names = false) const;
  // The account that gets the mail for an address; none where nobody or several do.
  Result<std::optional<std::string>> Owner(const std::string& address) const;

  // Groups.
  Result<Page<Group>> ListGroups(int domain, const GroupQuery& query = {},
                                 const std::string& cursor = "") const;
  Range<Group> Groups(int domain, const GroupQuery& query = {}) const;
  Result<std::vector<Member>> GroupMembers(int domain, std::uint32_t gid) const;
  Result<Nothing> SetGroupRole(int domain, const std::vector<std::uint32_t>& gids, Role role);
  // Members who are in no other group of the domain leave it, too.
  Result<Nothing> RemoveGroups(int domain, const std::vector<std::uint32_t>& gids);
  // Takes removed members in again; without `uids` all of the group. kNotFound for somebody else.
  Result<Nothing> RestoreMembers(int domain, std::uint32_t gid,
                                 const std::vector<std::uint32_t>& uids = {});

  // Addresses that go to several.
  Result<std::vector<Entry>> Entries(int domain) const;
  Result<std::optional<Entry>> FindEntry(int domain, const std::string& name) const;
  Result<Entry> CreateEntry(int domain, const Entry& entry);
  Result<Entry> SetEntry(int domain, const Entry& entry, const Version& version = "");
  Result<Nothing> DeleteEntry(int domain, const std::string& name);

  // Blind copies.
  Result<std::vector<Copy>> Copies(int domain) const;
  // One of the same kind and name is replaced. All or none.
  Result<Nothing> AddCopies(int domain, const std::vector<Copy>& copies);
  // By kind and name, whatever their destination. All or none; kNotFound.
  Result<Nothing> RemoveCopies(int domain, const std::vector<Copy>& copies);

  Result<Disclaimers> GetDisclaimers(int domain) const;
  // Replaces all of the domain.
  Result<Disclaimers> SetDisclaimers(int domain, const std::string& json,
                                     const Version& version = "");

  // Whom a disclaimer would concern, before it is saved: `json` is one, as GetDisclaimers has them.
  // Refuses what SetDisclaimers would refuse of it.
  Result<DisclaimerReach> TryDisclaimer(int domain, const std::string& json) const;

  // Asking why. All but Repair read only; the answers are in insight/answers.h.
  //
  // Who gets the mail for an address, step by step. kInvalid: it is no address. For a domain
  // administrator kNotFound where the address is in no domain of his; else such a domain is a step.
  Result<Explanation> Explain(const std::string& address) const;
  // Everything about one account, with the reasons. For a domain administrator what there is in his
  // domains, and kNotFound for somebody who neither has anything there nor was taken out.
  Result<Person> ExplainUser(std::uint32_t uid) const;
  // What a person without any rights may know about himself. Whoever calls vouches that he is that
  // person; for a domain administrator kNotFound for anybody but himself.
  Result<OwnView> Of(std::uint32_t uid) const;
  Result<DomainOverview> Overview(int domain) const;
  // Everything that can be wrong, without what a refresh would bring. For a domain administrator
  // what is about his domains; then the files of the host are not looked at.
  Result<std::vector<Finding>> Doctor() const;
  // Copies the files aside, brings what follows from the model in line with it, publishes, and
  // looks again. Not for a domain administrator.
  Result<RepairReport> Repair();

  // Brings the accounts of the host into the model; what a failing one has brought stays. At most
  // so many of the accounts and groups that are gone are deleted, else none (`spared_users`); 0
  // stands for any number, or any share.
  Result<RefreshReport> Refresh(std::size_t deletion_limit = 500, std::size_t percent = 10);
  // What a refresh by this process, a dry run included, is doing now; none where none has begun.
  // For the host's administrators. Waits for nobody: other calls have no turn meanwhile.
  Result<std::optional<Progress>> RefreshProgress() const;
  // What is published once more, as a whole.
  Result<Nothing> Publish();
  // What mail services read now and since when, for the host's administrators.
  Result<Publication> Published(const PublicationQuery& query = {},
                                const std::string& cursor = "") const;

  // The newest changes, the latest first.
  Result<std::vector<HistoryEntry>> History(int limit = 100) const;
  // Takes a change back: the latest that is not "undone", or the one that is "undoing". kRefused
  // when that is not `id`, when somebody has changed the same things since, and within Together.
  // A domain administrator takes back what he did himself, in his domains alone.
  Result<Nothing> Undo(long long id);

  // The same, page by page. Domain administrators get the changes that were about their domains and
  // nothing else, by whomever; without `domain` those of all of them.
  Result<Page<HistoryEntry>> ListHistory(const HistoryQuery& query = {},
                                         const std::string& cursor = "") const;
  // What a change changed, at most its first thousand things; none where there is no such entry, or
  // it is not the caller's to see.
  Result<std::optional<ChangePlan>> HistoryPlan(long long id) const;

  // What a change would change. `work` gets a session whose calls work on private copies, together
  // as one change, and gives the result of the last one:
  //   session.DryRun([&](Session& trial) { return trial.SetUser(1, 1001, change); })
  // Nothing is stored, published, announced or put into the history. A result of `work` without a
  // value is the error of the dry run. Domain administrators see what is about their domains. The
  // lock is held while the copies are made, and other calls wait until it has ended. kRefused
  // within Together and within another one.
  template <typename Work>
  Result<ChangePlan> DryRun(const Work& work) const {
    return _TryOut([&work](Session& trial) -> std::optional<Error> {
      const auto result = work(trial);
      return result ? std::nullopt : std::make_optional(result.GetError());
    });
  }

  // What a pattern would give the users of a domain; nothing is saved. Aliases that exist stay as
  // they are when a pattern is saved. kInvalid where it is none.
  Result<TriedPattern> TryPattern(int domain, const std::string& pattern,
                                  const PatternQuery& query = {},
                                  const std::string& cursor = "") const;
  // The users who do not have what the domain's own pattern gives now: it or the account changed
  // since, or the alias was given by hand.
  Result<TriedPattern> PatternDrift(int domain, const PatternQuery& query = {},
                                    const std::string& cursor = "") const;

  // Keys of the mail configuration, by name, for the host's administrators. Those that are set;
  // with `all` also those that are known and not set, but those of single domains.
  Result<std::vector<Setting>> Settings(bool all = false) const;
  // kNotFound for a key that nobody knows and nobody set.
  Result<Setting> GetSetting(const std::string& key) const;
  // kInvalid for what is no text of one line, or no account type. Unless `force`, kRefused for a
  // key that nobody knows, for one that follows from the domains, and for an account source that
  // would put a model without domains in force or give their settings to others.
  Result<ChangedSetting> SetSetting(const std::string& key, const std::string& value,
                                    bool force = false);

  // Several calls as one change with one entry `command` in the history: nobody else changes
  // anything in between, and when `work` returns false all of it is taken back (Reason::kRefused);
  // likewise when an exception leaves it (Reason::kFailed with its text).
  Result<Nothing> Together(const std::string& command, const std::function<bool(Session&)>& work);

 private:
  friend struct SessionAccess;

  Result<ChangePlan> _TryOut(const std::function<std::optional<Error>(Session& trial)>& work) const;

  std::shared_ptr<const SessionState> state_;
};

}  // namespace mdomain

#endif  // MAILSERVER_DOMAIN_MDOMAIN_HPP
