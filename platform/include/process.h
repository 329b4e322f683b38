// Other programs, started with an argument vector and never through a shell.
#ifndef PLATFORM_PROCESS_H
#define PLATFORM_PROCESS_H

#include <cstdio>
#include <string>
#include <vector>

#include "platform/include/export.h"

// Programs run with the caller's effective ids as their real and effective ones, and are a process
// group of their own. Unless it says otherwise they read nothing (/dev/null) and get the caller's
// environment. Not thread-safe.

// Starts the file `path` (no search) with `argv` (argv[0] first, null at its end) and gives its
// standard output to read (mode "r" only). The stream has no file descriptor of its own and must be
// closed with KLIBCPclose, not fclose. Null with errno set when the program cannot be started. A
// read that reaches the deadline kills the program and fails: the stream is then in error (ferror),
// not at its end.
MDOMAIN_EXPORT FILE* KLIBCPopenv(const char* path, const char* mode, const char* const argv[]);
// Closes the stream, waits for the program's end and returns its exit status (0 to 255), 128 + the
// signal that ended it, or -1 with errno set when the stream is not one of KLIBCPopenv. A program
// still running at its deadline is killed with everything it started: 137. A status other than 0
// writes one log line of level 1 with the program's error output, except 141: the program ended
// because the caller had stopped reading.
MDOMAIN_EXPORT int KLIBCPclose(FILE* stream);
// Seconds that each program started from now on by KLIBCPopenv and KLIBCExec may take in all,
// reading included; 0 (the default) is no limit. Returns the previous value.
MDOMAIN_EXPORT int KLIBCPopenSetDeadline(int seconds);
// The beginning of what the program of the last KLIBCPclose or KLIBCExec wrote to its error output,
// at most 4096 bytes.
MDOMAIN_EXPORT std::string KLIBCPopenErrorText();

// Runs the file `path` to its end with the arguments (without argv[0], which is the path) and
// discards its output. Returns the exit status and logs as KLIBCPclose does; -1 with errno set and
// no log line when the program cannot be started.
MDOMAIN_EXPORT int KLIBCExec(const std::string& path, const std::vector<std::string>& arguments);

namespace korvmailserver {

struct ProgramCall {
  std::string path;                      // no search
  std::vector<std::string> environment;  // "NAME=VALUE" each; the program gets nothing else
  std::string input;                     // what it reads on its standard input; of any length
  int seconds = 0;                       // that it may take; 0: any number
  std::vector<std::string> arguments{};  // without argv[0], which is the path
  bool is_split = false;                 // its two outputs come apart, the first one whole
};

struct ProgramEnd {
  int status = -1;       // exit status, or 128 + the signal; -1: not started, errno says why
  bool is_late = false;  // its time was over, and it was killed with everything it had started
  std::string output;    // the beginning of both its outputs, as they came, at most 4096 bytes;
                         // of a split call everything but the error output
  std::string errors;    // of a split call the beginning of the error output, at most 4096 bytes
};

// Runs a program to its end. What it leaves running in the background is not
// waited for. Logs nothing.
MDOMAIN_EXPORT ProgramEnd RunProgram(const ProgramCall& call);

}  // namespace korvmailserver

#endif  // PLATFORM_PROCESS_H
