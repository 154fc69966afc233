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

struct LaunchRequest {
  uint32_t clientPid = 0;
  std::optional<std::string> url;
  std::vector<std::string> args;
};

class Launcher {
 public:
  /** `command` empty: launches are only recorded in the log at `logPath`. */
  Launcher(std::vector<std::string> command, std::string logPath);
  /** Starts or records one launch; returns its status (launch:: codes). */
  uint32_t Launch(const LaunchRequest& request);
  /** Collects launchers that have exited, logging their exit status. */
  void Reap();
  /** The launcher's argument vector for a request: command, launch URL (if any), arguments. */
  std::vector<std::string> ArgumentsFor(const LaunchRequest& request) const;

 private:
  bool Record(const LaunchRequest& request, uint32_t status, const std::string& detail);

  std::vector<std::string> command_;
  std::string logPath_;
  std::mutex mutex_;
  std::vector<pid_t> children_;
};

}  // namespace palvonauthd

#endif
