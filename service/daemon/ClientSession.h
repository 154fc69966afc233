#ifndef PALVONAUTHD_CLIENTSESSION_H
#define PALVONAUTHD_CLIENTSESSION_H

// One registered client: its pipes, its thread and its dispatcher, whose
// state (connections, VPN contexts, HTTP requests) dies with it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "common/ServerPipes.h"
#include "daemon/Dispatcher.h"
#include "message/LinuxDictionary.h"

namespace palvonauthd {

class ClientSession {
 public:
  ClientSession(ServiceContext& context, std::unique_ptr<pam_service::ClientPipes> pipes);
  ~ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  /**
   * Starts the session's thread. False, with the reason in `why`, when the
   * session cannot run (no descriptor or no thread to be had); nothing was
   * started then.
   */
  bool Start(std::string& why);
  /** Asks the session to end (any thread, any number of times); the first reason is logged. */
  void Stop(const std::string& reason);
  /** True once the thread has released everything and is about to end. */
  bool Finished() const { return finished_; }
  void Join();
  uint32_t ProcessId() const { return processId_; }
  /** The client's pipes as the session opened them. */
  const pam_service::PipeFiles& Files() const { return pipes_->Files(); }

 private:
  using Message = PalvonAuthManagerSDK::LinuxDictionary;

  /** The thread's body; never throws. */
  void Run();
  /** Reads and serves requests until the session ends; returns why it ended. */
  std::string Serve();
  /** Answers one request; false when the reply could not be delivered. */
  bool Answer(const Message& request);
  /** Waits, unless the session is stopped first; false when stopped. */
  bool Pause(uint32_t milliseconds);
  std::string StopReason();

  ServiceContext& context_;
  std::unique_ptr<pam_service::ClientPipes> pipes_;
  const uint32_t processId_;
  int wakeFd_ = -1;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> finished_{false};
  std::mutex reasonLock_;
  std::string stopReason_;
  /** Touched by the session's thread only. */
  Dispatcher dispatcher_;
  std::thread thread_;
};

}  // namespace palvonauthd

#endif
