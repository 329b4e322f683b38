// The table of the domain's operations, each beside its floor and its limit (bench/README.md).
// Usage: domain_bench [--sizes N,N...] [--only REGEX] [--million]; 20 domains and 5 % as many
// groups as users. Ends with 0 when every limit holds, with 1 when not, with 2 when something
// failed.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <vector>

#include "bench/operations.h"
#include "lib-domain/db/handler.h"

namespace {

constexpr int kDomains = 20;
constexpr int kMillion = 1000000;
constexpr int kDomainsOfMillion = 1000;

struct Options {
  std::vector<int> sizes = {1000, 10000, 100000};
  std::string only;
  bool million = false;
};

Options Parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--million") {
      options.million = true;
    } else if (word == "--only" && i + 1 < argc) {
      options.only = argv[++i];
    } else if (word == "--sizes" && i + 1 < argc) {
      options.sizes.clear();
      std::istringstream sizes(argv[++i]);
      for (std::string size; std::getline(sizes, size, ',');) {
        options.sizes.push_back(std::atoi(size.c_str()));
        bench::Must(options.sizes.back() >= bench::kBigGroup, "a size of at least 1000: " + size);
      }
    } else {
      bench::Stop("usage: domain_bench [--sizes N,N...] [--only REGEX] [--million]");
    }
  }
  return options;
}

// What this process does itself.
void RunCalls(const bench::Stage& stage, bool is_million) {
  stage.company.CreateDomains();
  bench::FirstRefresh(stage, is_million);
  bench::AddCollisions(stage.company);
  bench::LaterRefreshes(stage);
  {
    const auto indexed = bench::MakeIndexedCopy(stage.company);
    bench::Changes(stage, *indexed);
    bench::Groups(stage, *indexed);
    bench::LookUps(stage, *indexed);
    bench::Listings(stage, *indexed);
    bench::OwnerBuild(stage, *indexed);
  }
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = Parse(argc, argv);
  const bench::Launcher launcher;
  const std::regex only(options.only);
  const std::string mdomain =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "mdomain";
  bench::Report report;
  {
    std::vector<std::unique_ptr<bench::Company>> companies;
    std::vector<bench::Stage> stages;
    for (const int size : options.sizes) {
      companies.push_back(std::make_unique<bench::Company>(size, kDomains));
      stages.push_back({*companies.back(), launcher, report, only, mdomain});
      RunCalls(stages.back(), false);
    }
    bench::Commands(stages);
    std::for_each(stages.begin(), stages.end(), bench::Publishing);
  }
  if (options.million) {
    report.StopComparing();  // its domains are more, too
    const bench::Company company(kMillion, kDomainsOfMillion);
    const bench::Stage stage = {company, launcher, report, only, mdomain};
    RunCalls(stage, true);
    bench::Commands({stage});
    bench::CommandsOfMany(stage);
    bench::Publishing(stage);
  }
  return report.Print() ? 0 : 1;
}
