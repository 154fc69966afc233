#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

extern char** environ;

namespace pam_test {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (auto& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

pid_t StartChild(const std::vector<std::string>& argvIn, int output, int error,
                 const std::vector<std::string>& environment) {
  std::vector<std::string> argvCopy = argvIn, envCopy;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry, name = text.substr(0, text.find('=') + 1);
    bool replaced = false;
    for (const auto& added : environment) replaced = replaced || added.substr(0, added.find('=') + 1) == name;
    if (!replaced) envCopy.push_back(text);
  }
  envCopy.insert(envCopy.end(), environment.begin(), environment.end());
  std::vector<char*> argv = Pointers(argvCopy), envp = Pointers(envCopy);
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  // Everything the child needs is prepared before fork: the test process
  // has threads, so the child may only make async-signal-safe calls.
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  close(input);
  return pid;
}

pid_t ForkChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

int WaitChild(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

ChildResult RunChild(const std::vector<std::string>& argv, const ChildOptions& options) {
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  const pid_t pid = StartChild(argv, out[1], err[1], options.environment);
  close(out[1]);
  close(err[1]);
  ChildResult result;
  struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  const auto deadline = std::chrono::steady_clock::now() + options.timeout;
  char buffer[65536];
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      kill(pid, SIGKILL);
      break;
    }
    if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
    for (struct pollfd& fd : fds) {
      if (fd.fd < 0 || fd.revents == 0) continue;
      const ssize_t n = read(fd.fd, buffer, sizeof buffer);
      if (n > 0) (&fd == fds ? result.out : result.err).append(buffer, static_cast<size_t>(n));
      if (n == 0 || (n < 0 && errno != EINTR)) close(fd.fd), fd.fd = -1;
    }
  }
  for (const struct pollfd& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  result.exitCode = WaitChild(pid);
  return result;
}

}  // namespace pam_test
