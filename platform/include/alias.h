// The alias table: names of a domain that deliver to users, groups or addresses. A small SQLite
// store, entries (name, domain id) and members (alias, domain id, kind, member).
//
// An object holds what load() read and its own changes since; those of others are seen by the next
// load(). Each change is one transaction.
#ifndef PLATFORM_ALIAS_H
#define PLATFORM_ALIAS_H

#include <list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

class MDOMAIN_EXPORT Alias {
 public:
  enum class MemberKind { User, Group, Address };
  struct Member {
    MemberKind kind;
    std::string name;
  };
  struct Entry {
    std::string name;
    int domain_id;
    std::vector<Member> members;
  };

  explicit Alias(const std::string& path);
  // All return 0, or negative with one log line and nothing changed. load() reads the whole store;
  // a missing file is an empty store and is created only by set(); one that this process has had
  // open before is a failure, as it is for all other calls. Those that change need a load()
  // before; removing what is not there is success.
  int load();
  // Adds the ids of all domains that have entries or members, by itself and without a load().
  int listDomains(std::set<int>& domain_ids) const;
  // Adds the domain id and name of every entry, by itself and without a load().
  int listNames(std::set<std::pair<int, std::string>>& names) const;
  // Every entry, by domain id, then name.
  const std::vector<Entry>& list() const { return entries_; }
  // Whether there is an entry with exactly this name, byte for byte, and domain id.
  bool isAlias(const std::string& name, int domain_id) const;
  // Creates or replaces an entry with its members; a member that is given twice is stored once.
  int set(const Entry& entry);
  int del(const std::string& name, int domain_id);
  // Removes every entry of the domain.
  int delDomainAlias(int domain_id);
  // Removes these users (groups) from the members of the domain's entries; names without regard to
  // ASCII case. Entries that are left without members stay.
  int delDomainUserMember(int domain_id, const std::list<std::string>& names);
  int delDomainGroupMember(int domain_id, const std::list<std::string>& names);

 private:
  template <typename Value, typename ReadRow>
  int _Select(const char* sql, const ReadRow& read_row, std::set<Value>& values) const;
  int _DeleteDomainMembers(int domain_id, MemberKind kind, const std::list<std::string>& names);

  std::string path_;
  bool loaded_ = false;
  std::vector<Entry> entries_;
};

#endif  // PLATFORM_ALIAS_H
