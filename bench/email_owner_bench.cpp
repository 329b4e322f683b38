// The e-mail owner registry beside the floor: the same rows and queries through bare prepared
// statements. Each measurement takes both in turn, so that a busy machine slows both; "ratio" is
// the registry's time divided by the floor's.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lib-domain/api/email_owner.h"

namespace {

namespace fs = std::filesystem;
using MDOMAIN::API::EmailOwner;
using MDOMAIN::RECORD::DomainPart;
using MDOMAIN::RECORD::LocalPart;

constexpr int kDomains = 1000;
constexpr int kLookUpsPerRound = 1000;

std::string LocalName(int i) {
  return "first.last" + std::to_string(i);
}
std::string DomainName(int i) {
  return "domain" + std::to_string(i) + ".example";
}
int DomainOf(int i) {
  return i % kDomains;
}

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "mdomain-bench.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      std::abort();
    }
    path_ = name;
    setenv("MDOMAIN_ROOT", path_.c_str(), 1);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

const TemporaryFolder& Folder() {
  static const TemporaryFolder folder;
  return folder;
}

std::vector<LocalPart> LocalParts(int count) {
  std::vector<LocalPart> parts;
  for (int i = 0; i < count; ++i) {
    parts.emplace_back(LocalName(i), DomainOf(i), "user" + std::to_string(i));
  }
  return parts;
}

// A registry of `count` addresses, made once.
const std::string& Registry(int count) {
  static std::map<int, std::string> files;
  std::string& file = files[count];
  if (file.empty()) {
    file = Folder().File("registry-" + std::to_string(count) + ".db");
    EmailOwner registry(file);
    std::vector<DomainPart> domains;
    for (int i = 0; i < kDomains; ++i) {
      domains.emplace_back(DomainName(i), i);
    }
    if (!registry.CreateDomainPart(domains) || !registry.CreateLocalPart(LocalParts(count))) {
      std::abort();
    }
  }
  return file;
}

// One statement on a connection of its own, prepared once.
class Prepared {
 public:
  Prepared(const std::string& file, const char* sql) {
    if (sqlite3_open(file.c_str(), &db_) != SQLITE_OK ||
        sqlite3_prepare_v2(db_, sql, -1, &statement_, nullptr) != SQLITE_OK) {
      std::abort();
    }
  }
  ~Prepared() {
    sqlite3_finalize(statement_);
    sqlite3_close(db_);
  }
  Prepared(const Prepared&) = delete;
  Prepared& operator=(const Prepared&) = delete;

  void Bind(int parameter, const std::string& text) {
    sqlite3_bind_text(statement_, parameter, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
  }
  void Bind(int parameter, int value) { sqlite3_bind_int(statement_, parameter, value); }
  std::string Step() {
    std::string cell;
    if (sqlite3_step(statement_) == SQLITE_ROW) {
      cell = reinterpret_cast<const char*>(sqlite3_column_text(statement_, 0));
    }
    sqlite3_reset(statement_);
    return cell;
  }
  void Run(const char* sql) { sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* statement_ = nullptr;
};

template <typename Work>
double SecondsOf(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Report(benchmark::State& state, double subject, double floor, int per_iteration) {
  state.SetItemsProcessed(state.iterations() * per_iteration);
  state.counters["floor_us_each"] =
      floor / static_cast<double>(state.iterations()) / per_iteration * 1e6;
  state.counters["us_each"] =
      subject / static_cast<double>(state.iterations()) / per_iteration * 1e6;
  state.counters["ratio"] = subject / floor;
}

// A look-up through the facade; the floor finds the same row by the tables' own primary keys.
void BM_LookUp(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  EmailOwner registry(Registry(count));
  Prepared bare(Registry(count),
                "SELECT user_name FROM local_part WHERE local_part = ?1 AND domain_idx = (SELECT "
                "domain_idx FROM domain_part WHERE domain_name = ?2 LIMIT 1)");
  std::mt19937 random(1);
  double subject = 0;
  double floor = 0;
  for (auto _ : state) {
    std::vector<int> wanted(kLookUpsPerRound);
    std::vector<std::string> addresses;
    for (int& i : wanted) {
      i = static_cast<int>(random() % static_cast<unsigned>(count));
      addresses.push_back(LocalName(i) + "@" + DomainName(DomainOf(i)));
    }
    std::string owner;
    const double seconds = SecondsOf([&] {
      for (const std::string& address : addresses) {
        if (!registry.GetOwner(address, owner) || owner.empty()) {
          std::abort();
        }
      }
    });
    floor += SecondsOf([&] {
      for (const std::string& address : addresses) {
        const size_t at = address.find('@');
        const std::string local = address.substr(0, at);
        const std::string domain = address.substr(at + 1);
        bare.Bind(1, local);
        bare.Bind(2, domain);
        benchmark::DoNotOptimize(bare.Step());
      }
    });
    subject += seconds;
    state.SetIterationTime(seconds);
  }
  Report(state, subject, floor, kLookUpsPerRound);
}
BENCHMARK(BM_LookUp)->Arg(10000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);

// All rows at once into a new registry; the floor puts the same rows into an equal file.
void BM_BulkInsert(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const std::vector<LocalPart> parts = LocalParts(count);
  double subject = 0;
  double floor = 0;
  for (auto _ : state) {
    for (const char* name : {"subject.db", "floor.db"}) {
      fs::remove(Folder().File(name));
    }
    { EmailOwner same_schema(Folder().File("floor.db")); }
    EmailOwner registry(Folder().File("subject.db"));
    const double seconds = SecondsOf([&] {
      if (!registry.CreateLocalPart(parts)) {
        std::abort();
      }
    });
    floor += SecondsOf([&] {
      Prepared bare(Folder().File("floor.db"), "INSERT OR IGNORE INTO local_part VALUES(?1,?2,?3)");
      bare.Run("BEGIN IMMEDIATE");
      for (const LocalPart& part : parts) {
        const std::string local = part.GetLocalPart();
        const std::string user = part.GetUserName();
        bare.Bind(1, local);
        bare.Bind(2, part.GetDomainIdx());
        bare.Bind(3, user);
        bare.Step();
      }
      bare.Run("COMMIT");
    });
    subject += seconds;
    state.SetIterationTime(seconds);
  }
  Report(state, subject, floor, count);
}
BENCHMARK(BM_BulkInsert)->Arg(10000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
