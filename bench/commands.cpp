// Whole runs of mdomain: their processor time, their memory, and what they send to a key store that
// machines share.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "bench/operations.h"
#include "lib-domain/db/handler.h"

namespace bench {

namespace fs = std::filesystem;

namespace {

// A command is some milliseconds, of which the smallest of few runs tells little.
constexpr int kRuns = 50;
constexpr double kMostMsOfOne = 30;
constexpr double kMostMsUnchanged = 50;
constexpr double kMostMsOfNothing = 15000;
constexpr double kMostMegabytes = 1500;
constexpr double kMostMegabytesOfListing = 100;
constexpr double kMostMegabytesSent = 1;

// A server below a root, with no port and no file.
class RedisServer {
 public:
  explicit RedisServer(const std::string& root) : socket_(root + "/redis.sock") {
    pid_ = fork();
    if (pid_ == 0) {
      execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket_.c_str(),
             "--save", "", "--logfile", "/dev/null", nullptr);
      _exit(1);
    }
    for (int i = 0; i < 500 && !fs::exists(socket_); ++i) {
      usleep(10000);
    }
  }
  ~RedisServer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  bool IsThere() const { return fs::exists(socket_); }
  const std::string& Socket() const { return socket_; }
  // Everything that went in and out so far.
  double Megabytes() const {
    const std::string command =
        "redis-cli -s '" + socket_ +
        "' info stats | sed -n 's/^total_net_\\(in\\|out\\)put_bytes:\\([0-9]*\\).*/\\2/p'";
    const std::unique_ptr<FILE, int (*)(FILE*)> answer(popen(command.c_str(), "r"), pclose);
    double in = 0;
    double out = 0;
    Must(answer && std::fscanf(answer.get(), "%lf %lf", &in, &out) == 2, "redis-cli info stats");
    return (in + out) / 1e6;
  }

 private:
  std::string socket_;
  pid_t pid_ = 0;
};

void UseServer(const std::string& root, const std::string& socket) {
  fs::create_directories(root + "/etc/mailserver-domain");
  std::ofstream(root + "/etc/mailserver-domain/host.ini")
      << "[keystore]\nbackend = redis\nsocket = " << socket
      << "\nnode = " << fs::path(root).filename().string() << "\n";
}

struct Command {
  std::string name;  // empty: only leads on to the next
  std::vector<std::string> words;
};

// Each command leads on to the next, the last one back.
struct Cycle {
  std::vector<std::string> before;  // the command that it begins with
  std::vector<Command> commands;
  double most_ms;
};

std::vector<Cycle> CyclesOf(const Stage& stage) {
  const std::string idx = std::to_string(stage.company.Domains());
  const std::string name = "new.example";
  const std::string build = "mdomain owner build, one alias changed";
  const std::vector<std::string> add = {"user", "add", idx, "user0"};
  const std::vector<std::string> remove = {"--yes", "user", "remove", idx, "user0"};
  return {{{},
           {
               {"mdomain user add", add},
               {"mdomain user set", {"user", "set", idx, "user0", "--add-alias", "other"}},
               {"mdomain user remove", remove},
               {"mdomain domain create", {"domain", "create", name, "--no-auto-add"}},
               {"mdomain domain names add", {"domain", "names", "add", name, "a.example"}},
               {"mdomain domain names set", {"domain", "names", "set", name, "b.example"}},
               {"mdomain domain names remove", {"domain", "names", "remove", name, "b.example"}},
               {"mdomain domain set", {"domain", "set", name, "--description", "changed"}},
               {"mdomain domain delete", {"--yes", "domain", "delete", name}},
           },
           kMostMsOfOne},
          {{"owner", "build"},
           {{"", add}, {build, {"owner", "build"}}, {"", remove}, {build, {"owner", "build"}}},
           kMostMsOfOne},
          {{"refresh"}, {{"mdomain refresh, provably unchanged", {"refresh"}}}, kMostMsUnchanged}};
}

// What took long is not run again, nor what leads to it.
void RunOnce(const Stage& stage, const Cycle& cycle, std::map<std::string, double>& least) {
  if (std::any_of(least.begin(), least.end(),
                  [](const auto& command) { return command.second > kOnceMs; })) {
    return;
  }
  for (const Command& command : cycle.commands) {
    const double ms = stage.Run(command.words).ms;
    if (!command.name.empty()) {
      KeepLeast(least[command.name], ms);
    }
  }
}

void RunCycle(const std::vector<Stage>& stages, size_t number) {
  std::vector<Cycle> cycles;
  std::vector<std::map<std::string, double>> least(stages.size());
  for (const Stage& stage : stages) {
    cycles.push_back(CyclesOf(stage)[number]);
    if (!cycles.back().before.empty()) {
      stage.Run(cycles.back().before);
    }
  }
  for (int i = 0; i < kRuns; ++i) {
    for (size_t size = 0; size < stages.size(); ++size) {
      RunOnce(stages[size], cycles[size], least[size]);
    }
  }
  for (size_t size = 0; size < stages.size(); ++size) {
    for (const Command& command : cycles[size].commands) {
      // Each name once.
      if (const auto ms = least[size].find(command.name); ms != least[size].end()) {
        stages[size].report.AddValue(command.name, stages[size].company.Users(), ms->second, "ms",
                                     cycles[size].most_ms);
        stages[size].report.Grows(Touches::kOne);
        least[size].erase(ms);
      }
    }
  }
}

}  // namespace

