#include "daemon/Launcher.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "daemon/Log.h"
#include "daemon/ServiceCodes.h"
#include "daemon/TextFormat.h"

extern char** environ;

namespace palvonauthd {

namespace {

// Creates every missing folder on the way to `path`'s parent.
void MakeParents(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    (void)mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

std::string NowText() {
  const time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  char text[40];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
  return std::string(text, length);
}

}  // namespace

std::vector<std::string> Launcher::ArgumentsFor(const LaunchRequest& request) {
  std::vector<std::string> argv = request.command;
  if (request.url) argv.push_back(*request.url);
  argv.insert(argv.end(), request.args.begin(), request.args.end());
  return argv;
}

bool Launcher::Record(const LaunchRequest& request, uint32_t status, const std::string& detail) {
  std::string line = NowText() + "\tclient=" + std::to_string(request.clientPid) + "\tstatus=" + std::to_string(status);
  line += "\turl=" + (request.url ? Quote(*request.url) : std::string("-"));
  line += "\targs=[";
  for (size_t i = 0; i < request.args.size(); ++i) line += (i > 0 ? ", " : "") + Quote(request.args[i]);
  line += "]";
  if (!detail.empty()) line += "\t" + detail;
  line += "\n";
  std::lock_guard<std::mutex> lock(mutex_);
  MakeParents(request.logPath);
  const int fd = open(request.logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) {
    LogWarning("cannot open the launch log ", request.logPath, ": ", std::strerror(errno));
    return false;
  }
  const ssize_t written = write(fd, line.data(), line.size());
  close(fd);
  return written == static_cast<ssize_t>(line.size());
}

uint32_t Launcher::Launch(const LaunchRequest& request) {
  if (request.command.empty()) {
    const bool recorded = Record(request, launch::kRecorded, "");
    LogInfo("client ", request.clientPid, ": launch recorded in ", request.logPath, " (no launcher configured)");
    return recorded ? launch::kRecorded : launch::kRecordFailed;
  }
  const std::vector<std::string> arguments = ArgumentsFor(request);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // The service blocks its stop signals and ignores SIGPIPE; the launcher
  // starts with neither, in a process group of its own.
  sigset_t none;
  sigemptyset(&none);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGTERM);
  sigaddset(&defaults, SIGHUP);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

  pid_t child = -1;
  const int error = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    const std::string detail = std::string("start failed: ") + std::strerror(error);
    LogWarning("client ", request.clientPid, ": launcher ", Quote(argv[0]),
               " could not be started: ", std::strerror(error));
    (void)Record(request, launch::kStartFailed, detail);
    return launch::kStartFailed;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    children_.push_back(child);
  }
  LogInfo("client ", request.clientPid, ": started launcher ", Quote(argv[0]), " as process ", child, " with ",
          arguments.size() - 1, " argument(s)");
  (void)Record(request, launch::kStarted, "pid=" + std::to_string(child));
  return launch::kStarted;
}

void Launcher::Reap() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = children_.begin(); it != children_.end();) {
    int status = 0;
    const pid_t done = waitpid(*it, &status, WNOHANG);
    if (done == 0) {
      ++it;
      continue;
    }
    if (done == *it) {
      if (WIFEXITED(status)) {
        LogInfo("launcher process ", done, " exited with status ", WEXITSTATUS(status));
      } else if (WIFSIGNALED(status)) {
        LogInfo("launcher process ", done, " ended by signal ", WTERMSIG(status));
      }
    }
    it = children_.erase(it);
  }
}

}  // namespace palvonauthd
