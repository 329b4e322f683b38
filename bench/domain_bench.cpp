// The main operations at 1,000, 10,000 and 100,000 users with 5 % as many groups and 20 domains,
// each beside its floor: the same rows through bare prepared statements in one transaction. Both
// are taken in turn, so that a busy machine slows both.
//
// At the end: what ten times the users cost. More than twelve times the time fails the run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>

#include "bench/company.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/updater.h"
#include "lib-domain/db/handler.h"

namespace {

using bench::Bare;
using bench::Company;
namespace API = MDOMAIN::API;
namespace DB = MDOMAIN::DB;
namespace RECORD = MDOMAIN::RECORD;

constexpr double kMaxGrowth = 12;

// The filled root of the size that is being measured.
void UseFilledCompany(int users) {
  static int present = 0;
  static std::unique_ptr<Company> company;
  if (present != users) {
    company.reset();
    company = users == 0 ? nullptr : std::make_unique<Company>(users);
    present = users;
    if (users != 0) {
      Company::Fill();
    }
  }
}

// Time on the clock and time on the processor, in seconds. On a busy machine the first one depends
// on other work; the second one tells how the work grows.
struct Seconds {
  double clock = 0;
  double processor = 0;
  Seconds& operator+=(const Seconds& other) {
    clock += other.clock;
    processor += other.processor;
    return *this;
  }
};

Seconds SecondsOf(const std::function<void()>& work) {
  const auto clock = std::chrono::steady_clock::now();
  const std::clock_t processor = std::clock();
  work();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - clock).count(),
          static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC};
}

void Report(benchmark::State& state, const Seconds& operation, const Seconds& floor) {
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["cpu_ms"] = operation.processor * 1e3 / iterations;
  state.counters["floor_cpu_ms"] = floor.processor * 1e3 / iterations;
  state.counters["floor_ms"] = floor.clock * 1e3 / iterations;
  state.counters["ratio"] = operation.clock / floor.clock;
  state.counters["cpu_ratio"] = operation.processor / floor.processor;
}

void Must(bool done) {
  if (!done) {
    std::fprintf(stderr, "the operation failed\n");
    std::exit(1);
  }
}

// `undo` takes back what either of them did, outside the measured time.
void Compare(
    benchmark::State& state, const std::function<void()>& operation,
    const std::function<void()>& floor, const std::function<void()>& undo = [] {}) {
  Seconds all_operations;
  Seconds all_floors;
  for (auto _ : state) {
    const Seconds seconds = SecondsOf(operation);
    state.SetIterationTime(seconds.clock);
    all_operations += seconds;
    undo();
    all_floors += SecondsOf(floor);
    undo();
  }
  Report(state, all_operations, all_floors);
}

constexpr const char* kTables[] = {"user_table",
                                   "group_table",
                                   "group_to_user_table",
                                   "domain_table",
                                   "domain_user_role_table",
                                   "domain_user_alias_table",
                                   "domain_group_role_table"};

// Every table's rows, of the database that the library filled.
std::map<std::string, Bare::Rows> ReadAll(Bare& bare) {
  std::map<std::string, Bare::Rows> rows;
  bare.Run("BEGIN");
  for (const char* table : kTables) {
    rows[table] = bare.Select(std::string("SELECT * FROM ") + table);
  }
  bare.Run("COMMIT");
  return rows;
}

void WriteAll(const std::map<std::string, Bare::Rows>& rows, const Bare::Rows& schema,
              const std::string& path) {
  Bare bare(path);
  bare.Run("BEGIN");
  for (const Bare::Row& statement : schema) {
    bare.Run(statement[0]);
  }
  for (const char* table :
       {"user_table", "group_table", "domain_table", "group_to_user_table",
        "domain_user_role_table", "domain_user_alias_table", "domain_group_role_table"}) {
    const Bare::Rows& cells = rows.at(table);
    std::string marks = "?";
    for (size_t i = 1; !cells.empty() && i < cells[0].size(); ++i) {
      marks += ",?";
    }
    if (!cells.empty()) {
      bare.ForEach(std::string("INSERT INTO ") + table + " VALUES(" + marks + ")", cells);
    }
  }
  bare.Run("COMMIT");
}

