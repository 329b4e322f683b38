#include "tools/mdomain/draft.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <vector>

#include "platform/include/files.h"
#include "tools/mdomain/document.h"

namespace mdomain {
namespace {

namespace fs = std::filesystem;

// The editor gets the terminal's interrupts; this program waits on, and knows what to do with the
// text then.
class IgnoredInterrupts {
 public:
  IgnoredInterrupts() {
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      before_[i] = std::signal(kSignals[i], SIG_IGN);
    }
  }
  ~IgnoredInterrupts() {
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      (void)std::signal(kSignals[i], before_[i]);
    }
  }
  IgnoredInterrupts(const IgnoredInterrupts&) = delete;
  IgnoredInterrupts& operator=(const IgnoredInterrupts&) = delete;

  static constexpr int kSignals[] = {SIGINT, SIGQUIT};

 private:
  void (*before_[std::size(kSignals)])(int) = {};
};

using Words = std::vector<std::string>;

// The program with its arguments; those to try in turn where none was chosen.
std::vector<Words> Editors() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* value = std::getenv(variable);
    std::istringstream stream(value == nullptr ? "" : value);
    const Words words{std::istream_iterator<std::string>(stream),
                      std::istream_iterator<std::string>()};
    if (!words.empty()) {
      return {words};
    }
  }
  return {{"editor"}, {"vi"}};
}

// Its process, or 0 with errno set. It shares the terminal, so it stays in this process group.
pid_t Start(Words words, const std::string& path) {
  words.push_back(path);
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  for (const int number : IgnoredInterrupts::kSignals) {
    sigaddset(&usual, number);
  }
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  errno = error;
  return error == 0 ? child : 0;
}

}  // namespace

Draft::Draft(const std::string& name, const std::string& text) : text_(text) {
  std::error_code error;
  const fs::path below = fs::temp_directory_path(error);
  folder_ = (error ? "/tmp" : below) / "mdomain-edit.XXXXXX";
  if (mkdtemp(folder_.data()) == nullptr) {
    throw Failure(kFailed, folder_ + " could not be made: " + std::strerror(errno));
  }
  path_ = folder_ + "/" + name;
  if (korvmailserver::ReplaceFile(path_, text, 0600) < 0) {
    const std::string reason = std::strerror(errno);
    fs::remove_all(folder_, error);
    throw Failure(kFailed, path_ + " could not be written: " + reason);
  }
}

Draft::~Draft() {
  if (is_used_ || !IsChanged()) {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
}

std::string Draft::Text() const {
  return ReadInput(path_, kFailed);
}

bool Draft::IsChanged() const {
  std::string now;
  return korvmailserver::ReadFile(path_, now) >= 0 && now != text_;
}

void EditFile(const std::string& path) {
  const IgnoredInterrupts ignored;
  pid_t child = 0;
  std::string name;
  for (const Words& words : Editors()) {
    name = words[0];
    child = Start(words, path);
    if (child != 0) {
      break;
    }
  }
  if (child == 0) {
    throw Failure(kFailed, "the editor " + name + " cannot be started: " + std::strerror(errno),
                  "name another one in EDITOR");
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw Failure(kFailed, std::string("the editor was lost: ") + std::strerror(errno));
    }
  }
  if (status != 0) {
    const std::string how = WIFSIGNALED(status)
                                ? std::string(": ") + strsignal(WTERMSIG(status))
                                : " with status " + std::to_string(WEXITSTATUS(status));
    throw Failure(kFailed, "the editor " + name + " ended" + how + ", nothing was changed");
  }
}

}  // namespace mdomain
