// A root with the accounts of a company, and bare SQLite beside the library's.
#ifndef BENCH_COMPANY_H
#define BENCH_COMPANY_H

#include <sqlite3.h>

#include <string>
#include <vector>

namespace bench {

constexpr int kDomains = 20;
constexpr int kAddingDomains = 5;  // domains 1 to 5 add new accounts automatically
constexpr int kBigGroup = 1000;    // members of the first group; the others have 20
constexpr unsigned int kFirstUid = 1000;
constexpr unsigned int kFirstGid = 1000;

// A temporary root in which /etc/passwd has `users` people and /etc/group 5 % as many groups. It is
// the root of this process for as long as it lives; one at a time.
class Company {
 public:
  explicit Company(int users);
  ~Company();
  Company(const Company&) = delete;
  Company& operator=(const Company&) = delete;

  const std::string& Root() const { return root_; }
  static std::string DatabasePath();
  // Creates the domains. Nobody is mirrored yet.
  static void CreateDomains();
  // Creates the domains and refreshes once.
  static void Fill();

 private:
  std::string root_;
};

// A connection with prepared statements and nothing else. Stops the program on any error.
class Bare {
 public:
  explicit Bare(const std::string& path);
  ~Bare();
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  using Row = std::vector<std::string>;
  using Rows = std::vector<Row>;
  void Run(const std::string& sql);
  Rows Select(const std::string& sql);
  // Runs the statement once per row, its cells bound in order.
  void ForEach(const std::string& sql, const Rows& rows);

 private:
  sqlite3_stmt* Prepare(const std::string& sql);

  sqlite3* db_ = nullptr;
};

}  // namespace bench

#endif  // BENCH_COMPANY_H