void FirstRefresh(benchmark::State& state) {
  UseFilledCompany(0);
  Seconds all_operations;
  Seconds all_floors;
  for (auto _ : state) {
    const Company company(static_cast<int>(state.range(0)));
    Company::CreateDomains();
    const Seconds seconds = SecondsOf([] { Must(API::Updater().Refresh()); });
    state.SetIterationTime(seconds.clock);
    all_operations += seconds;
    Bare bare(Company::DatabasePath());
    const auto rows = ReadAll(bare);
    const Bare::Rows schema = bare.Select(
        "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL AND type IN ('table','index')");
    all_floors += SecondsOf([&] { WriteAll(rows, schema, company.Root() + "/floor.db"); });
  }
  Report(state, all_operations, all_floors);
}

void RefreshOfNothing(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  // The floor, too, reads every row to find that none changed; memberships are written in any case.
  Compare(
      state, [] { Must(API::Updater().Refresh()); },
      [&] {
        const auto rows = ReadAll(bare);
        bare.Run("BEGIN IMMEDIATE; DELETE FROM group_to_user_table");
        bare.ForEach("INSERT INTO group_to_user_table VALUES(?,?)", rows.at("group_to_user_table"));
        bare.Run("COMMIT");
      });
}

void PageOfUsers(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  DB::DomainDBFilter filter("domain_user_view");
  filter.SetDomainIdxs({1});
  filter.SetSortBy("user_name");
  filter.SetSortDirection("ASC");
  filter.SetOffset(static_cast<int>(state.range(0)) / 2);
  Compare(
      state,
      [&] {
        std::vector<RECORD::DomainUser> users;
        Must(API::DomainUser().List(filter, users) && users.size() == 100);
      },
      [&] {
        bare.Run("BEGIN");
        const Bare::Rows uids = bare.Select(
            "SELECT DISTINCT uid FROM domain_user_view WHERE role IS NOT NULL AND domain_idx = 1 "
            "ORDER BY is_duplicated DESC, user_name ASC LIMIT 100 OFFSET " +
            std::to_string(state.range(0) / 2));
        std::string list;
        for (const Bare::Row& uid : uids) {
          list += (list.empty() ? "" : ",") + uid[0];
        }
        Must(bare.Select("SELECT * FROM domain_user_view WHERE domain_idx = 1 AND uid IN (" + list +
                         ") ORDER BY is_duplicated DESC, user_name ASC")
                 .size() == 100);
        bare.Run("COMMIT");
      });
}

void ListDomains(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  Compare(
      state,
      [] {
        DB::DomainDBFilter filter;
        std::vector<RECORD::Domain> domains;
        Must(API::Domain().List(filter, domains) && domains.size() == bench::kDomains);
      },
      [&] {
        bare.Run("BEGIN");
        Must(bare.Select("SELECT * FROM domain_view").size() == bench::kDomains);
        bare.Select(
            "SELECT domain_idx, count(distinct uid) FROM domain_user_view WHERE role IS "
            "NOT NULL GROUP BY domain_idx");
        bare.Run("COMMIT");
      });
}

void MemberStatus(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  Compare(
      state,
      [] {
        std::vector<std::tuple<unsigned int, std::string, std::string>> members;
        Must(API::DomainGroup().CheckMemberStatus(1, bench::kFirstGid, members) &&
             members.size() == bench::kBigGroup);
      },
      [&] {
        bare.Run("BEGIN");
        Must(bare.Select("SELECT uid, user_name, EXISTS (SELECT 1 FROM domain_user_alias_table AS "
                         "alias WHERE domain_idx = 1 AND alias.uid = member.uid) FROM "
                         "group_to_user_table AS member JOIN user_table USING (uid) WHERE gid = " +
                         std::to_string(bench::kFirstGid))
                 .size() == bench::kBigGroup);
        bare.Run("COMMIT");
      });
}

