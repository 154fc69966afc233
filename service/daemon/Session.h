#ifndef PALVONAUTHD_SESSION_H
#define PALVONAUTHD_SESSION_H

// One registered client: its pipes, its thread and everything it created
// (connections, VPN contexts, HTTP requests), which dies with it.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/Http.h"
#include "daemon/Launcher.h"
#include "message/LinuxDictionary.h"

namespace palvonauthd {

/** What every session shares: configuration, launcher, handle numbers. */
class ServiceContext {
 public:
  ServiceContext(const Config& config, Launcher& launcher);
  const Config& config() const { return config_; }
  const HttpSettings& http() const { return http_; }
  Launcher& launcher() { return launcher_; }
  /** A new handle, unique across all clients of this service; never 0. */
  uint32_t NewHandle();

 private:
  const Config& config_;
  HttpSettings http_;
  Launcher& launcher_;
  std::atomic<uint32_t> nextHandle_{1};
};

/** A text form of a message's values for log lines: {key=value, ...}. */
std::string DescribeValues(const PalvonAuthManagerSDK::LinuxDictionary& message);

class Session {
 public:
  Session(ServiceContext& context, std::unique_ptr<pam_service::ClientPipes> pipes);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /** Starts the session's thread. */
  void Start();
  /** Asks the session to end (any thread, any number of times); the first reason is logged. */
  void Stop(const std::string& reason);
  /** True once the thread has released everything and is about to end. */
  bool Finished() const { return finished_; }
  void Join();
  uint32_t ProcessId() const { return processId_; }

 private:
  struct LogonEntry {
    std::string gatewayName;
    std::string gatewayUrl;
  };
  struct Connection {
    std::string name;
    /** Logged-on authentication services by URL. */
    std::map<std::string, LogonEntry> logons;
  };
  struct VpnContext {
    uint32_t connection = 0;
    std::string friendlyName;
    std::string logonPointUrl;
    uint32_t edition = 0;
    uint32_t authType = 0;
    uint32_t flags = 0;
    std::string token;
  };
  using Message = PalvonAuthManagerSDK::LinuxDictionary;

  void Run();
  /** Answers one request; false when the reply could not be delivered. */
  bool Serve(const Message& request);
  /** Performs a request and returns the result code, filling `reply`'s out-values. */
  uint32_t Dispatch(const Message& request, Message& reply);
  /** Waits, unless the session is stopped first; false when stopped. */
  bool Pause(uint32_t milliseconds);
  /** Frees everything the client created and reports how much it was. */
  std::string ReleaseAll();
  std::string StopReason();

  Connection* FindConnection(const Message& request);
  uint32_t ReleaseConnection(uint32_t handle);

  uint32_t OnCreateConnection(const Message& request, Message& reply);
  uint32_t OnDestroyConnection(const Message& request);
  uint32_t OnClearCredentials(const Message& request);
  uint32_t OnLogOffGateway(const Message& request);
  uint32_t OnLogOffAuthService(const Message& request);
  uint32_t OnGetLogonStatus(const Message& request, Message& reply);
  uint32_t OnGenerateTrampolineUrl(const Message& request, Message& reply);
  uint32_t OnCreateVpnAuthContext(const Message& request, Message& reply);
  uint32_t OnGetVpnAuthorizationInfo(const Message& request, Message& reply);
  uint32_t OnSetClientWindow(const Message& request);
  uint32_t OnDetermineServerType(const Message& request, Message& reply);
  uint32_t OnRetrieveGatewayDiscoveryData(const Message& request, Message& reply);
  uint32_t OnLaunch(const Message& request, Message& reply);
  uint32_t OnHttp(uint32_t type, const Message& request, Message& reply);
  uint32_t OnSend(uint32_t handle, HttpRequest& http);
  uint32_t OnReadBody(const Message& request, HttpResponse& response, Message& reply);

  ServiceContext& context_;
  std::unique_ptr<pam_service::ClientPipes> pipes_;
  const uint32_t processId_;
  int wakeFd_ = -1;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> finished_{false};
  std::mutex reasonLock_;
  std::string stopReason_;
  std::thread thread_;

  // Touched by the session's thread only.
  uint32_t busyAnswered_ = 0;
  std::map<uint32_t, Connection> connections_;
  std::map<uint32_t, VpnContext> vpnContexts_;
  std::map<uint32_t, HttpRequest> httpRequests_;
};

}  // namespace palvonauthd

#endif
