// Output of the directory search tool. Whatever it is: only asked attributes, and the account name.
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "lib-domain/accounts/net_output.h"
#include "platform/include/maillog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  korvmailserver::SetMailLogSink([](int, const std::string&) { return true; });
  const std::set<std::string> asked = {"sn", "mail", "Department"};
  std::map<std::string, std::map<std::string, std::string>> accounts;
  MDOMAIN::UTILS::INTERNAL::ParseNetSearchOutput(
      std::string(reinterpret_cast<const char*>(data), size), asked, accounts);
  for (const auto& [account, values] : accounts) {
    for (const auto& [name, value] : values) {
      if (asked.count(name) == 0 && name != MDOMAIN::UTILS::INTERNAL::kAccountAttr) {
        __builtin_trap();
      }
    }
    if (values.at(MDOMAIN::UTILS::INTERNAL::kAccountAttr) != account) {
      __builtin_trap();
    }
  }
  return 0;
}
