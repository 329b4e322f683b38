#include "bench/company.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "lib-domain/api/domain.h"
#include "lib-domain/db/handler.h"
#include "platform/include/maillog.h"

namespace bench {

namespace fs = std::filesystem;

namespace {

// The first group is big; the members of the others go round through all users. Whoever comes takes
// the place of one who went.
void WriteGroups(const std::string& path, int users, int first) {
  constexpr int kMembers = 20;
  std::ofstream group(path);
  int next = 0;
  for (int i = 0; i < users / 20; ++i) {
    group << "group" << i << ":x:" << kFirstGid + static_cast<unsigned int>(i) << ":";
    const int members = i == 0 ? kBigGroup : kMembers;
    for (int k = 0; k < members; ++k) {
      const int user = i == 0 ? k : next++ % users;
      group << (k == 0 ? "" : ",") << UserName(user < first ? user + users : user);
    }
    group << "\n";
  }
}

}  // namespace

void Stop(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(2);
}

void Must(bool done, const std::string& what) {
  if (!done) {
    Stop(what + " failed");
  }
}

std::string UserName(int i) {
  return "user" + std::to_string(i);
}

Company::Company(int users, int domains) : users_(users), domains_(domains) {
  korvmailserver::SetMailLogSink([](int level, const std::string& line) {
    if (level == 3) {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
    return true;
  });
  std::string name = (fs::temp_directory_path() / "mdomain-bench.XXXXXX").string();
  Must(mkdtemp(name.data()) != nullptr, "a temporary folder");
  root_ = name;
  setenv("MDOMAIN_ROOT", root_.c_str(), 1);
  fs::create_directories(root_ + "/etc/mailserver-domain");
  fs::create_directories(Etc());
  WriteAccounts(0);
  std::ofstream(root_ + "/etc/login.defs")
      << "UID_MIN 1000\nUID_MAX 6000000\nGID_MIN 1000\nGID_MAX 6000000\n";
}

Company::~Company() {
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void Company::CreateDomains() const {
  for (int i = 0; i < domains_; ++i) {
    MDOMAIN::RECORD::Domain domain(-1, "domain" + std::to_string(i) + ".example", "", "<a>",
                                   i < kAddingDomains, false, false);
    int domain_idx = -1;
    Must(MDOMAIN::API::Domain().Create(domain, domain_idx), "creating a domain");
  }
}

void Company::WriteAccounts(int first) const {
  std::ofstream passwd(root_ + "/etc/passwd");
  // The service account, which every opening of a database looks for, stands before the users as on
  // a host where the package was installed first.
  passwd << "Postara-Server:x:" << getuid() << ":" << getgid() << "::/:/bin/false\n";
  for (int i = first; i < first + users_; ++i) {
    passwd << UserName(i) << ":x:" << kFirstUid + static_cast<unsigned int>(i)
           << ":999::/home:/bin/false\n";
  }
  WriteGroups(root_ + "/etc/group", users_, first);
}

void Company::TouchAccounts() const {
  fs::last_write_time(root_ + "/etc/passwd", fs::file_time_type::clock::now());
}

}  // namespace bench
