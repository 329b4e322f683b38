// A root with the accounts and domains of a company, in which this process and whole commands work.
#ifndef BENCH_COMPANY_H
#define BENCH_COMPANY_H

#include <string>

namespace bench {

constexpr int kAddingDomains = 2;  // domains 1 and 2 add new accounts automatically
constexpr int kBigGroup = 1000;    // members of the first group; the others have 20
constexpr unsigned int kFirstUid = 1000;
constexpr unsigned int kFirstGid = 1000;

[[noreturn]] void Stop(const std::string& what);
void Must(bool done, const std::string& what);

// A temporary root in which /etc/group has 5 % as many groups as /etc/passwd has users. It is the
// root of this process until it goes, or there is a newer one.
class Company {
 public:
  Company(int users, int domains);
  ~Company();
  Company(const Company&) = delete;
  Company& operator=(const Company&) = delete;

  int Users() const { return users_; }
  int Domains() const { return domains_; }
  const std::string& Root() const { return root_; }
  // The folder of the databases.
  std::string Etc() const { return root_ + "/var/packages/Postara-Server/etc"; }
  std::string Database() const { return Etc() + "/local_DOMAIN.db"; }

  // The domains, of which nobody is a user yet.
  void CreateDomains() const;
  // Users `first` to `first` + Users() - 1 are the accounts from now on, and the groups' members.
  void WriteAccounts(int first) const;
  // The account file gets another time, and the same content.
  void TouchAccounts() const;

 private:
  int users_;
  int domains_;
  std::string root_;
};

std::string UserName(int i);

}  // namespace bench

#endif  // BENCH_COMPANY_H
