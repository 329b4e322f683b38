// two_threads guarded|unguarded : two threads change and read domains, under one mutex or none.
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/updater.h"

namespace {

std::mutex library;
bool is_guarded = true;

std::unique_lock<std::mutex> Enter() {
  return is_guarded ? std::unique_lock<std::mutex>(library) : std::unique_lock<std::mutex>();
}

bool Work(const std::string& name) {
  bool is_done = true;
  for (int round = 0; round < 3; ++round) {
    MDOMAIN::RECORD::Domain record(name + std::to_string(round) + ".example");
    int idx = 0;
    {
      const auto entered = Enter();
      is_done = MDOMAIN::API::Domain().Create(record, idx) && is_done;
      is_done = BCC::getInstance()->setBCC(idx, {{"anna", BCC_SENDER, "ben"}}) == 0 && is_done;
    }
    {
      const auto entered = Enter();
      is_done = MDOMAIN::API::Updater().Refresh() && is_done;
    }
    const auto entered = Enter();
    std::map<std::string, std::vector<std::string>> emails;
    is_done =
        MDOMAIN::API::DomainUser().GetAllUser2EmailsMap(true, emails) && !emails.empty() && is_done;
  }
  return is_done;
}

}  // namespace

int main(int count, char** words) {
  is_guarded = count > 1 && std::string(words[1]) == "guarded";
  bool first = false;
  bool second = false;
  std::thread other([&second] { second = Work("two"); });
  first = Work("one");
  other.join();
  if (!first || !second) {
    std::fprintf(stderr, "a call failed\n");
    return 1;
  }
  return 0;
}
