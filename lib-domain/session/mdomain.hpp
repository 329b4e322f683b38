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

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/session/records.h"
#include "lib-domain/session/result.h"
#include "platform/include/export.h"

namespace mdomain {

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
  // refreshes, publishes, exports, sees or sets settings of the host, nor takes back what others
  // changed;
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
  // A version is that of a single one, and stands for its settings and names alone.
  Result<Nothing> DeleteDomains(const std::vector<int>& domains, const Version& version = "");
  Result<Domain> MakePrimary(int domain);
  // Additional names. All or none. kTaken, kInvalid; removing: kNotFound.
  Result<Domain> AddNames(int domain, const std::vector<std::string>& names);
  Result<Domain> SetNames(int domain, const std::vector<std::string>& names,
                          const Version& version = "");
  Result<Domain> RemoveNames(int domain, const std::vector<std::string>& names);

  // Accounts that a refresh has found, by full or short name or id; whoever is meant must be the
  // only one (kRefused). Who has no domain finds nobody.
  Result<std::optional<Account>> FindAccount(const std::string& text) const;
  Result<std::optional<Account>> FindAccountGroup(const std::string& text) const;
  // Names and numbers of all of them, whom an administrator of a domain may bring into it; for one
  // who has no domain there is nobody. kNotFound for a gid that no mirrored group has.
  Result<Page<Account>> ListAccounts(const AccountQuery& query = {},
                                     const std::string& cursor = "") const;
  Result<Page<Account>> ListAccountGroups(const AccountQuery& query = {},
                                          const std::string& cursor = "") const;
  // With the domains that the caller may see.
  Result<AccountGroup> ExplainGroup(std::uint32_t gid) const;

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
  // With their aliases, rules and disclaimers there. No group brings them back. A version is that
  // of a single one.
  Result<Nothing> RemoveUsers(int domain, const std::vector<std::uint32_t>& uids,
                              const Version& version = "");
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
  Result<Nothing> DeleteEntry(int domain, const std::string& name, const Version& version = "");

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

  // Which disclaimers of the domain apply to a message, and why, as the filter decides it; in the
  // order of the list. An empty sender is that of a bounce. kInvalid for what is no address.
  Result<std::vector<DisclaimerVerdict>> ExplainDisclaimers(int domain, const std::string& from,
                                                            const std::string& to) const;

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

  // The newest changes, the latest first; with a negative limit all. A domain administrator gets
  // those of ListHistory.
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
  // within Together and within another one. The shared key store is not asked: of Publish it
  // tells what would be written here.
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

  // The whole model as the document of mdomain export, for the host's administrators. The document
  // is built in memory: some 160 bytes of it for a user, and while it is built twelve times as
  // much.
  Result<ModelDocument> Export() const;
  // Makes the model what such a document says, or changes nothing; what it has not is removed. The
  // version is that of Export. kInvalid with the place ("$.domains[0].name: ...") for what is no
  // document or what no model can be; kNotFound with each in `refused` for accounts and groups that
  // are not mirrored, which `skip_unknown` leaves out. Not for a domain administrator.
  Result<AppliedDocument> Apply(const std::string& json, bool skip_unknown = false,
                                const Version& version = "");

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
