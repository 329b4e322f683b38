#include "platform/include/lost_database.h"

#include <unistd.h>

#include <cerrno>
#include <set>

#include "platform/include/maillog.h"

namespace korvmailserver {

namespace {

// Never destroyed: destructors of static objects may still work on databases.
std::set<std::string>& Known() {
  static auto* known = new std::set<std::string>();
  return *known;
}

}  // namespace

void NoteDatabase(const std::string& path) {
  Known().insert(path);
}

bool IsDatabaseLost(const std::string& path) {
  if (Known().count(path) == 0 || access(path.c_str(), F_OK) == 0 || errno != ENOENT) {
    return false;
  }
  maillog(kLogError, "database [%s] was here and is gone: no new one is made in its place",
          path.c_str());
  return true;
}

void ForgetDatabase(const std::string& path) {
  Known().erase(path);
}

void ForgetDatabasesBelow(const std::string& folder) {
  const std::string begin = folder + "/";
  auto first = Known().lower_bound(begin);
  while (first != Known().end() && first->rfind(begin, 0) == 0) {
    first = Known().erase(first);
  }
}

}  // namespace korvmailserver
