#ifndef PAM_TESTS_TOOLS_CHILDPROCESS_H
#define PAM_TESTS_TOOLS_CHILDPROCESS_H

// Runs a program as a child process of the test, feeding its standard input
// and collecting its standard output and standard error.

#include <chrono>
#include <string>
#include <vector>

namespace pam_test {

struct ChildResult {
  /** Exit status, or 128 + signal number when the child was killed. */
  int exitCode = -1;
  std::string out;
  std::string err;
  bool timedOut = false;
};

struct ChildOptions {
  std::string input;
  /** Extra "NAME=value" entries added to (or replacing in) the environment. */
  std::vector<std::string> environment;
  /** Give the child a pseudo-terminal as its standard error. */
  bool stderrTerminal = false;
  std::chrono::seconds timeout{40};
};

ChildResult RunChild(const std::vector<std::string>& argv, const ChildOptions& options = {});

}  // namespace pam_test

#endif
