#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace pam_test {

namespace {

void MakePipe(int fds[2]) {
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
}

std::vector<std::string> BuildEnvironment(const std::vector<std::string>& extra) {
  std::vector<std::string> env;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    bool replaced = false;
    for (const auto& added : extra) replaced = replaced || added.substr(0, added.find('=')) == name;
    if (!replaced) env.push_back(text);
  }
  env.insert(env.end(), extra.begin(), extra.end());
  return env;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (auto& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

ChildResult RunChild(const std::vector<std::string>& argvIn, const ChildOptions& options) {
  std::vector<std::string> argvCopy = argvIn;
  std::vector<std::string> envCopy = BuildEnvironment(options.environment);
  std::vector<char*> argv = Pointers(argvCopy);
  std::vector<char*> envp = Pointers(envCopy);

  int in[2], out[2], err[2];
  MakePipe(in);
  MakePipe(out);
  int terminal = -1;
  if (options.stderrTerminal) {
    int master = -1;
    if (openpty(&master, &terminal, nullptr, nullptr, nullptr) != 0) throw std::runtime_error("openpty failed");
    (void)fcntl(master, F_SETFD, FD_CLOEXEC);
    (void)fcntl(terminal, F_SETFD, FD_CLOEXEC);
    err[0] = master;
    err[1] = terminal;
  } else {
    MakePipe(err);
  }

  // Everything the child needs is prepared before fork: the test process
  // has threads, so the child may only make async-signal-safe calls.
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);

  ChildResult result;
  size_t written = 0;
  int inFd = in[1];
  if (options.input.empty()) {
    close(inFd);
    inFd = -1;
  } else {
    (void)fcntl(inFd, F_SETFL, O_NONBLOCK);
  }
  int outFd = out[0];
  int errFd = err[0];
  const auto deadline = std::chrono::steady_clock::now() + options.timeout;
  char buffer[65536];
  while (outFd >= 0 || errFd >= 0) {
    struct pollfd fds[3];
    nfds_t count = 0;
    if (outFd >= 0) fds[count++] = {outFd, POLLIN, 0};
    if (errFd >= 0) fds[count++] = {errFd, POLLIN, 0};
    if (inFd >= 0) fds[count++] = {inFd, POLLOUT, 0};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      kill(pid, SIGKILL);
      break;
    }
    if (poll(fds, count, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
    for (nfds_t i = 0; i < count; ++i) {
      if (fds[i].revents == 0) continue;
      const int fd = fds[i].fd;
      if (fd == inFd) {
        const ssize_t n = write(inFd, options.input.data() + written, options.input.size() - written);
        if (n > 0) written += static_cast<size_t>(n);
        if (n < 0 || written == options.input.size()) {
          close(inFd);
          inFd = -1;
        }
        continue;
      }
      const ssize_t n = read(fd, buffer, sizeof buffer);
      if (n > 0) {
        (fd == outFd ? result.out : result.err).append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        // A pseudo-terminal reports EIO once the child's side is closed.
        close(fd);
        (fd == outFd ? outFd : errFd) = -1;
      }
    }
  }
  if (inFd >= 0) close(inFd);
  if (outFd >= 0) close(outFd);
  if (errFd >= 0) close(errFd);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.exitCode = 128 + WTERMSIG(status);
  }
  return result;
}

}  // namespace pam_test
