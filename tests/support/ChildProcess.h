#ifndef PAM_TESTS_SUPPORT_CHILDPROCESS_H
#define PAM_TESTS_SUPPORT_CHILDPROCESS_H

// Runs a program as a child process of the test (standard input empty),
// collecting its standard output and standard error.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace pam_test {

struct ChildResult {
  /** Exit status, or 128 + signal number when the child was killed. */
  int exitCode = -1;
  std::string out;
  std::string err;
};

struct ChildOptions {
  /** Extra "NAME=value" entries added to (or replacing in) the environment. */
  std::vector<std::string> environment;
  /** The child is killed when it has not finished by then. */
  std::chrono::seconds timeout{40};
};

/**
 * Starts argv[0] with standard input empty and standard output and error
 * going to the given descriptors; `environment` as in ChildOptions.
 */
pid_t StartChild(const std::vector<std::string>& argv, int output, int error,
                 const std::vector<std::string>& environment = {});
/** Runs `body` in a forked child that ends with _exit(body()). */
pid_t ForkChild(const std::function<int()>& body);
/** Waits for a child: its exit code, or 128 + signal number. */
int WaitChild(pid_t pid);

ChildResult RunChild(const std::vector<std::string>& argv, const ChildOptions& options = {});

}  // namespace pam_test

#endif
