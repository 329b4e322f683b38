// What a session tells of people, addresses, domains and the state of the whole: plain values.
//
// Aliases are local parts (RFC 5321, 6531), names of domains in UTF-8, names of accounts the full
// ones of the account system. Sentences are in English, for a person.
#ifndef LIB_DOMAIN_INSIGHT_ANSWERS_H
#define LIB_DOMAIN_INSIGHT_ANSWERS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mdomain {

struct Account {
  std::uint32_t id = 0;  // uid or gid
  std::string name;      // the full one
};

enum class Role { kNone, kNormal, kDomainAdmin };

// A blind copy of each mail that is sent to or from somebody.
struct Copy {
  enum class Of { kMailTo, kMailFrom, kWholeDomain };
  Of of = Of::kMailTo;
  std::string name;  // an address, an account, an alias; of a whole domain one of its names
  std::string to;
};

struct DomainName {
  int idx = 0;
  std::string name;
};

// An enabled disclaimer of which a match rule fits somebody's mail. Whether a message gets it
// depends on its other rules as well.
struct FittingDisclaimer {
  int domain = 0;
  int id = 0;
  std::string name;
  bool fits_sender = false;  // mail from him or the address
  bool fits_recipient = false;
};

struct AffectedPeople {
  std::size_t count = 0;
  std::vector<std::string> names;  // of accounts: at most the first ten, by name
};

// Of whose mail a disclaimer may get hold: people of the domain, by their addresses there.
struct DisclaimerReach {
  std::size_t people = 0;     // of the domain
  AffectedPeople senders;     // mail from an address of theirs fits
  AffectedPeople recipients;  // mail to an address of theirs fits
  // Whether what they send or get has the text depends on the other side of a message as well.
  bool depends_on_other_side = false;
};

// Whether a disclaimer applies to a message.
struct DisclaimerVerdict {
  int id = 0;
  std::string name;
  bool applies = false;
  // "match_rule_list[0]", "exception_rule_list[1], exception_rule_list[2]", "no match rule holds",
  // "disabled", ...
  std::string reason;
  std::vector<int> matched;  // indexes of the match rules that hold
  std::vector<int> excepted;
  std::vector<int> match_left_out;  // of those that cannot be used: their account is gone, ...
  std::vector<int> exceptions_left_out;
};

// ---- Whose mail is it? ----

// Who has an alias.
struct Holder {
  std::uint32_t uid = 0;
  std::string name;
  Role role = Role::kNone;  // without one the alias gets no mail
  bool is_taken = false;    // somebody else gets its mail
};

// One sentence of an explanation. Steps: "spelling", "domain", "published", "entry", "holder",
// "account", "collision", "extension", "role", "copy", "disclaimer", "registry", "postfix".
struct Step {
  std::string step;
  std::string text;
};

// Who gets the mail for an address, and why; or why nobody does.
struct Explanation {
  std::string address;               // as it was given
  std::string other_spelling;        // with the domain in punycode, or in UTF-8; "" for none
  std::optional<DomainName> domain;  // none: no domain has the name
  bool is_published = false;         // whether the mail services know the domain
  std::string receiver;              // an account, or addresses with ", " between; "" for nobody
  std::vector<Holder> holders;       // whoever gets the mail first
  bool is_entry = false;             // an address with several members
  std::vector<std::string> members;  // of it: accounts, "group NAME", addresses
  std::vector<Copy> copies;          // of mail to it, from it, or of the whole domain
  std::vector<FittingDisclaimer> disclaimers;
  std::optional<std::string> registry;  // whom the registry of owners has; none without one
  std::optional<std::string> postfix;   // what Postfix's map has; none without one
  std::vector<Step> steps;

  // Whether somebody gets the mail.
  bool IsDelivered() const { return !receiver.empty() || !postfix.value_or("").empty(); }
};

// ---- Why is somebody here? ----

struct PersonAlias {
  std::string local_part;
  bool is_taken = false;            // somebody else gets the mail
  std::string owner;                // the account that does; "" where none or several do
  bool is_entry = false;            // an address with several members has it
  std::vector<std::string> others;  // accounts that have it as well, the owner among them
  std::string why;                  // where it is taken: why that one owns it
};

struct PersonDomain {
  DomainName domain;
  Role role = Role::kNone;      // none: a role was taken away, and the aliases get no mail
  bool has_own_role = false;    // else it is that of the groups
  std::vector<Account> groups;  // that give him a role there
  std::vector<PersonAlias> aliases;
  std::string by_pattern;  // the alias that the pattern gives him now; "" where that is not told
};

struct PersonAddress {
  std::string address;
  std::string owner;      // the account that gets the mail; "" where none or several do
  bool is_entry = false;  // an address with several members has it
};

struct PersonCopy {
  DomainName domain;  // that has the rule
  Copy copy;
};

// Everything about one account.
struct Person {
  std::uint32_t uid = 0;
  std::string name;
  std::vector<Account> groups;
  std::vector<PersonDomain> domains;     // the primary one first
  std::vector<DomainName> taken_out_of;  // by name: no group brings him back
  std::vector<PersonAddress> addresses;  // at all names, those of the primary domain first
  std::vector<PersonCopy> copies;        // of his mail, and to him
  std::vector<FittingDisclaimer> disclaimers;
};

// ---- What is mine? ----

struct TakenAddress {
  std::string address;
  std::string owner;  // the account that gets the mail; "" where none or several do
};

struct OwnCopy {
  std::string domain;
  Copy::Of of = Copy::Of::kMailTo;
  std::string to;
};

// What somebody may know who has no rights: his own, and of others the account names of those who
// get the mail of aliases that are his, too.
struct OwnView {
  std::uint32_t uid = 0;
  std::string name;
  std::vector<std::string> addresses;  // those of the primary domain first
  std::vector<TakenAddress> taken;
  std::vector<OwnCopy> copies;  // where his mail goes besides
};

// ---- Domains ----

struct DomainCounts {
  std::size_t groups = 0;
  std::size_t collisions = 0;  // aliases that several want
  std::size_t entries = 0;     // addresses that go to several
  std::size_t copies = 0;
  std::optional<std::size_t> disclaimers;  // none: their list cannot be read
};

// ---- What is wrong? ----

struct Finding {
  std::string id;           // of the check: "postmaster", "published"
  bool is_error = false;    // else it may be meant so
  std::string text;         // a sentence that names what is wrong and where
  std::string cure;         // the command that mends it
  int domain = 0;           // the only one that it is about; 0: it is about more
  std::string repair = "";  // what Session::Repair does about it; "" for nothing
  std::string page = "";    // below docs/
};

}  // namespace mdomain

#endif  // LIB_DOMAIN_INSIGHT_ANSWERS_H
