// Generating the filter's configuration, and the run key that every removal of a user settles: 200
// domains with up to 20 disclaimers each, three rules in a disclaimer, 50 users in a domain. Beside
// the configuration the floor: parsing the stored lists and texts and writing the result. The last
// lines give the time of 20 disclaimers over that of 5, four times the rules, which must be at most
// 6, else the program fails; and the ratio to the floor.
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "lib-domain/api/domain.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/base/paths.h"
#include "platform/include/mail_conf.h"

namespace {

constexpr int kDomains = 200;
constexpr int kUsers = 50;
constexpr int kFirstUid = 2000;
constexpr int kGroup = 5000;
constexpr int kMost = 20;
constexpr int kFew = 5;
constexpr double kGrowthLimit = 6;

void Require(bool done, const char* what) {
  if (!done) {
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
  }
}

void WriteAccounts(const std::string& root) {
  std::filesystem::create_directories(root + "/etc");
  std::ofstream passwd(root + "/etc/passwd");
  std::string members;
  for (int i = 0; i < kUsers; ++i) {
    const std::string name = "user" + std::to_string(i);
    passwd << name << ":x:" << kFirstUid + i << ":" << kGroup << ":User:/:/bin/sh\n";
    members += (i == 0 ? "" : ",") + name;
  }
  std::ofstream(root + "/etc/group") << "staff:x:" << kGroup << ":" << members << "\n";
}

Json::Value Rule(const char* target, const char* type, const Json::Value& pattern) {
  Json::Value rule(Json::objectValue);
  rule["target"] = target;
  rule["pattern_type"] = type;
  rule["pattern"] = pattern;
  return rule;
}

Json::Value Disclaimers(int count) {
  Json::Value list(Json::arrayValue);
  for (int id = 0; id < count; ++id) {
    Json::Value disclaimer(Json::objectValue);
    disclaimer["id"] = id;
    disclaimer["name"] = "disclaimer " + std::to_string(id);
    disclaimer["enabled"] = true;
    disclaimer["op"] = "or";
    disclaimer["match_rule_list"].append(Rule("sender", "uid", kFirstUid + id));
    disclaimer["match_rule_list"].append(Rule("sender", "gid", kGroup));
    disclaimer["exception_rule_list"].append(Rule("recipient", "email",
                                                  "*@b\xC3\xBC"
                                                  "cher.example"));
    disclaimer["content_txt"] = std::string(500, 'x');
    disclaimer["content_html"] = "<p>" + std::string(500, 'x') + "</p>";
    list.append(disclaimer);
  }
  return list;
}

void MakeDomains() {
  for (int i = 1; i <= kDomains; ++i) {
    MDOMAIN::RECORD::Domain domain("domain" + std::to_string(i) + ".example");
    domain.SetIsAutomaticallyAddingUsers(true);
    int domain_idx = 0;
    Require(MDOMAIN::API::Domain().Create(domain, domain_idx), "domain");
  }
  Require(MDOMAIN::API::Updater().Refresh(), "refresh");
}

void SetAll(int count) {
  MimeDefang mimedefang;
  const Json::Value list = Disclaimers(count);
  for (int domain_idx = 1; domain_idx <= kDomains; ++domain_idx) {
    Require(mimedefang.SetDisclaimerList(domain_idx, list) == 0, "disclaimers");
  }
}

void Generate(benchmark::State& state) {
  SetAll(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    Json::Value config;
    Require(MimeDefang().GenDisclaimerConfigs(config) == 0, "configuration");
    Require(config["disclaimer_list"].size() == kDomains * state.range(0), "every disclaimer");
  }
}
BENCHMARK(Generate)->Arg(kFew)->Arg(kMost)->Unit(benchmark::kMillisecond)->UseRealTime();

Json::Value Parse(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Require(reader->parse(text.data(), text.data() + text.size(), &value, nullptr), "parse");
  return value;
}

void GenerateFloor(benchmark::State& state) {
  SetAll(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    Json::Value config(Json::arrayValue);
    for (int domain_idx = 1; domain_idx <= kDomains; ++domain_idx) {
      std::string text;
      mailConfGet("mimedefang_disclaimers-" + std::to_string(domain_idx), text);
      std::ifstream in(MDOMAIN::PATHS::DisclaimerContent(domain_idx));
      const std::string texts{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
      config.append(Parse(text));
      config.append(Parse(texts));
    }
    benchmark::DoNotOptimize(config);
  }
}
BENCHMARK(GenerateFloor)->Arg(kMost)->Unit(benchmark::kMillisecond)->UseRealTime();

// Nothing is enabled: every list is looked through.
void RunKey(benchmark::State& state) {
  Json::Value list = Disclaimers(kMost);
  for (Json::Value& disclaimer : list) {
    disclaimer["enabled"] = false;
  }
  for (int domain_idx = 1; domain_idx <= kDomains; ++domain_idx) {
    Require(MimeDefang().SetDisclaimerList(domain_idx, list) == 0, "disclaimers");
  }
  for (auto _ : state) {
    Require(MimeDefang().UpdateRunKey() == 0, "run key");
  }
}
BENCHMARK(RunKey)->Unit(benchmark::kMillisecond)->UseRealTime();

// Prints the usual table and keeps the times.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      times_[run.run_name.function_name + "/" + run.run_name.args] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Ratio(const std::string& of, const std::string& to) const {
    const auto one = times_.find(of);
    const auto other = times_.find(to);
    return one == times_.end() || other == times_.end() ? 0 : one->second / other->second;
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  std::string root = (std::filesystem::temp_directory_path() / "disclaimer-bench.XXXXXX").string();
  Require(mkdtemp(root.data()) != nullptr, "mkdtemp");
  setenv("MDOMAIN_ROOT", root.c_str(), 1);
  WriteAccounts(root);
  MakeDomains();
  benchmark::Initialize(&argc, argv);
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const std::string most = "Generate/" + std::to_string(kMost);
  const double growth = reporter.Ratio(most, "Generate/" + std::to_string(kFew));
  std::printf("four times the rules: %.2f times the time (at most %.0f)\nover the floor: %.2f\n",
              growth, kGrowthLimit, reporter.Ratio(most, "GenerateFloor/" + std::to_string(kMost)));
  std::filesystem::remove_all(root);
  return growth <= kGrowthLimit ? 0 : 1;
}