// All of a cycle where one is wanted.
void Commands(const std::vector<Stage>& stages) {
  const std::vector<Cycle> cycles =
      stages.empty() ? std::vector<Cycle>() : CyclesOf(stages.front());
  for (size_t number = 0; number < cycles.size(); ++number) {
    const std::vector<Command>& commands = cycles[number].commands;
    if (std::any_of(commands.begin(), commands.end(), [&](const Command& command) {
          return !command.name.empty() && stages.front().IsWanted(command.name);
        })) {
      RunCycle(stages, number);
    }
  }
}

void CommandsOfMany(const Stage& stage) {
  const int users = stage.company.Users();
  const struct {
    const char* name;
    std::vector<std::string> words;
    double most_ms;
    double most_megabytes;
  } commands[] = {
      {"mdomain refresh that changes nothing", {"refresh"}, kMostMsOfNothing, kMostMegabytes},
      {"mdomain user list", {"user", "list", "1"}, 0, kMostMegabytesOfListing},
      {"mdomain --json user list", {"--json", "user", "list", "1"}, 0, kMostMegabytesOfListing},
      {"mdomain user addresses --all", {"user", "addresses", "--all"}, 0, kMostMegabytesOfListing},
      {"mdomain owner check", {"owner", "check"}, 0, kMostMegabytesOfListing},
  };
  for (const auto& command : commands) {
    if (!stage.IsWanted(command.name)) {
      continue;
    }
    if (command.words.front() == "owner") {
      stage.Run({"owner", "build"});
    }
    stage.company.TouchAccounts();
    const Usage usage = stage.Run(command.words);
    if (command.most_ms > 0) {
      stage.report.AddValue(command.name, users, usage.ms, "ms", command.most_ms);
    }
    stage.report.AddValue(std::string(command.name) + ": memory", users, usage.megabytes, "MB",
                          command.most_megabytes);
  }
}

void Publishing(const Stage& stage) {
  const std::string operation = "publishing one changed user";
  if (!stage.IsWanted(operation)) {
    return;
  }
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  const RedisServer server(stage.company.Root());
  Must(server.IsThere(), "starting redis-server");
  const std::string other = stage.company.Root() + "/other";
  const std::string idx = std::to_string(stage.company.Domains());
  const auto pull = [&] { stage.launcher.Run({stage.mdomain, "node", "pull"}, other); };
  UseServer(stage.company.Root(), server.Socket());
  UseServer(other, server.Socket());
  std::ofstream(other + "/etc/passwd") << "";
  stage.Run({"--yes", "node", "manage"});
  pull();
  stage.Run({"user", "add", idx, "user1"});
  pull();
  const double before = server.Megabytes();
  stage.Run({"user", "set", idx, "user1", "--add-alias", "other"});
  const double sent = server.Megabytes();
  pull();
  const double pulled = server.Megabytes();
  stage.report.AddValue(operation + ": sent", stage.company.Users(), sent - before, "MB",
                        kMostMegabytesSent);
  stage.report.AddValue(operation + ": pulled", stage.company.Users(), pulled - sent, "MB",
                        kMostMegabytesSent);
}

}  // namespace bench
