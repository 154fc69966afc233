#include "proxy/Workers.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <vector>

#include "proxy/Worker.h"

namespace palvonauth {

namespace {

using Clock = std::chrono::steady_clock;

/** A worker that ends sooner than this after its start is restarted only after this pause. */
constexpr auto kRestartPause = std::chrono::seconds(1);
/** Workers still running this long after the stop signal are killed. */
constexpr auto kStopTime = std::chrono::seconds(5);

struct Slot {
  pid_t pid = -1;
  Clock::time_point started;
  Clock::time_point restartAt;
};

sigset_t SupervisedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGCHLD, SIGINT, SIGTERM}) sigaddset(&set, signal);
  return set;
}

pid_t StartWorker(int listenFd, const ProxySettings& settings, const GlobalOptions& options, const sigset_t& oldMask) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  // A worker ends with its parent, however the parent ends.
  (void)prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) std::_Exit(0);
  int code = 1;
  try {
    code = RunWorker(listenFd, settings, options, oldMask);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "palvonauth: proxy worker %d: %s\n", static_cast<int>(getpid()), error.what());
  }
  std::fflush(nullptr);
  std::_Exit(code);
}

std::string Ending(int status) {
  if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
  return "exited with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

int SuperviseWorkers(int listenFd, unsigned count, const ProxySettings& settings, const GlobalOptions& options) {
  const sigset_t signals = SupervisedSignals();
  sigset_t oldMask;
  // Blocked, the signals wait for sigtimedwait below; the workers unblock them.
  (void)sigprocmask(SIG_BLOCK, &signals, &oldMask);
  std::vector<Slot> slots(count);
  for (Slot& slot : slots) {
    slot.pid = StartWorker(listenFd, settings, options, oldMask);
    slot.started = Clock::now();
  }
  bool stopping = false;
  Clock::time_point killAt;
  for (;;) {
    struct timespec step {
      0, 200 * 1000 * 1000
    };
    siginfo_t info{};
    const int signal = sigtimedwait(&signals, &info, &step);
    if ((signal == SIGINT || signal == SIGTERM) && !stopping) {
      stopping = true;
      killAt = Clock::now() + kStopTime;
      for (const Slot& slot : slots) {
        if (slot.pid > 0) kill(slot.pid, SIGTERM);
      }
    }
    int status = 0;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
      for (Slot& slot : slots) {
        if (slot.pid != pid) continue;
        slot.pid = -1;
        if (stopping) break;
        std::fprintf(stderr, "palvonauth: proxy worker %d %s; starting another\n", static_cast<int>(pid),
                     Ending(status).c_str());
        const Clock::time_point now = Clock::now();
        slot.restartAt = now - slot.started < kRestartPause ? now + kRestartPause : now;
      }
    }
    const Clock::time_point now = Clock::now();
    size_t running = 0;
    for (Slot& slot : slots) {
      if (slot.pid < 0 && !stopping && now >= slot.restartAt) {
        slot.pid = StartWorker(listenFd, settings, options, oldMask);
        slot.started = now;
      }
      if (slot.pid > 0) ++running;
      if (slot.pid > 0 && stopping && now >= killAt) kill(slot.pid, SIGKILL);
    }
    if (stopping && running == 0) break;
  }
  // The signals stay blocked: another stop signal now must not cut the exit short.
  return 0;
}

}  // namespace palvonauth
