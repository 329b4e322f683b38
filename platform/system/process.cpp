// Programs as streams to read, and programs run to their end.
#include "platform/include/process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "platform/include/maillog.h"
#include "platform/system/child_process.h"

namespace {

using korvmailserver::ChildProcess;
using korvmailserver::Descriptor;
using korvmailserver::kLogWarning;

struct Program {
  std::string path;
  std::unique_ptr<ChildProcess> child;
};

struct State {
  int deadline_seconds = 0;
  std::string error_text;
  std::map<FILE*, Program> running;
};

// Never destroyed, since destructors of static objects may still run programs.
State& TheState() {
  static auto* state = new State();
  return *state;
}

ssize_t ReadCookie(void* cookie, char* buffer, size_t size) {
  return static_cast<ChildProcess*>(cookie)->Read(buffer, size);
}

// Waits for the end and reports a failure. A program that ended because nobody wanted the rest of
// its output has not failed.
int Finish(const Program& program) {
  const int status = program.child->Finish();
  const int error = errno;
  const std::string& text = TheState().error_text = program.child->error_text();
  if (program.child->timed_out()) {
    maillog(kLogWarning, "Program [%s] did not end in time and was killed: %s",
            program.path.c_str(), text.c_str());
  } else if (status != 0 && status != 128 + SIGPIPE) {
    maillog(kLogWarning, "Program [%s] ended with status %d: %s", program.path.c_str(), status,
            text.c_str());
  }
  errno = error;
  return status;
}

// A file in memory at its beginning: unlike a pipe it takes all bytes at once. Never 0 to 2, which
// become the program's. -1 with errno set.
int OpenInput(const std::string& bytes) {
  const Descriptor file(memfd_create("input", MFD_CLOEXEC));
  for (size_t done = 0; file.get() >= 0 && done < bytes.size();) {
    const ssize_t count = write(file.get(), bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) {
      return -1;
    }
    done += count < 0 ? 0 : static_cast<size_t>(count);
  }
  return file.get() < 0 || lseek(file.get(), 0, SEEK_SET) < 0
             ? -1
             : fcntl(file.get(), F_DUPFD_CLOEXEC, 3);
}

// With a null behind them.
std::vector<const char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) {
    pointers.push_back(text.c_str());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::string ReadAll(ChildProcess& child) {
  std::string bytes;
  char part[16384];
  for (ssize_t count = 0; (count = child.Read(part, sizeof(part))) > 0;) {
    bytes.append(part, static_cast<size_t>(count));
  }
  return bytes;
}

}  // namespace

FILE* KLIBCPopenv(const char* path, const char* mode, const char* const argv[]) {
  if (path == nullptr || argv == nullptr || mode == nullptr || std::strcmp(mode, "r") != 0) {
    errno = EINVAL;
    return nullptr;
  }
  Program program{
      path,
      ChildProcess::Start(path, argv, {ChildProcess::Output::kRead, TheState().deadline_seconds})};
  if (program.child == nullptr) {
    return nullptr;
  }
  cookie_io_functions_t functions{};
  functions.read = ReadCookie;
  FILE* stream = fopencookie(program.child.get(), "r", functions);
  if (stream != nullptr) {
    TheState().running[stream] = std::move(program);
  }
  return stream;
}

int KLIBCPclose(FILE* stream) {
  const auto found = TheState().running.find(stream);
  if (found == TheState().running.end()) {
    errno = EINVAL;
    return -1;
  }
  const Program program = std::move(found->second);
  TheState().running.erase(found);
  fclose(stream);
  return Finish(program);
}

int KLIBCPopenSetDeadline(int seconds) {
  return std::exchange(TheState().deadline_seconds, std::max(seconds, 0));
}

std::string KLIBCPopenErrorText() {
  return TheState().error_text;
}

int KLIBCExec(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const Program program{
      path, ChildProcess::Start(path.c_str(), Pointers(words).data(),
                                {ChildProcess::Output::kDiscard, TheState().deadline_seconds})};
  return program.child == nullptr ? -1 : Finish(program);
}

namespace korvmailserver {

ProgramEnd RunProgram(const ProgramCall& call) {
  ProgramEnd end;
  const Descriptor input(OpenInput(call.input));
  if (input.get() < 0) {
    return end;
  }
  const std::vector<const char*> environment = Pointers(call.environment);
  std::vector<std::string> words = {call.path};
  words.insert(words.end(), call.arguments.begin(), call.arguments.end());
  const auto output =
      call.is_split ? ChildProcess::Output::kRead : ChildProcess::Output::kWithErrors;
  const std::unique_ptr<ChildProcess> child =
      ChildProcess::Start(call.path.c_str(), Pointers(words).data(),
                          {output, call.seconds, input.get(), environment.data()});
  if (child == nullptr) {
    return end;
  }
  if (call.is_split) {
    end.output = ReadAll(*child);
  }
  end.status = child->Finish();
  end.is_late = child->timed_out();
  (call.is_split ? end.errors : end.output) = child->error_text();
  return end;
}

}  // namespace korvmailserver
