#include "bench/measure.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "bench/company.h"

namespace bench {

namespace {

constexpr double kEnoughMs = 800;
constexpr int kMostRounds = 100;
constexpr int kLeastRounds = 5;

double Ms(const rusage& usage) {
  const auto ms = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
  };
  return ms(usage.ru_utime) + ms(usage.ru_stime);
}

double ChildrenMs() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return Ms(usage);
}

double OwnMs() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// The root, then the words of a command, each with its NUL.
Usage Start(std::string message) {
  std::vector<char*> words;
  for (size_t i = 0; i < message.size(); i = message.find('\0', i) + 1) {
    words.push_back(message.data() + i);
  }
  words.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("MDOMAIN_ROOT", words[0], 1);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    execvp(words[1], words.data() + 1);
    _exit(127);
  }
  Usage usage;
  rusage used{};
  wait4(pid, &usage.status, 0, &used);
  usage.ms = Ms(used);
  usage.megabytes = static_cast<double>(used.ru_maxrss) / 1024;
  return usage;
}

[[noreturn]] void Serve(int socket) {
  constexpr size_t kLongest = 65536;
  std::string buffer(kLongest, '\0');
  for (;;) {
    const ssize_t size = recv(socket, buffer.data(), buffer.size(), 0);
    if (size <= 0) {
      _exit(0);
    }
    const Usage usage = Start(buffer.substr(0, static_cast<size_t>(size)));
    send(socket, &usage, sizeof usage, 0);
  }
}

}  // namespace

double ProcessorMs(const Work& work) {
  const double children = ChildrenMs();
  const double own = OwnMs();
  work();
  return OwnMs() - own + ChildrenMs() - children;
}

void Rounds(const Work& round) {
  double all = 0;
  for (int i = 0; i < kMostRounds && (i < kLeastRounds || all < kEnoughMs); ++i) {
    all += ProcessorMs(round);
    if (all > kOnceMs) {
      return;
    }
  }
}

void KeepLeast(double& least, double value) {
  least = least == 0 ? value : std::min(least, value);
}

Launcher::Launcher() {
  int sockets[2] = {-1, -1};
  Must(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) == 0, "socketpair");
  pid_ = fork();
  if (pid_ == 0) {
    close(sockets[0]);
    Serve(sockets[1]);
  }
  close(sockets[1]);
  socket_ = sockets[0];
}

Launcher::~Launcher() {
  close(socket_);
  waitpid(pid_, nullptr, 0);
}

Usage Launcher::Run(const std::vector<std::string>& command, const std::string& root) const {
  std::string message = root + '\0';
  std::string shown;
  for (const std::string& word : command) {
    message += word + '\0';
    shown += word + " ";
  }
  Usage usage;
  Must(send(socket_, message.data(), message.size(), 0) == static_cast<ssize_t>(message.size()) &&
           recv(socket_, &usage, sizeof usage, 0) == sizeof usage && usage.status == 0,
       shown);
  return usage;
}

}  // namespace bench
