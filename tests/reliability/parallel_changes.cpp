// parallel_changes NAME COUNT : a program of somebody else, linked to the shared library. Makes
// COUNT changes, no two alike, while others do the same, and prints "done WHAT" or "failed WHAT
// ERROR" for each. Domains, additional names and rules for blind copies have NAME in them.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain.h"

namespace {

void Say(const std::string& what, bool done, int error) {
  if (done) {
    std::printf("done %s\n", what.c_str());
  } else {
    std::printf("failed %s %d\n", what.c_str(), error);
  }
  std::fflush(stdout);
}

void CreateDomain(const std::string& name) {
  MDOMAIN::API::Domain domains;
  MDOMAIN::RECORD::Domain domain(name + ".example");
  domain.SetIsAutomaticallyAddingUsers(false);
  int idx = 0;
  Say("domain " + name + ".example", domains.Create(domain, idx), domains.GetErrorCode());
}

void AddName(const std::string& name) {
  MDOMAIN::API::Domain domains;
  const bool done = domains.CreateAdditionalDomains(1, {name + ".example.org"});
  Say("name " + name + ".example.org", done, domains.GetErrorCode());
}

void AddRule(const std::string& name) {
  BCC* rules = BCC::getInstance(1);
  const std::string address = name + "@example.com";
  const bool done = rules != nullptr && rules->addBCC(BCC_RECIPIENT, address, "ben") == 0;
  Say("rule " + address, done, 0);
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc == 3 ? std::atoi(argv[2]) : 0;
  for (int i = 0; i < count; ++i) {
    const std::string name = std::string(argv[1]) + "-" + std::to_string(i);
    // Domains make each later publication longer, so there are few of them.
    i % 10 == 0 ? CreateDomain(name) : i % 2 == 0 ? AddName(name) : AddRule(name);
  }
  return count > 0 ? 0 : 2;
}
