// palvonauthd: the reference authentication-manager service. Runs in the
// foreground as the user it serves and logs to standard error.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
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

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The configuration file read when none is named on the command line.
std::string DefaultConfigPath() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg != nullptr && *xdg != '\0') return std::string(xdg) + "/palvonauthd/palvonauthd.toml";
  const char* home = std::getenv("HOME");
  return std::string(home != nullptr ? home : "") + "/.config/palvonauthd/palvonauthd.toml";
}

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

// Serves until stopped; returns the exit code.
int Serve(const Config& config, const std::string& directory, int signalFd) {
  InitializeHttp();
  int code = 0;
  {
    Server server(config, directory);
    code = server.Run(signalFd);
  }
  ShutdownHttp();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  Config config;
  try {
    config = DefaultConfig();
  } catch (const ConfigError& error) {
    std::fprintf(stderr, "palvonauthd: the embedded default configuration is invalid: %s\n", error.what());
    return kExitBadConfiguration;
  }

  CLI::App app{"palvonauthd - reference authentication-manager service for the Palvon SDK", "palvonauthd"};
  std::string configPath;
  bool verbose = false;
  bool printDefault = false;
  std::optional<uint32_t> sdkVersion;
  std::optional<std::string> versionText;
  std::optional<uint32_t> busy;
  std::optional<uint32_t> delayMs;
  std::vector<std::string> faultOperations;
  std::vector<std::string> answers;
  std::optional<std::string> launcher;
  std::optional<std::string> launchLog;
  std::optional<std::string> userAgent;
  bool insecure = false;
  app.add_option("-c,--config", configPath,
                 "TOML configuration file (default: " + DefaultConfigPath() + " when it exists)");
  app.add_flag("-v,--verbose", verbose, "Log every request and reply");
  app.add_flag("--print-default-config", printDefault, "Print the embedded default configuration and exit");
  app.add_option("--sdk-version", sdkVersion, "SDK version answered to the version query");
  app.add_option("--version-text", versionText, "Version text answered to GetVersion");
  app.add_option("--busy", busy, "Answer busy this many times before each answer");
  app.add_option("--delay", delayMs, "Wait this many milliseconds before each answer");
  app.add_option("--fault-ops", faultOperations, "Limit --busy and --delay to these operations (names or numbers)")
      ->delimiter(',');
  app.add_option("--answer", answers, "Answer an operation with a fixed result code: OPERATION=CODE (repeatable)");
  app.add_option("--launcher", launcher, "Program started for each launch-file hand-off");
  app.add_option("--launch-log", launchLog, "File that records every launch-file hand-off");
  app.add_option("--user-agent", userAgent, "User agent of HTTP requests");
  app.add_flag("--insecure", insecure, "Do not verify TLS certificates of HTTP requests");
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

  try {
    if (!configPath.empty()) {
      ApplyConfigFile(config, configPath);
    } else if (FileExists(DefaultConfigPath())) {
      configPath = DefaultConfigPath();
      ApplyConfigFile(config, configPath);
    }
    if (sdkVersion) config.sdkVersion = *sdkVersion;
    if (versionText) config.versionText = *versionText;
    if (busy) config.busyCount = *busy;
    if (delayMs) config.delayMs = *delayMs;
    if (launcher) config.launchCommand = {*launcher};
    if (launchLog) config.launchLog = *launchLog;
    if (userAgent) config.userAgent = *userAgent;
    if (insecure) config.verifyTls = false;
    if (verbose) config.verbose = true;
    if (!faultOperations.empty()) {
      config.faultOperations.clear();
      for (const auto& name : faultOperations) {
        const auto type = ParseOperation(name);
        if (!type) throw ConfigError("--fault-ops", 0, 0, "unknown operation '" + name + "'");
        config.faultOperations.insert(*type);
      }
    }
    for (const auto& answer : answers) {
      const size_t equals = answer.find('=');
      const auto type = equals != std::string::npos ? ParseOperation(answer.substr(0, equals)) : std::nullopt;
      const auto code = equals != std::string::npos ? ParseNumber(answer.substr(equals + 1)) : std::nullopt;
      if (!type || !code) throw ConfigError("--answer", 0, 0, "'" + answer + "' is not OPERATION=CODE");
      config.forcedAnswers[*type] = *code;
    }
  } catch (const ConfigError& error) {
    std::fprintf(stderr, "palvonauthd: bad configuration: %s\n", error.what());
    return kExitBadConfiguration;
  }
  SetVerbose(config.verbose);

  // Stop signals are taken from a signalfd; every thread started from here
  // on inherits the blocked mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGHUP);
  if (pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr) != 0) {
    LogError("cannot block the stop signals");
    return kExitFailure;
  }
  const int signalFd = signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signalFd < 0) {
    LogError("signalfd failed: ", std::strerror(errno));
    return kExitFailure;
  }
  pam_service::IgnoreSigpipe();

  // The search's refusals go to standard error as bare lines, as they always have.
  const std::string directory =
      PalvonAuthManagerSDK::FindPipeFolder([](PalvonAuthManagerSDK::PipeFolderNote, const std::string& line) {
        std::fprintf(stderr, "%s\n", line.c_str());
        std::fflush(stderr);
      });
  if (directory.empty()) {
    LogError(
        "no private pipe folder for this user (HOME/.RZPClient/.tmp or /tmp/USER, a directory of the user "
        "that no one else may write to); not starting");
    return kExitFailure;
  }
  const int lockFd = LockPipeDirectory(directory);
  if (lockFd < 0) return kExitFailure;
  if (!configPath.empty()) LogInfo("configuration read from ", configPath);

  int code = kExitFailure;
  try {
    code = Serve(config, directory, signalFd);
  } catch (const std::exception& error) {
    LogError("stopped by an unexpected failure: ", error.what());
  } catch (...) {
    LogError("stopped by an unexpected failure");
  }
  close(lockFd);
  close(signalFd);
  return code;
}
