#include "daemon/Dispatcher.h"

#include <string>
#include <utility>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Log.h"
#include "daemon/MessageValues.h"
#include "daemon/OperationNames.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

namespace {

HttpSettings HttpSettingsOf(const Config& config) {
  HttpSettings http;
  http.userAgent = config.userAgent;
  http.connectTimeoutSeconds = config.connectTimeoutSeconds;
  http.timeoutSeconds = config.timeoutSeconds;
  http.maxResponseBytes = config.maxResponseBytes;
  http.bodyBufferBytes = static_cast<size_t>(config.bodyBufferBytes);
  http.followRedirects = config.followRedirects;
  http.verifyTls = config.verifyTls;
  http.caFile = ExpandHome(config.caFile);
  return http;
}

}  // namespace

Settings::Settings(Config from)
    : config(std::move(from)), http(HttpSettingsOf(config)), launchLog(ExpandHome(config.launchLog)) {}

ServiceContext::ServiceContext(Config config, Actions& actions)
    : settings_(std::make_shared<const Settings>(std::move(config))), actions_(actions) {}

std::shared_ptr<const Settings> ServiceContext::Current() const {
  std::lock_guard<std::mutex> lock(settingsLock_);
  return settings_;
}

void ServiceContext::Replace(Config config) {
  auto settings = std::make_shared<const Settings>(std::move(config));
  std::lock_guard<std::mutex> lock(settingsLock_);
  settings_.swap(settings);
  // The settings replaced are freed outside the lock, by whoever holds them last.
}

uint32_t ServiceContext::NewHandle() {
  uint32_t handle = nextHandle_.fetch_add(1);
  while (handle == 0) handle = nextHandle_.fetch_add(1);
  return handle;
}

HttpOutcome LiveActions::Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) {
  return palvonauthd::Perform(request, settings, cancel);
}

uint32_t LiveActions::Launch(const LaunchRequest& request) { return launcher_.Launch(request); }

Dispatcher::Dispatcher(ServiceContext& context, uint32_t processId, const std::atomic<bool>& cancel)
    : context_(context), settings_(context.Current()), processId_(processId), cancel_(cancel) {}

LinuxDictionary Dispatcher::Answer(const LinuxDictionary& request) {
  settings_ = context_.Current();
  const Config& config = settings_->config;
  const uint32_t type = request.Header().messageType;
  LinuxDictionary reply = pam_service::MakeReply(request, 0);
  uint32_t result = 0;
  if (config.busyCount > 0 && config.FaultApplies(type) && busyAnswered_ < config.busyCount) {
    // The client repeats the same request after each busy answer.
    ++busyAnswered_;
    result = rc::kBusy;
  } else {
    busyAnswered_ = 0;
    const auto forced = config.forcedAnswers.find(type);
    if (forced != config.forcedAnswers.end()) {
      result = forced->second;
    } else {
      try {
        result = Dispatch(request, reply);
      } catch (const std::exception& error) {
        LogError("client ", processId_, ": ", OperationName(type), " failed: ", error.what());
        result = rc::kCommunicationFailure;
      }
    }
  }
  if (result != 0) {
    // Out-values go only with success.
    reply = pam_service::MakeReply(request, result);
  }
  reply.SetUInt(key::kReturn, result);
  return reply;
}

uint32_t Dispatcher::Dispatch(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = this->config();
  const uint32_t type = request.Header().messageType;
  switch (type) {
    case msg::kGetServerSDKVersion:
      reply.SetUInt(key::kVersion, config.sdkVersion);
      return 0;
    case msg::kInitialize:
      LogInfo("client ", processId_, " initialised");
      return 0;
    case msg::kUninitialize: {
      const std::string released = ReleaseAll();
      LogInfo("client ", processId_, " uninitialised", released.empty() ? "" : ", released " + released);
      return 0;
    }
    case msg::kCreateConnection:
      return OnCreateConnection(request, reply);
    case msg::kDestroyConnection:
      return OnDestroyConnection(request);
    case msg::kClearAllCredentials:
    case msg::kLogOff:
      return OnClearCredentials(request);
    case msg::kCancelAllCalls:
      // A client has one call in flight at a time and it is answered before
      // the next is read, so there is never anything left to cancel.
      return FindConnection(request) != nullptr ? 0 : rc::kInvalidHandle;
    case msg::kLogOffGateway:
      return OnLogOffGateway(request);
    case msg::kLogOffAuthService:
      return OnLogOffAuthService(request);
    case msg::kGetLogonStatus:
      return OnGetLogonStatus(request, reply);
    case msg::kGenerateTrampolineUrl:
      return OnGenerateTrampolineUrl(request, reply);
    case msg::kCreateVpnAuthContext:
      return OnCreateVpnAuthContext(request, reply);
    case msg::kDestroyVpnAuthContext: {
      const uint32_t handle = UIntOf(request, key::kVpnContextHandle).value_or(0);
      return vpnContexts_.erase(handle) != 0 ? 0 : rc::kInvalidHandle;
    }
    case msg::kGetVpnAuthorizationInfo:
      return OnGetVpnAuthorizationInfo(request, reply);
    case msg::kGetVersion:
      if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
      SetText(reply, key::kVersion, config.versionText);
      return 0;
    case msg::kSetClientWindow:
      return OnSetClientWindow(request);
    case msg::kDetermineServerType:
      return OnDetermineServerType(request, reply);
    case msg::kRetrieveGatewayDiscoveryData:
      return OnRetrieveGatewayDiscoveryData(request, reply);
    case msg::kLaunchRZPFile:
      return OnLaunch(request, reply);
    default:
      if (type >= msg::kCreateAMHttpRequest && type <= msg::kGetResponseTrustFailureFlags && type % 2 == 0) {
        return OnHttp(type, request, reply);
      }
      LogWarning("client ", processId_, " sent unknown message type ", type);
      return rc::kNotImplemented;
  }
}

std::string Dispatcher::ReleaseAll() {
  std::vector<std::string> parts;
  const auto count = [&](size_t n, const char* what) {
    if (n > 0) parts.push_back(std::to_string(n) + " " + what);
  };
  count(connections_.size(), "connection(s)");
  count(vpnContexts_.size(), "VPN context(s)");
  count(httpRequests_.size(), "HTTP request(s)");
  connections_.clear();
  vpnContexts_.clear();
  httpRequests_.clear();
  busyAnswered_ = 0;
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i > 0 ? ", " : "") + parts[i];
  return out;
}

}  // namespace palvonauthd
