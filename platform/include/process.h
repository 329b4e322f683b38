// Other programs, started with an argument vector and never through a shell.
#ifndef PLATFORM_PROCESS_H
#define PLATFORM_PROCESS_H

#include <cstdio>
#include <string>
#include <vector>

// Starts `path` with `argv` (argv[0] first, null at its end) and gives its standard output to read
// (mode "r" only). Effective ids are handed on to the program. Its error output is kept for
// KLIBCPclose's log line. Null with errno set when it cannot be started.
FILE* KLIBCPopenv(const char* path, const char* mode, const char* const argv[]);
// Waits for the program's end. Its exit status 0 to 255, 128 + signal, or -1. A program still
// running at its deadline (KLIBCPopenSetDeadline) is killed.
int KLIBCPclose(FILE* stream);
// Seconds that programs started by KLIBCPopenv and KLIBCExec may take in all, reading included;
// 0 (the default) is no limit. Returns the previous value.
int KLIBCPopenSetDeadline(int seconds);
// What the program of the last KLIBCPclose wrote to its error output, at most 4096 bytes.
std::string KLIBCPopenErrorText();

// Runs a program to its end with the arguments; its exit status, 128 + signal, or -1 when it cannot
// be started.
int KLIBCExec(const std::string& path, const std::vector<std::string>& arguments);

#endif  // PLATFORM_PROCESS_H
