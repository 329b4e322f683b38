// Publishing 1,000 domains to the key store: everything new, nothing new, one domain changed, all
// gone; in the embedded store alone and, where redis-server is installed, with a copy of it over a
// unix socket. "trips" counts messages to the server, which must not grow with the domains: more
// than 5, and the program fails. The last ones publish 1,000 files that did not change, and domain
// databases as large as 10,000 and 100,000 users make them.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"
#include "platform/include/nodes.h"

namespace {

long trips = 0;

}  // namespace

// The platform's messages to the server pass here.
extern "C" ssize_t send(int socket, const void* bytes, size_t size, int flags) {
  using Real = ssize_t (*)(int, const void*, size_t, int);
  static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "send"));
  ++trips;
  return real(socket, bytes, size, flags);
}

namespace {

namespace fs = std::filesystem;
using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;

constexpr int kDomains = 1000;
constexpr long kMostTrips = 5;

using Entries = std::vector<std::pair<std::string, std::string>>;

void Require(bool done, const char* what) {
  if (!done) {
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
  }
}

// A root and, below it, a server of its own.
class Stage {
 public:
  Stage() {
    std::string name = (fs::temp_directory_path() / "keystore-bench.XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr, "mkdtemp");
    root_ = name;
    setenv("MDOMAIN_ROOT", root_.c_str(), 1);
    fs::create_directories(root_ + "/etc/mailserver-domain");
    fs::create_directories(Etc() + "/disclaimer_content");
  }
  ~Stage() {
    if (server_ > 0) {
      kill(server_, SIGKILL);
      waitpid(server_, nullptr, 0);
    }
    fs::remove_all(root_);
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // Where published files lie.
  std::string Etc() const { return root_ + "/var/packages/Postara-Server/etc"; }

  bool StartServer() {
    const std::string socket = root_ + "/redis.sock";
    server_ = fork();
    if (server_ == 0) {
      execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket.c_str(),
             "--save", "", "--logfile", "/dev/null", nullptr);
      _exit(1);
    }
    for (int i = 0; i < 200 && !fs::exists(socket); ++i) {
      usleep(10000);
    }
    return fs::exists(socket);
  }

  // The machine manages what it shares.
  void Use(bool redis) const {
    std::ofstream(root_ + "/etc/mailserver-domain/host.ini")
        << "[keystore]\n"
        << (redis ? "backend = redis\nsocket = " + root_ + "/redis.sock\n" : "");
    korvmailserver::StoreStanding seen;
    if (redis) {
      Require(korvmailserver::ReadStoreStanding(seen), "ReadStoreStanding");
      Require(seen.is_own || korvmailserver::BeginManaging(seen), "BeginManaging");
    }
  }

 private:
  std::string root_;
  pid_t server_ = 0;
};

Entries Publication(int generation, int changed) {
  Entries entries;
  entries.reserve(kDomains);
  for (int i = 0; i < kDomains; ++i) {
    entries.emplace_back(
        "additional_domain-" + std::to_string(i),
        "mail.example, name" + std::to_string(i < changed ? generation : 0) + ".example");
  }
  return entries;
}

// Each iteration publishes all domains, `changed` of them with a new value.
void Publish(benchmark::State& state, const Stage* stage, bool redis, int changed) {
  stage->Use(redis);
  int generation = 0;
  Require(mailConfSetMany(Publication(0, 0)) == 0, "mailConfSetMany");
  long most = 0;
  for (auto step : state) {
    state.PauseTiming();
    const Entries entries = Publication(++generation, changed);
    trips = 0;
    state.ResumeTiming();
    Require(mailConfSetMany(entries) == 0, "mailConfSetMany");
    most = std::max(most, trips);
  }
  state.counters["trips"] = static_cast<double>(most);
  Require(most <= kMostTrips, "few round trips");
}

// What is left of 1,000 domains that were deleted.
void RemoveStale(benchmark::State& state, const Stage* stage, bool redis) {
  stage->Use(redis);
  long most = 0;
  std::vector<std::string> keys;
  for (auto step : state) {
    state.PauseTiming();
    Require(mailConfSetMany(Publication(0, 0)) == 0, "mailConfSetMany");
    Require(PostaraServerBACKENDWrap::ls("virtual_domain", keys), "ls");
    trips = 0;
    state.ResumeTiming();
    Require(PostaraServerBACKENDWrap::removeKeys(keys), "removeKeys");
    most = std::max(most, trips);
  }
  state.counters["trips"] = static_cast<double>(most);
  Require(most <= kMostTrips, "few round trips");
}

// The texts of 1,000 domains' disclaimers, published before.
void PublishFiles(benchmark::State& state, const Stage* stage) {
  stage->Use(true);
  Entries files;
  for (int i = 0; i < kDomains; ++i) {
    const std::string number = std::to_string(i);
    files.emplace_back("sync_disclaimer_content_file-" + number,
                       stage->Etc() + "/disclaimer_content/domain-" + number);
    std::ofstream(files.back().second) << std::string(2000, 'x');
  }
  Require(korvmailserver::PublishChangedFiles(files), "PublishChangedFiles");
  long most = 0;
  for (auto step : state) {
    trips = 0;
    Require(korvmailserver::PublishChangedFiles(files), "PublishChangedFiles");
    most = std::max(most, trips);
  }
  state.counters["trips"] = static_cast<double>(most);
  Require(most <= kMostTrips, "few round trips");
}

// A database of that many rows of 4 kB.
void PublishFile(benchmark::State& state, const Stage* stage, int rows, bool change) {
  stage->Use(true);
  const std::string path = stage->Etc() + "/local_DOMAIN.db";
  sqlite3* opened = nullptr;
  Require(sqlite3_open(path.c_str(), &opened) == SQLITE_OK, "open");
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(opened, sqlite3_close);
  const std::string fill =
      "CREATE TABLE IF NOT EXISTS t(x); DELETE FROM t;"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(rows) + ") INSERT INTO t SELECT randomblob(4000) FROM n; VACUUM";
  sqlite3_exec(opened, fill.c_str(), nullptr, nullptr, nullptr);
  Require(PostaraServerBACKENDWrap::setFile("mailserver_domain_db", path), "setFile");
  for (auto step : state) {
    if (change) {
      state.PauseTiming();
      sqlite3_exec(opened, "UPDATE t SET x = randomblob(4000) WHERE rowid = 7", nullptr, nullptr,
                   nullptr);
      state.ResumeTiming();
    }
    Require(PostaraServerBACKENDWrap::setFile("mailserver_domain_db", path), "setFile");
  }
}

void Register(const char* name, const Stage* stage, bool redis) {
  const struct {
    const char* name;
    int changed;
  } cases[] = {{"all new", kDomains}, {"one new", 1}, {"nothing new", 0}};
  for (const auto& one : cases) {
    benchmark::RegisterBenchmark((std::string(name) + "/1000 domains/" + one.name).c_str(), Publish,
                                 stage, redis, one.changed)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark((std::string(name) + "/1000 domains/all gone").c_str(), RemoveStale,
                               stage, redis)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Stage stage;
  Register("embedded", &stage, false);
  if (stage.StartServer()) {
    Register("redis", &stage, true);
    benchmark::RegisterBenchmark("redis/1000 files/unchanged", PublishFiles, &stage)
        ->Unit(benchmark::kMillisecond);
    for (const int megabytes : {4, 38}) {  // as with 10,000 and 100,000 users
      const std::string name = "redis/" + std::to_string(megabytes) + " MB database/";
      for (const bool change : {true, false}) {
        benchmark::RegisterBenchmark((name + (change ? "changed" : "unchanged")).c_str(),
                                     PublishFile, &stage, megabytes * 250, change)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  } else {
    std::puts("redis-server is not installed: its part is left out");
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
