#ifndef PALVONAUTHD_LAUNCHER_H
#define PALVONAUTHD_LAUNCHER_H

// Launch-file hand-off: starts the configured launcher (or only records the
// launch) and keeps a log of every launch.

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace palvonauthd {

/** One launch, with the launcher configured when the client asked for it. */
struct LaunchRequest {
  uint32_t clientPid = 0;
  std::optional<std::string> url;
  std::vector<std::string> args;
  /** Empty: the launch is only recorded in the log. */
  std::vector<std::string> command;
  std::string logPath;
};

class Launcher {
 public:
  /** Starts or records one launch; returns its status (launch:: codes). */
  uint32_t Launch(const LaunchRequest& request);
  /** Collects launchers that have exited, logging their exit status. */
  void Reap();
  /** The launcher's argument vector for a request: command, launch URL (if any), arguments. */
  static std::vector<std::string> ArgumentsFor(const LaunchRequest& request);

 private:
  bool Record(const LaunchRequest& request, uint32_t status, const std::string& detail);

  std::mutex mutex_;
  std::vector<pid_t> children_;
};

}  // namespace palvonauthd

#endif
