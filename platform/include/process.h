// Other programs, started with an argument vector and never through a shell.
#ifndef PLATFORM_PROCESS_H
#define PLATFORM_PROCESS_H

#include <cstdio>
#include <string>
#include <vector>

#include "platform/include/export.h"

// Programs read nothing (/dev/null), get the caller's environment, run with its effective ids as
// their real and effective ones, and are a process group of their own. Not thread-safe.

// Starts the file `path` (no search) with `argv` (argv[0] first, null at its end) and gives its
// standard output to read (mode "r" only). The stream has no file descriptor of its own and ends
// with KLIBCPclose only. Null with errno set when the program cannot be started. A read that meets
// the deadline kills the program and fails: the stream is in error (ferror), not at its end.
MDOMAIN_EXPORT FILE* KLIBCPopenv(const char* path, const char* mode, const char* const argv[]);
// Closes the stream and waits for the program's end. Its exit status 0 to 255, 128 + signal, or -1
// with errno set (not a stream of KLIBCPopenv). A program still running at its deadline is killed
// with all that it started: 137. A status other than 0 is one log line of level 1 with the
// program's error output, unless the program was ended by nobody reading on (141).
MDOMAIN_EXPORT int KLIBCPclose(FILE* stream);
// Seconds that each program started from now on by KLIBCPopenv and KLIBCExec may take in all,
// reading included; 0 (the default) is no limit. Returns the previous value.
MDOMAIN_EXPORT int KLIBCPopenSetDeadline(int seconds);
// The beginning of what the program of the last KLIBCPclose or KLIBCExec wrote to its error output,
// at most 4096 bytes.
MDOMAIN_EXPORT std::string KLIBCPopenErrorText();

// Runs the file `path` to its end with the arguments (without argv[0], which is the path); its
// output is discarded. Its exit status as KLIBCPclose, with its log line; -1 with errno set and no
// line when it cannot be started.
MDOMAIN_EXPORT int KLIBCExec(const std::string& path, const std::vector<std::string>& arguments);

#endif  // PLATFORM_PROCESS_H
