// palvonauthd: the reference authentication-manager service. Runs in the
// foreground as the user it serves and logs to standard error; under systemd
// it reports its state on the notification socket and SIGHUP reloads its
// configuration.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/ConfigSources.h"
#include "daemon/Http.h"
#include "daemon/Log.h"
#include "daemon/OperationNames.h"
#include "daemon/Server.h"
#include "ipc/PipeFolder.h"

using namespace palvonauthd;

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitBadConfiguration = 2;
/** Bytes of the process id record in the lock file: digits, spaces, a line feed. */
constexpr size_t kLockRecordSize = 16;

// Opens the lock file without following a link and without ever creating a
// file through one; only a regular file of this user is used.
int OpenLockFile(const std::string& path, std::string& why) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
      fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
      if (fd < 0 && errno == EEXIST) continue;  // made by someone else meanwhile: look again
    }
    if (fd < 0) {
      why = errno == ELOOP ? "it is a symbolic link" : std::strerror(errno);
      return -1;
    }
    struct stat status {};
    if (fstat(fd, &status) != 0) {
      why = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
      why = "it is not a regular file";
    } else if (status.st_uid != geteuid()) {
      why = "it belongs to user " + std::to_string(status.st_uid);
    } else {
      return fd;
    }
    close(fd);
    return -1;
  }
  why = "it keeps changing";
  return -1;
}

// Keeps a second service of the same user away from the registration pipe.
int LockPipeDirectory(const std::string& directory) {
  const std::string path = directory + "/.palvonauthd.lock";
  std::string why;
  const int fd = OpenLockFile(path, why);
  if (fd < 0) {
    LogError("cannot use the lock file ", path, ": ", why);
    return -1;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    char owner[32] = {};
    const ssize_t got = pread(fd, owner, sizeof owner - 1, 0);
    std::string pid = got > 0 ? std::string(owner, static_cast<size_t>(got)) : std::string("?");
    pid = pid.substr(0, pid.find('\n'));
    while (!pid.empty() && pid.back() == ' ') pid.pop_back();
    LogError("another palvonauthd (process ", pid, ") already serves ", directory);
    close(fd);
    return -1;
  }
  // A record of fixed width overwrites whatever an earlier holder wrote, so
  // the file never needs to be truncated.
  char self[kLockRecordSize + 1];
  std::snprintf(self, sizeof self, "%-*ld\n", static_cast<int>(kLockRecordSize - 1), static_cast<long>(getpid()));
  if (pwrite(fd, self, kLockRecordSize, 0) != static_cast<ssize_t>(kLockRecordSize)) {
    LogWarning("cannot record this process in ", path);
  }
  return fd;
}

// The service manager hears of the service's state through sd_notify (a
// no-op unless systemd passed NOTIFY_SOCKET); a reload layers the same
// sources again: the file named at start, or the default file, then flags.
class Supervision final : public ServerOwner {
 public:
  Supervision(std::string configPath, ConfigOverrides overrides)
      : configPath_(std::move(configPath)), overrides_(std::move(overrides)) {}

  void Notify(const std::string& state) override { (void)sd_notify(0, state.c_str()); }

  std::optional<Config> Reload() override {
    try {
      std::string used;
      Config config = LoadConfig(configPath_, overrides_, used);
      LogInfo("configuration reloaded from ", used.empty() ? "the embedded default (no configuration file)" : used,
              "; it applies to every request from now on");
      return config;
    } catch (const std::exception& error) {
      LogError("configuration not reloaded, the one in force stays: ", error.what());
      return std::nullopt;
    }
  }

 private:
  const std::string configPath_;
  const ConfigOverrides overrides_;
};

// Serves until stopped; returns the exit code.
int Serve(Config config, const std::string& directory, int signalFd, ServerOwner& owner) {
  InitializeHttp();
  int code = 0;
  {
    Server server(std::move(config), directory, owner);
    code = server.Run(signalFd);
  }
  ShutdownHttp();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"palvonauthd - reference authentication-manager service for the Palvon SDK", "palvonauthd"};
  std::string configPath;
  bool printDefault = false;
  ConfigOverrides overrides;
  app.add_option("-c,--config", configPath,
                 "TOML configuration file (default: " + DefaultConfigPath() + " when it exists)");
  app.add_flag("-v,--verbose", overrides.verbose, "Log every request and reply");
  app.add_flag("--print-default-config", printDefault, "Print the embedded default configuration and exit");
  app.add_option("--sdk-version", overrides.sdkVersion, "SDK version answered to the version query");
  app.add_option("--version-text", overrides.versionText, "Version text answered to GetVersion");
  app.add_option("--busy", overrides.busy, "Answer busy this many times before each answer");
  app.add_option("--delay", overrides.delayMs, "Wait this many milliseconds before each answer");
  app.add_option("--fault-ops", overrides.faultOperations,
                 "Limit --busy and --delay to these operations (names or numbers)")
      ->delimiter(',');
  app.add_option("--answer", overrides.answers,
                 "Answer an operation with a fixed result code: OPERATION=CODE (repeatable)");
  app.add_option("--launcher", overrides.launcher, "Program started for each launch-file hand-off");
  app.add_option("--launch-log", overrides.launchLog, "File that records every launch-file hand-off");
  app.add_option("--user-agent", overrides.userAgent, "User agent of HTTP requests");
  app.add_flag("--insecure", overrides.insecure, "Do not verify TLS certificates of HTTP requests");
  app.set_version_flag("--version", "palvonauthd 1.0.0");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? 0 : kExitBadConfiguration;
  }

  if (printDefault) {
    std::fputs(DefaultConfigText(), stdout);
    return 0;
  }

  Config config;
  std::string usedPath;
  try {
    config = LoadConfig(configPath, overrides, usedPath);
  } catch (const ConfigError& error) {
    WriteStartFailure(std::string("bad configuration: ") + error.what());
    return kExitBadConfiguration;
  }

  // The stop signals and SIGHUP (reload) are taken from a signalfd; every
  // thread started from here on inherits the blocked mask.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    LogError("cannot block the stop signals");
    return kExitFailure;
  }
  const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signalFd < 0) {
    LogError("signalfd failed: ", std::strerror(errno));
    return kExitFailure;
  }
  pam_service::IgnoreSigpipe();

  // The search's refusals go to standard error as bare lines, as they always have (as warnings in the journal).
  const std::string directory = PalvonAuthManagerSDK::FindPipeFolder(
      [](PalvonAuthManagerSDK::PipeFolderNote, const std::string& line) { WriteBare(LogLevel::kWarning, line); });
  if (directory.empty()) {
    LogError(
        "no private pipe folder for this user (HOME/.RZPClient/.tmp or /tmp/USER, a directory of the user "
        "that no one else may write to); not starting");
    return kExitFailure;
  }
  const int lockFd = LockPipeDirectory(directory);
  if (lockFd < 0) return kExitFailure;
  if (!usedPath.empty()) LogInfo("configuration read from ", usedPath);

  int code = kExitFailure;
  try {
    Supervision supervision(configPath, overrides);
    code = Serve(std::move(config), directory, signalFd, supervision);
  } catch (const std::exception& error) {
    LogError("stopped by an unexpected failure: ", error.what());
  } catch (...) {
    LogError("stopped by an unexpected failure");
  }
  close(lockFd);
  close(signalFd);
  return code;
}
