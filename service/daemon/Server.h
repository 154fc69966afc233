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

/** Whoever runs the server: told how it is doing, asked for the configuration on a reload. */
class ServerOwner {
 public:
  virtual ~ServerOwner() = default;
  /** A change of state as the service manager takes it: "READY=1", "STOPPING=1", "STATUS=...", one per line. */
  virtual void Notify(const std::string& state) = 0;
  /** SIGHUP: the configuration to serve with from now on, or nothing to keep the one in force. */
  virtual std::optional<Config> Reload() = 0;
};

class Server {
 public:
  Server(Config config, std::string pipeDirectory, ServerOwner& owner);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /**
   * Serves until a stop signal arrives on `signalFd` (a signalfd); SIGHUP
   * reloads the configuration instead. Returns the process exit code: 0
   * after a clean stop, 1 when the registration pipe cannot be opened.
   */
  int Run(int signalFd);

 private:
  /** Puts a configuration in force: for every request and registration from now on. */
  void Apply(Config config);
  void Reload();
  /** Tells the owner how many clients are served, when that changed or along with `state` ("NAME=value\n"). */
  void ReportClients(const std::string& state = "");
  void ReadRegistrations();
  void Accept(uint32_t processId);
  /** Ends sessions whose process is gone, collects finished ones and removes the pipes of gone clients. */
  void Sweep();
  /** Joins a finished session and keeps its pipes in mind until its process is gone. */
  void Collect(ClientSession& session);
  void StopAll(const std::string& reason);

  ServerOwner& owner_;
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
  /** Clients last reported to the owner. */
  std::optional<size_t> reported_;
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
