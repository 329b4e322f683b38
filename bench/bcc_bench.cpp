// 100,000 blind-copy rules: importing them from a file, and making the lines of their map. Beside
// each the floor: the same rows or lines by the bare means of SQLite and the C library. The last
// lines give the ratios; the map's must be at most 3, else the program fails.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "platform/include/alias.h"
#include "platform/include/domain_setting.h"
#include "platform/include/mail_conf.h"

namespace {

constexpr int kRules = 100000;
constexpr int kDomains = 20;
constexpr double kMapLimit = 3;

std::string Root() {
  return std::getenv("MDOMAIN_ROOT");
}

void Require(bool done, const char* what) {
  if (!done) {
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
  }
}

std::string Domain(int domain_id) {
  return "domain" + std::to_string(domain_id) + ".example";
}

// Half of the names are addresses of the domain and half are accounts; one destination in ten is an
// alias entry.
std::string Line(int domain_id, int number) {
  const std::string name = "user.name" + std::to_string(number);
  return name + (number % 2 == 0 ? "@" + Domain(domain_id) : "") +
         (number % 10 == 0 ? " archive" : " copy" + std::to_string(number) + "@archive.example");
}

void WriteFiles() {
  for (int domain_id = 1; domain_id <= kDomains; ++domain_id) {
    std::ofstream out(Root() + "/" + std::to_string(domain_id));
    for (int i = 0; i < kRules / kDomains; ++i) {
      out << Line(domain_id, i) << "\n";
    }
  }
  std::ofstream whole(Root() + "/whole");
  for (int i = 0; i < kRules; ++i) {
    whole << Line(1, i) << "\n";
  }
}

void Publish() {
  std::string domains;
  Alias aliases(MDOMAIN::PATHS::AliasDb());
  Require(aliases.load() == 0, "alias table");
  for (int domain_id = 1; domain_id <= kDomains; ++domain_id) {
    domains += (domain_id == 1 ? "" : ", ") + std::to_string(domain_id) + "/" + Domain(domain_id);
    Require(aliases.set({"archive", domain_id, {}}) == 0, "alias entry");
  }
  Require(mailConfSet("virtual_multiple_domain", domains, true, 0) == 0, "domains");
}

sqlite3* Open(const std::string& path) {
  sqlite3* db = nullptr;
  Require(sqlite3_open(path.c_str(), &db) == SQLITE_OK, "open");
  return db;
}

void Exec(sqlite3* db, const std::string& sql) {
  Require(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql.c_str());
}

// One file of 100,000 lines into one domain, one transaction.
void Import(benchmark::State& state) {
  BCC* bcc = BCC::getInstance();
  for (auto _ : state) {
    state.PauseTiming();
    Require(bcc->deleteAllBCC(99) == 0, "clean up");
    state.ResumeTiming();
    Require(bcc->importBCC(99, BCC_SENDER, Root() + "/whole") == 0, "import");
  }
  Require(bcc->deleteAllBCC(99) == 0, "clean up");
}
BENCHMARK(Import)->Unit(benchmark::kMillisecond)->UseRealTime();

void ImportFloor(benchmark::State& state) {
  const std::string path = Root() + "/floor.db";
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(path);
    sqlite3* db = Open(path);
    Exec(db, MultipleDomain::SettingsSchema());
    state.ResumeTiming();
    std::ifstream in(Root() + "/whole");
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO bcc_table VALUES(?,1,?,99)", -1, &insert,
                       nullptr);
    Exec(db, "BEGIN IMMEDIATE");
    std::string name;
    std::string bcc_to;
    while (in >> name >> bcc_to) {
      sqlite3_bind_text(insert, 1, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 2, bcc_to.data(), static_cast<int>(bcc_to.size()), SQLITE_STATIC);
      Require(sqlite3_step(insert) == SQLITE_DONE, "insert");
      sqlite3_reset(insert);
    }
    Exec(db, "COMMIT");
    state.PauseTiming();
    sqlite3_finalize(insert);
    sqlite3_close(db);
    state.ResumeTiming();
  }
}
BENCHMARK(ImportFloor)->Unit(benchmark::kMillisecond)->UseRealTime();

void Map(benchmark::State& state) {
  for (auto _ : state) {
    Require(BCC::getInstance()->GenerateSystemBCCConfig(BCC_RECIPIENT, Root() + "/map") == 0,
            "map");
  }
}
BENCHMARK(Map)->Unit(benchmark::kMillisecond)->UseRealTime();

// Looks nothing up and checks nothing: every domain has one name, every destination its final form.
void MapFloor(benchmark::State& state) {
  sqlite3* db = Open(MDOMAIN::PATHS::SettingsDb());
  for (auto _ : state) {
    FILE* out = std::fopen((Root() + "/floor").c_str(), "w");
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT CASE WHEN instr(name, '@') THEN '' ELSE 'domain' || domain_id || "
                       "'.example/' END, name, bcc_to, CASE WHEN instr(bcc_to, '@') THEN '' ELSE "
                       "'@domain' || domain_id || '.example' END "
                       "FROM bcc_table WHERE type IN (0, 2) ORDER BY name",
                       -1, &select, nullptr);
    while (sqlite3_step(select) == SQLITE_ROW) {
      std::fprintf(out, "%s%s %s%s\n", sqlite3_column_text(select, 0),
                   sqlite3_column_text(select, 1), sqlite3_column_text(select, 2),
                   sqlite3_column_text(select, 3));
    }
    sqlite3_finalize(select);
    std::fclose(out);
  }
  sqlite3_close(db);
}
BENCHMARK(MapFloor)->Unit(benchmark::kMillisecond)->UseRealTime();

// Prints the usual table and keeps the best times: other work on the machine makes the others
// slower.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const double time = run.GetAdjustedRealTime();
      const auto place = times_.emplace(run.run_name.function_name, time).first;
      if (run.run_type == Run::RT_Iteration && time < place->second) {
        place->second = time;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Ratio(const char* of) const {
    const auto mine = times_.find(of);
    const auto floor = times_.find(std::string(of) + "Floor");
    return mine == times_.end() || floor == times_.end() ? 0 : mine->second / floor->second;
  }

 private:
  std::map<std::string, double> times_;
};

std::string SortedLines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  std::string root = (std::filesystem::temp_directory_path() / "bcc-bench.XXXXXX").string();
  Require(mkdtemp(root.data()) != nullptr, "mkdtemp");
  setenv("MDOMAIN_ROOT", root.c_str(), 1);
  std::filesystem::create_directories(MDOMAIN::PATHS::EtcDir());
  WriteFiles();
  Publish();
  BCC* bcc = BCC::getInstance();
  Require(bcc != nullptr, "settings database");
  for (int domain_id = 1; domain_id <= kDomains; ++domain_id) {
    Require(bcc->importBCC(domain_id, BCC_RECIPIENT, root + "/" + std::to_string(domain_id)) == 0,
            "import");
  }
  benchmark::Initialize(&argc, argv);
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const bool same =
      reporter.Ratio("Map") == 0 || SortedLines(root + "/map") == SortedLines(root + "/floor");
  std::printf("import / floor: %.2f\nmap / floor: %.2f (at most %.0f)\nsame lines: %s\n",
              reporter.Ratio("Import"), reporter.Ratio("Map"), kMapLimit, same ? "yes" : "no");
  std::filesystem::remove_all(root);
  return same && reporter.Ratio("Map") <= kMapLimit ? 0 : 1;
}
