// Output of the directory search tool. Whatever it is: only asked attributes, and the account name.
#include <map>
#include <set>

#include "fuzz/target.h"
#include "lib-domain/accounts/net_output.h"

void fuzz::Run(const std::string& input) {
  using namespace MDOMAIN::UTILS::INTERNAL;
  const std::set<std::string> asked = {"sn", "mail", "Department"};
  std::map<std::string, std::map<std::string, std::string>> accounts;
  ParseNetSearchOutput(input, asked, accounts);
  for (const auto& [account, values] : accounts) {
    for (const auto& [name, value] : values) {
      Require(asked.count(name) != 0 || name == kAccountAttr);
    }
    Require(values.at(kAccountAttr) == account);
  }
}
