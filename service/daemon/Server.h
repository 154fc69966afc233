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
#include "daemon/ClientSession.h"
#include "daemon/Config.h"
#include "daemon/Dispatcher.h"
#include "daemon/Launcher.h"

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
  /** Ends sessions whose process is gone, collects finished ones and removes the pipes of gone clients. */
  void Sweep();
  /** Joins a finished session and keeps its pipes in mind until its process is gone. */
  void Collect(ClientSession& session);
  void StopAll(const std::string& reason);

  const Config& config_;
  std::string directory_;
  Launcher launcher_;
  LiveActions actions_;
  ServiceContext context_;
  pam_service::RegistrationPipe registration_;
  std::map<uint32_t, std::unique_ptr<ClientSession>> sessions_;
  /** Sessions replaced by a new registration of the same process, still ending. */
  std::vector<std::unique_ptr<ClientSession>> retired_;
  /** Pipes of ended sessions whose process may still be there, by process id. */
  std::map<uint32_t, pam_service::PipeFiles> leftovers_;
};

/**
 * True while the process exists (a zombie included), decided with kill(pid, 0)
 * so that it needs no descriptor: only ESRCH means gone.
 */
bool ProcessAlive(uint32_t processId);
/**
 * Owner of a process (the owner of /proc/<pid>). Nothing when it cannot be
 * told; `error` then holds the errno, ENOENT meaning there is no such process.
 */
std::optional<uid_t> ProcessOwner(uint32_t processId, int& error);

}  // namespace palvonauthd

#endif
