#ifndef PALVONAUTHD_DISPATCHER_H
#define PALVONAUTHD_DISPATCHER_H

// The answers to one client's requests and the state they build up
// (connections, VPN contexts, HTTP requests), without pipes or threads. A
// session feeds it the frames it reads; tests and the fuzzer drive it
// directly.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "daemon/Config.h"
#include "daemon/Http.h"
#include "daemon/Launcher.h"
#include "message/LinuxDictionary.h"

namespace palvonauthd {

/** What a request may do outside the service: HTTP transfers and launches. */
class Actions {
 public:
  virtual ~Actions() = default;
  /** Performs an HTTP request (see palvonauthd::Perform). */
  virtual HttpOutcome Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) = 0;
  /** Starts or records a launch; returns its status (launch:: codes). */
  virtual uint32_t Launch(const LaunchRequest& request) = 0;
};

/** The real actions: libcurl and the configured launcher. */
class LiveActions final : public Actions {
 public:
  explicit LiveActions(Launcher& launcher) : launcher_(launcher) {}
  HttpOutcome Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) override;
  uint32_t Launch(const LaunchRequest& request) override;

 private:
  Launcher& launcher_;
};

/** A configuration as requests use it, with what is derived from it. */
struct Settings {
  explicit Settings(Config from);
  const Config config;
  const HttpSettings http;
  /** The launch log, "~/" expanded. */
  const std::string launchLog;
};

/** What every client shares: the settings in force, actions, handle numbers. */
class ServiceContext {
 public:
  ServiceContext(Config config, Actions& actions);
  /**
   * The settings in force (any thread). A request is answered with the
   * settings it started with, whatever a reload puts in place meanwhile.
   */
  std::shared_ptr<const Settings> Current() const;
  /** Puts a configuration in force for every request from now on (any thread). */
  void Replace(Config config);
  Actions& actions() { return actions_; }
  /** A new handle, unique across all clients of this service; never 0. */
  uint32_t NewHandle();

 private:
  mutable std::mutex settingsLock_;
  std::shared_ptr<const Settings> settings_;
  Actions& actions_;
  std::atomic<uint32_t> nextHandle_{1};
};

class Dispatcher {
 public:
  using Message = PalvonAuthManagerSDK::LinuxDictionary;

  /** `cancel` turning true abandons an HTTP transfer in progress. */
  Dispatcher(ServiceContext& context, uint32_t processId, const std::atomic<bool>& cancel);

  /**
   * The reply to one request: busy and forced answers of the configuration
   * first, then the operation itself. Out-values go only with success; an
   * exception inside an operation is answered as a communication failure.
   */
  Message Answer(const Message& request);
  /** Frees everything the client created and reports how much it was ("" for nothing). */
  std::string ReleaseAll();
  /** The settings the last request was answered with (those in force at the start before any). */
  const Settings& settings() const { return *settings_; }

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
  struct VpnContext : Gateway {
    uint32_t connection = 0;
    uint32_t flags = 0;
    std::string token;
  };

  /** Performs a request and returns the result code, filling `reply`'s out-values. */
  uint32_t Dispatch(const Message& request, Message& reply);

  // The handlers, one file per family: ConnectionHandlers.cpp, LogonHandlers.cpp,
  // DiscoveryHandlers.cpp, VpnHandlers.cpp, HttpHandlers.cpp, LaunchHandler.cpp.
  Connection* FindConnection(const Message& request);
  uint32_t ReleaseConnection(uint32_t handle);
  uint32_t OnCreateConnection(const Message& request, Message& reply);
  uint32_t OnDestroyConnection(const Message& request);
  uint32_t OnClearCredentials(const Message& request);
  uint32_t OnSetClientWindow(const Message& request);

  uint32_t OnLogOffGateway(const Message& request);
  uint32_t OnLogOffAuthService(const Message& request);
  uint32_t OnGetLogonStatus(const Message& request, Message& reply);
  uint32_t OnGenerateTrampolineUrl(const Message& request, Message& reply);

  uint32_t OnDetermineServerType(const Message& request, Message& reply);
  uint32_t OnRetrieveGatewayDiscoveryData(const Message& request, Message& reply);

  uint32_t OnCreateVpnAuthContext(const Message& request, Message& reply);
  uint32_t OnGetVpnAuthorizationInfo(const Message& request, Message& reply);

  uint32_t OnHttp(uint32_t type, const Message& request, Message& reply);
  uint32_t OnSend(uint32_t handle, HttpRequest& http);
  uint32_t OnReadBody(const Message& request, HttpResponse& response, Message& reply);

  uint32_t OnLaunch(const Message& request, Message& reply);

  const Config& config() const { return settings_->config; }

  ServiceContext& context_;
  std::shared_ptr<const Settings> settings_;
  const uint32_t processId_;
  const std::atomic<bool>& cancel_;
  uint32_t busyAnswered_ = 0;
  std::map<uint32_t, Connection> connections_;
  std::map<uint32_t, VpnContext> vpnContexts_;
  std::map<uint32_t, HttpRequest> httpRequests_;
};

}  // namespace palvonauthd

#endif
