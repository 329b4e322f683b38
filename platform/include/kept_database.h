// Connections that a process keeps to databases into which every change looks: opening one and
// reading its schema costs more than the look.
//
// For the sources of this project only; it is not installed.
#ifndef PLATFORM_KEPT_DATABASE_H
#define PLATFORM_KEPT_DATABASE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <any>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/include/database_numbers.h"
#include "platform/include/export.h"
#include "platform/include/sqlite.h"

namespace korvmailserver {

// The short way to a file that was opened in the usual way before and was as it should be. Whatever
// is unusual is left to the usual way, which waits, creates, mends and says what is wrong.
class MDOMAIN_EXPORT KeptDatabase {
 public:
  using Work = std::function<bool(sqlite3* db, CompiledStatements& compiled)>;

  // There is one for each file name: the file of another folder takes its place.
  static KeptDatabase& Of(const std::string& path);

  // The result of `work` on the kept connection; it leaves no transaction open, and gives false
  // where the usual way is to be gone. False, without `work`, where no connection to the file that
  // stands at the path now is kept: it, its folder, the rights to them or the process is another.
  // After a false nothing is kept. The connection does not wait for locks.
  bool Run(const std::string& path, const Work& work);
  // What `read` answered to this question, a constant, of the state that the file has now: it is
  // called when somebody has committed something since. Null where the usual way is to be gone, as
  // with Run. The answer stays until the next call.
  template <typename Answer>
  const Answer* Ask(
      const std::string& path, const char* question,
      const std::function<bool(sqlite3* db, CompiledStatements& compiled, Answer& answer)>& read) {
    const bool is_known = Run(path, [&](sqlite3* db, CompiledStatements& compiled) {
      if (_IsKnown(question)) {
        return true;
      }
      Transaction of_one_moment(db, Transaction::Kind::kRead);
      Answer answer;
      if (of_one_moment.Begun() != SQLITE_OK || !read(db, compiled, answer)) {
        return false;
      }
      _Know(question, std::move(answer));
      return of_one_moment.Commit() == SQLITE_OK;
    });
    return is_known ? std::any_cast<Answer>(&answers_[question]) : nullptr;
  }
  // After the usual way succeeded. Nothing is kept where the file cannot be opened.
  void Keep(const std::string& path);

 private:
  // What decides about an opening.
  struct Place {
    pid_t process = 0;
    uid_t user = 0;
    std::string path;
    struct stat file = {};
    struct stat folder = {};

    bool Read(const std::string& path_now);
    bool operator==(const Place& other) const;
  };

  void _Forget();
  bool _IsKnown(const char* question);
  void _Know(const char* question, std::any answer);

  Place place_;
  Connection connection_;
  CompiledStatements compiled_;  // goes before the connection
  std::map<std::string, std::any> answers_;
  std::optional<DatabaseNumbers> numbers_;  // of the state that was asked
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEPT_DATABASE_H
