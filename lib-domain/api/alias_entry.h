// The public interface for addresses of a domain that go to several: entries of the alias table,
// with users, groups and addresses elsewhere as their members.
//
// Names are local parts (RFC 5321, 6531) and compared without letter case, as Postfix does. A
// changing call ends by publishing; when that fails it is kUnpublished, and the change stays.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_ALIAS_ENTRY_H
#define LIB_DOMAIN_API_ALIAS_ENTRY_H

#include <string>
#include <vector>

#include "platform/include/alias.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT AliasEntry {
 public:
  enum class Result {
    kDone,
    kUnpublished,
    kInvalid,  // the name is no local part, or a member is none of its kind, or there is none
    kTaken,    // Create: an alias of a user of the domain
    kExists,   // Create: there is an entry of that name
    kMissing,  // Set, Delete: there is none; or the domain is not there
    kNobody,   // a member is an address in a domain of ours that nobody has
    kLoop,     // a member is an address that leads back to the entry
    kFailed,   // with a log line
  };

  // Appends the domain's entries by name, members in the order in which they were given. False with
  // a log line when they cannot be read.
  bool List(int domain_idx, std::vector<Alias::Entry>& entries);
  // The same of all domains, by domain, with one read.
  bool List(std::vector<Alias::Entry>& entries);
  // The entry of that name; without one `found` is false.
  bool Find(int domain_idx, const std::string& name, bool& found, Alias::Entry& entry);

  // Users and groups are stored as they are given, and must be mirrored under that full name;
  // addresses have a local part and a domain. What is refused is told by `Problem`, and nothing is
  // changed.
  Result Create(const Alias::Entry& entry);
  Result Set(const Alias::Entry& entry);
  Result Delete(int domain_idx, const std::string& name);
  // Creates or replaces all of these, each domain's name once, and publishes once. They may lead to
  // each other in any order. One that has no member, or leads to an address of ours that nobody
  // has, is stored, and told in `dead_ends` as "all@example.com: nobody has x@example.com"; all
  // else is refused as by Create and Set, and then none is stored.
  Result SetAll(const std::vector<Alias::Entry>& entries, std::vector<std::string>& dead_ends);
  // What was wrong with the last call: a member, or who has the name; may be empty.
  const std::string& Problem() const { return problem_; }

 private:
  Result _Check(const Alias::Entry& entry, bool is_new);
  Result _CheckNames(const std::vector<Alias::Entry>& entries, const Alias& table);
  Result _CheckAllWays(const std::vector<Alias::Entry>& entries,
                       std::vector<std::string>& dead_ends);
  Result _CheckMembers(const Alias::Entry& entry);
  Result _CheckWays(const Alias::Entry& entry);
  Result _Store(const Alias::Entry& entry, bool must_be_new);
  Result _Refuse(Result result, const std::string& problem);

  std::string problem_;
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_ALIAS_ENTRY_H