void AddOneUser(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  const int domain_idx = bench::kDomains;  // nobody is in it
  const auto empty = [&] {
    bare.Run(
        "DELETE FROM domain_user_role_table WHERE domain_idx = " + std::to_string(domain_idx) +
        "; DELETE FROM domain_user_alias_table WHERE domain_idx = " + std::to_string(domain_idx));
  };
  Compare(
      state,
      [&] {
        std::vector<RECORD::DomainUserAlias> aliases = {
            {domain_idx, bench::kFirstUid, "alias", false}};
        Must(API::DomainUser().AddMembers(domain_idx, {"user0"}, {}, aliases));
      },
      [&] {
        const std::string key = std::to_string(domain_idx);
        const std::string uid = std::to_string(bench::kFirstUid);
        bare.Run("BEGIN IMMEDIATE");
        bare.ForEach("INSERT INTO domain_user_role_table VALUES(?,?,?,?)",
                     {{key, uid, "normal", "1"}});
        bare.ForEach("INSERT INTO domain_user_alias_table VALUES(?,?,?,?)",
                     {{key, uid, "alias", "0"}});
        bare.Run("COMMIT");
      },
      empty);
}

void Trigger(benchmark::State& state) {
  UseFilledCompany(static_cast<int>(state.range(0)));
  Bare bare(Company::DatabasePath());
  Compare(
      state, [] { Must(API::Updater().Trigger()); },
      [&] {
        bare.Run("BEGIN");
        bare.Select("SELECT domain_idx, domain_name FROM domain_table");
        bare.Select("SELECT * FROM primary_domain_table");
        bare.Select("SELECT * FROM domain_to_additional_domain_table");
        bare.Run("COMMIT");
      });
}

constexpr int kSizes[] = {1000, 10000, 100000};

void Sizes(benchmark::internal::Benchmark* one) {
  one->Unit(benchmark::kMillisecond)->UseManualTime();
  for (const int size : kSizes) {
    one->Arg(size);
  }
}
void SizesOnce(benchmark::internal::Benchmark* one) {
  Sizes(one);
  one->Iterations(1);
}

BENCHMARK(FirstRefresh)->Apply(SizesOnce);

// All operations of one size before the next, so that a root is filled once.
void RegisterBySize() {
  const std::pair<const char*, void (*)(benchmark::State&)> operations[] = {
      {"RefreshOfNothing", RefreshOfNothing},
      {"PageOfUsers", PageOfUsers},
      {"ListDomains", ListDomains},
      {"MemberStatus", MemberStatus},
      {"AddOneUser", AddOneUser},
      {"Trigger", Trigger},
  };
  for (const int size : kSizes) {
    for (const auto& [name, operation] : operations) {
      benchmark::RegisterBenchmark(name, operation)
          ->Unit(benchmark::kMillisecond)
          ->UseManualTime()
          ->MinTime(0.3)
          ->Arg(size);
    }
  }
}

// Prints as usual and keeps the times by operation and size.
class Growth : public benchmark::ConsoleReporter {
 public:
  Growth() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const auto time = run.counters.find("cpu_ms");
      if (time != run.counters.end()) {
        times_[run.run_name.function_name][std::stoi(run.run_name.args)] = time->second.value;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  // True when no operation grew too much.
  bool Print() const {
    bool all_fit = true;
    std::printf("\nten times the users, times the processor time (at most %.0f):\n", kMaxGrowth);
    for (const auto& [name, times] : times_) {
      for (auto one = times.begin(); one != times.end(); ++one) {
        const auto ten = times.find(one->first * 10);
        if (ten != times.end()) {
          const double growth = ten->second / one->second;
          all_fit = all_fit && growth <= kMaxGrowth;
          std::printf("  %-18s %6d -> %6d  %5.1f%s\n", name.c_str(), one->first, ten->first, growth,
                      growth <= kMaxGrowth ? "" : "  TOO MUCH");
        }
      }
    }
    return all_fit;
  }

 private:
  std::map<std::string, std::map<int, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
  RegisterBySize();
  benchmark::Initialize(&argc, argv);
  Growth growth;
  benchmark::RunSpecifiedBenchmarks(&growth);
  UseFilledCompany(0);
  return growth.Print() ? 0 : 1;
}
