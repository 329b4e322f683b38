// Processes of a test's own: for what needs other rights, limits or descriptors, or two at once.
#ifndef TESTS_SUPPORT_CHILDREN_H
#define TESTS_SUPPORT_CHILDREN_H

#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace test {

// Runs `body(number)` in `count` processes at once. How many of them gave false or crashed.
template <typename Body>
int FailingChildren(int count, const Body& body) {
  std::vector<pid_t> children;
  for (int number = 0; number < count; ++number) {
    children.push_back(fork());
    if (children.back() == 0) {
      _exit(body(number) ? 0 : 1);
    }
  }
  int failing = 0;
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    failing += status == 0 ? 0 : 1;
  }
  return failing;
}

template <typename Body>
bool InChild(const Body& body) {
  return FailingChildren(1, [&](int) { return body(); }) == 0;
}

}  // namespace test

#endif  // TESTS_SUPPORT_CHILDREN_H
