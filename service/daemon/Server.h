#ifndef PALVONAUTHD_SERVER_H
#define PALVONAUTHD_SERVER_H

// The listening side: the registration pipe, the sessions of all registered
// clients, and the watch over clients that vanish.

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/Launcher.h"
#include "daemon/Session.h"

namespace palvonauthd {

class Server {
 public:
  Server(const Config& config, std::string pipeDirectory);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /**
   * Serves until a signal arrives on `signalFd` (a signalfd). Returns the
   * process exit code: 0 after a clean stop, 1 when the registration pipe
   * cannot be opened.
   */
  int Run(int signalFd);

 private:
  void ReadRegistrations();
  void Accept(uint32_t processId);
  /** Ends sessions whose process is gone and collects finished ones. */
  void Sweep();
  void StopAll(const std::string& reason);

  const Config& config_;
  std::string directory_;
  Launcher launcher_;
  ServiceContext context_;
  pam_service::RegistrationPipe registration_;
  std::map<uint32_t, std::unique_ptr<Session>> sessions_;
  /** Sessions replaced by a new registration of the same process, still ending. */
  std::vector<std::unique_ptr<Session>> retired_;
};

/** True while the process exists and is not a zombie. */
bool ProcessAlive(uint32_t processId);
/** Owner of a process (the owner of /proc/<pid>), or nothing when there is no such process. */
std::optional<uid_t> ProcessOwner(uint32_t processId);

}  // namespace palvonauthd

#endif
