#include "platform/account/child_query.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>

namespace korvmailserver::account {

namespace {

constexpr char kEnd = 'E';
constexpr int kChildFile = 3;

// An answer travels as its length, its kind, and its texts with a zero byte behind each.
bool TakeAnswer(std::string& bytes, Answer& answer) {
  uint32_t length = 0;
  if (bytes.size() < sizeof(length)) {
    return false;
  }
  std::memcpy(&length, bytes.data(), sizeof(length));
  if (bytes.size() < sizeof(length) + length) {
    return false;
  }
  const std::string body = bytes.substr(sizeof(length), length);
  bytes.erase(0, sizeof(length) + length);
  answer.kind = body[0];
  answer.texts.clear();
  for (size_t begin = 1; begin < body.size();) {
    const size_t end = body.find('\0', begin);
    answer.texts.push_back(body.substr(begin, end - begin));
    begin = end + 1;
  }
  return true;
}

[[noreturn]] void RunChild(pid_t parent, int file, const Query& query) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGPIPE, SIG_DFL);
  if (getppid() != parent || dup2(file, kChildFile) != kChildFile) {
    _exit(1);
  }
  close_range(kChildFile + 1, ~0U, 0);
  const AnswerWriter writer(kChildFile);
  query(writer);
  writer.Put(kEnd);
  _exit(0);
}

// The parent's end of the pipe and the child behind it.
class Listener {
 public:
  Listener(int file, const Budget& budget) : file_(file), budget_(budget) {}

  bool Run(const std::function<void(const Answer&)>& take, std::string& error) {
    while (true) {
      Answer answer;
      while (TakeAnswer(bytes_, answer)) {
        if (answer.kind == kEnd) {
          return true;
        }
        heard_ = true;
        take(answer);
      }
      if (!Receive(error)) {
        return false;
      }
    }
  }

 private:
  bool Receive(std::string& error) {
    const auto left = budget_.Left().count();
    pollfd waiting = {file_, POLLIN, 0};
    const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) {
      return true;
    }
    if (ready == 0) {
      error = std::string(heard_ ? "no end of the answer" : "no answer") + " within " +
              std::to_string(budget_.seconds()) + " seconds";
      return false;
    }
    char part[65536];
    const ssize_t count = read(file_, part, sizeof(part));
    if (count > 0) {
      bytes_.append(part, static_cast<size_t>(count));
      return true;
    }
    error = "the asking process ended without an answer";
    return count < 0 && errno == EINTR;
  }

  int file_;
  const Budget& budget_;
  bool heard_ = false;
  std::string bytes_;
};

}  // namespace

void AnswerWriter::Put(char kind, const std::vector<std::string>& texts) const {
  std::string body(1, kind);
  for (const std::string& text : texts) {
    body += text;
    body += '\0';
  }
  const auto length = static_cast<uint32_t>(body.size());
  std::string message(sizeof(length), '\0');
  std::memcpy(message.data(), &length, sizeof(length));
  message += body;
  for (size_t done = 0; done < message.size();) {
    const ssize_t count = write(file_, message.data() + done, message.size() - done);
    if (count < 0 && errno != EINTR) {
      _exit(1);
    }
    done += count > 0 ? static_cast<size_t>(count) : 0;
  }
}

bool QueryInChild(const Query& query, const std::function<void(const Answer&)>& take,
                  const Budget& budget, std::string& error) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    error = std::string("no pipe: ") + std::strerror(errno);
    return false;
  }
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    RunChild(parent, ends[1], query);
  }
  const int fork_error = errno;
  close(ends[1]);
  bool whole = false;
  if (child < 0) {
    error = std::string("no process: ") + std::strerror(fork_error);
  } else {
    whole = Listener(ends[0], budget).Run(take, error);
    kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  close(ends[0]);
  return whole;
}

}  // namespace korvmailserver::account
